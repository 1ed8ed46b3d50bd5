// SPDX-License-Identifier: MIT
#include "zel/text/buffer.h"

#include "zel/core/exception.h"
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <utility>

namespace zel {
namespace {

// Sizes this close to 2^32 are refused, whatever the host could give: callers add a header or a
// terminator in 32 bits, and the sum would wrap.
constexpr std::uint64_t size_limit = 0xFFFF0000;

unsigned char * try_allocate(std::uint64_t count) noexcept
{
    return count < size_limit
        ? static_cast<unsigned char *>(std::malloc(std::max<std::uint64_t>(count, 1)))
        : nullptr;
}

unsigned char * try_reallocate(unsigned char * pointer, std::uint64_t count) noexcept
{
    // realloc to 0 bytes frees the block and looks like a failure.
    return count < size_limit
        ? static_cast<unsigned char *>(std::realloc(pointer, std::max<std::uint64_t>(count, 1)))
        : nullptr;
}

void copy(unsigned char * destination, unsigned char const * source, std::uint32_t count) noexcept
{
    if (count != 0) { // memcpy must not get null pointers, even for 0 bytes
        std::memcpy(destination, source, count);
    }
}

[[noreturn, gnu::cold]] void fail(memory_exception::exc_type type, char const * member)
{
    throw memory_exception(type, member);
}

[[noreturn, gnu::cold]] void raise_boundary(char const * member)
{
    fail(memory_exception::invalid_array_boundary, member);
}

std::string_view as_text(unsigned char const * bytes, std::uint32_t count)
{
    return {reinterpret_cast<char const *>(bytes), count};
}

} // namespace

buffer::buffer(unsigned char const * source, std::uint32_t count)
{
    if (count != 0) {
        data_ = allocate(count);
        size_ = count;
        std::memcpy(data_, source, count);
    }
}

buffer::buffer(std::uint32_t count, unsigned char fill)
{
    if (count != 0) {
        data_ = allocate(count);
        size_ = count;
        std::memset(data_, fill, count);
    }
}

buffer::buffer(buffer const & other)
    : buffer(other.data_, other.size_)
{
}

buffer::buffer(buffer && other) noexcept
    : size_(std::exchange(other.size_, 0))
    , data_(std::exchange(other.data_, nullptr))
{
}

buffer::~buffer() { clear(); }

buffer & buffer::operator=(buffer const & other)
{
    if (this != &other) {
        resize(other.size_);
        copy(data_, other.data_, size_);
    }
    return *this;
}

buffer & buffer::operator=(buffer && other) noexcept
{
    if (this != &other) {
        clear();
        size_ = std::exchange(other.size_, 0);
        data_ = std::exchange(other.data_, nullptr);
    }
    return *this;
}

bool buffer::operator==(buffer const & other) const noexcept
{
    return as_text(data_, size_) == as_text(other.data_, other.size_);
}

bool buffer::operator<(buffer const & other) const noexcept
{
    if (size_ != other.size_) {
        return size_ < other.size_;
    }
    return size_ != 0 && std::memcmp(data_, other.data_, size_) > 0;
}

void buffer::clear() noexcept
{
    deallocate(data_);
    size_ = 0;
}

void buffer::resize(std::uint32_t count) { resize_or_raise(count); }

void buffer::resize(std::uint32_t count, unsigned char fill)
{
    std::uint32_t const old_size = size_;
    resize(count);
    if (count > old_size) {
        std::memset(data_ + old_size, fill, count - old_size);
    }
}

void buffer::write(std::uint32_t position, unsigned char const * source, std::uint32_t count)
{
    if (std::uint64_t{position} + count > size_) {
        raise_boundary("buffer::write");
    }
    copy(data_ + position, source, count);
}

void buffer::append(unsigned char const * source, std::uint32_t count)
{
    if (count == 0) {
        return;
    }
    std::uint32_t const old_size = size_;
    // Computed as integers, because only pointers into one block may be compared. If the source is
    // in this buffer, it may move with the block.
    auto const offset
        = reinterpret_cast<std::uintptr_t>(source) - reinterpret_cast<std::uintptr_t>(data_);
    unsigned char * const block = try_reallocate(data_, std::uint64_t{old_size} + count);
    if (block == nullptr) [[unlikely]] {
        fail(memory_exception::allocation_failed, "buffer::reallocate=");
    }
    data_ = block;
    size_ = old_size + count;
    if (offset < old_size) [[unlikely]] {
        source = block + offset;
    }
    if (count == 1) { // not worth a call
        block[old_size] = *source;
    } else {
        std::memcpy(block + old_size, source, count);
    }
}

buffer & buffer::operator+=(buffer const & other)
{
    append(other.data_, other.size_);
    return *this;
}

void buffer::insert(std::uint32_t position, unsigned char const * source, std::uint32_t count)
{
    std::uint32_t const old_size = size_;
    if (position >= old_size || count == 0) {
        append(source, count);
        return;
    }
    resize_or_raise(std::uint64_t{old_size} + count);
    std::memmove(data_ + position + count, data_ + position, old_size - position);
    std::memcpy(data_ + position, source, count);
}

void buffer::remove(std::uint32_t position, std::uint32_t count)
{
    if (position >= size_) {
        raise_boundary("buffer::remove");
    }
    if (count == c_npos || std::uint64_t{position} + count >= size_) {
        resize(position);
        return;
    }
    // The removed bytes are moved to the end first: the runtime may refuse even a smaller block,
    // and then nothing is lost.
    unsigned char * const gap = data_ + position;
    std::uint32_t const tail = size_ - position - count;
    unsigned char kept[512];
    if (count <= sizeof kept) {
        copy(kept, gap, count);
        std::memmove(gap, gap + count, tail);
        if (!try_resize(size_ - count)) {
            std::memmove(gap + count, gap, tail);
            copy(gap, kept, count);
            fail(memory_exception::allocation_failed, "buffer::reallocate=");
        }
    } else {
        std::rotate(gap, gap + count, gap + count + tail);
        if (!try_resize(size_ - count)) {
            std::rotate(gap, gap + tail, gap + tail + count);
            fail(memory_exception::allocation_failed, "buffer::reallocate=");
        }
    }
}

std::uint32_t buffer::find(unsigned char const * pattern, std::uint32_t pattern_size,
                           std::uint32_t start) const
{
    if (start >= size_) {
        raise_boundary("buffer::find");
    }
    if (pattern_size == 0) {
        return c_npos;
    }
    auto const position = as_text(data_, size_).find(as_text(pattern, pattern_size), start);
    return position == std::string_view::npos ? c_npos : static_cast<std::uint32_t>(position);
}

buffer * buffer::submem(std::uint32_t position, std::uint32_t count) const
{
    if (std::uint64_t{position} + count >= size_) {
        raise_boundary("buffer::submem");
    }
    return new buffer(data_ + position, count);
}

unsigned char * buffer::allocate(std::uint32_t count)
{
    unsigned char * const block = try_allocate(count);
    if (block == nullptr) {
        fail(memory_exception::allocation_failed, "buffer::allocate");
    }
    return block;
}

unsigned char * buffer::reallocate(unsigned char * pointer, std::uint32_t count)
{
    unsigned char * const block = try_reallocate(pointer, count);
    if (block == nullptr) {
        fail(memory_exception::allocation_failed, "buffer::reallocate=");
    }
    return block;
}

void buffer::deallocate(unsigned char *& pointer) noexcept
{
    std::free(pointer);
    pointer = nullptr;
}

bool buffer::try_resize(std::uint64_t count) noexcept
{
    if (count == size_) {
        return true;
    }
    if (count == 0) {
        clear();
        return true;
    }
    unsigned char * const block = try_reallocate(data_, count);
    if (block == nullptr) {
        return false;
    }
    data_ = block;
    size_ = static_cast<std::uint32_t>(count);
    return true;
}

void buffer::resize_or_raise(std::uint64_t count)
{
    if (!try_resize(count)) {
        fail(memory_exception::allocation_failed, "buffer::reallocate=");
    }
}

} // namespace zel
