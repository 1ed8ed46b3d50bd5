// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/api.h"
#include "zel/core/ref_obj.h"
#include <cstdint>

namespace zel {

/// A growable array of bytes, copied as a value or shared through `auto_ptr<buffer>`.
///
/// Its storage is exactly as large as its content: one block from `malloc` without spare room, and
/// no block while it is empty. A size of 2^32 - 64 KiB or more is refused like exhausted memory.
/// When memory runs out, `memory_exception` with `allocation_failed` is raised and the bytes are
/// unchanged. Members that take a source and a count read `count` bytes from it; with a count of 0
/// the source may be null. A buffer is a plain value: many readers or one writer.
/// \code
///     zel::buffer message(header, header_size);
///     message.append(body, body_size);
///     std::uint32_t const line_end = message.find(crlf, 2);
/// \endcode
class ZEL_API buffer : public ref_obj {
public:
    /// From `find`: not found. For `remove`: up to the end.
    static constexpr std::uint32_t c_npos = 0xFFFFFFFF;

    buffer() noexcept = default;
    /// A copy of `count` bytes, or `count` times `fill`.
    buffer(unsigned char const * source, std::uint32_t count);
    buffer(std::uint32_t count, unsigned char fill);
    /// A copy has its own reference count. A buffer that was moved from is empty.
    buffer(buffer const & other);
    buffer(buffer && other) noexcept;
    ~buffer() override;

    /// The reference count of this object does not change.
    buffer & operator=(buffer const & other);
    buffer & operator=(buffer && other) noexcept;

    /// True if both contain the same bytes.
    bool operator==(buffer const & other) const noexcept;
    bool operator!=(buffer const & other) const noexcept { return !(*this == other); }

    /// Orders by size first. Buffers of one size are ordered downwards: at the first difference,
    /// the buffer with the greater byte is the lesser one.
    bool operator<(buffer const & other) const noexcept;
    bool operator<=(buffer const & other) const noexcept { return !(other < *this); }
    bool operator>(buffer const & other) const noexcept { return other < *this; }
    bool operator>=(buffer const & other) const noexcept { return !(*this < other); }

    /// The byte at `index`. The index is not checked.
    unsigned char & operator[](std::uint32_t index) noexcept { return data_[index]; }
    unsigned char const & operator[](std::uint32_t index) const noexcept { return data_[index]; }

    /// The storage, valid until the size changes; null in a new and in a cleared buffer.
    unsigned char * data() noexcept { return data_; }
    unsigned char const * data() const noexcept { return data_; }

    /// The size in bytes.
    std::uint32_t size() const noexcept { return size_; }

    /// True when there ARE bytes, false when there are none: the opposite of what the name usually
    /// means. To test for emptiness, use `size() == 0`.
    bool empty() const noexcept { return size_ != 0; }

    /// Frees the storage.
    void clear() noexcept;

    /// Keeps the first bytes. New bytes are uninitialised, or `fill`.
    void resize(std::uint32_t count);
    void resize(std::uint32_t count, unsigned char fill);

    /// Overwrites `count` bytes at `position`; never grows.
    /// \throws memory_exception  `invalid_array_boundary` when they would reach beyond the end.
    void write(std::uint32_t position, unsigned char const * source, std::uint32_t count);

    /// Adds bytes at the end.
    ///
    /// Without spare room each call is a `realloc`, and one that has to move the block copies all
    /// its bytes. Appending single bytes in a loop costs one reallocation each: several times what
    /// a container with spare room needs, and quadratic time in the worst case. For many small
    /// pieces, `resize` once to the final size or an upper bound, `write` the pieces, and cut with
    /// `resize` at the end.
    /// \param source  may point into this buffer.
    void append(unsigned char const * source, std::uint32_t count);

    /// Adds the bytes of `other`, which may be this buffer.
    buffer & operator+=(buffer const & other);

    /// Inserts bytes at `position`; appends when `position` is at or beyond the end.
    /// \param source  must not point into this buffer.
    void insert(std::uint32_t position, unsigned char const * source, std::uint32_t count);

    /// Removes `count` bytes at `position`, or all from there on if there are fewer.
    /// \throws memory_exception  `invalid_array_boundary` when `position` is at or beyond the end.
    void remove(std::uint32_t position, std::uint32_t count = c_npos);

    /// \returns the position of the first match at or after `start`, or `c_npos`; an empty pattern
    ///          is found nowhere.
    /// \throws memory_exception  `invalid_array_boundary` when `start` lies at or beyond the end.
    std::uint32_t find(unsigned char const * pattern, std::uint32_t pattern_size,
                       std::uint32_t start = 0) const;

    /// A new buffer with a copy of `count` bytes at `position`. The range has to end before the
    /// last byte: the last byte itself can't be copied with this member.
    /// \returns an object that the caller owns: delete it, or put it into an `auto_ptr`.
    /// \throws memory_exception  `invalid_array_boundary` when the range reaches the last byte.
    /// \throws std::bad_alloc    when there is no memory for the object itself.
    buffer * submem(std::uint32_t position, std::uint32_t count) const;

protected:
    /// Storage for derived classes.
    /// \throws memory_exception  `allocation_failed`; a block passed to `reallocate` is then still
    ///                           valid.
    unsigned char * allocate(std::uint32_t count);
    unsigned char * reallocate(unsigned char * pointer, std::uint32_t count);
    void deallocate(unsigned char *& pointer) noexcept;

private:
    bool try_resize(std::uint64_t count) noexcept;
    void resize_or_raise(std::uint64_t count);

    std::uint32_t size_ = 0;
    unsigned char * data_ = nullptr; // size_ bytes from malloc, or null
};

} // namespace zel
