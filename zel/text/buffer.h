// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/api.h"
#include "zel/core/ref_obj.h"
#include <cstdint>

namespace zel {

/// A growable array of bytes, copied as a value or shared through `auto_ptr<buffer>`.
///
/// It holds exactly as many bytes as it has, in one block from `malloc` without spare room, and no
/// block at all while empty. A size of 2^32 - 64 KiB or more is refused like exhausted memory. When
/// memory runs out, `memory_exception` with `allocation_failed` leaves and the bytes are as they
/// were. Members that take a source and a count read `count` bytes there; with a count of 0 the
/// source may be null. A buffer is a plain value: many readers or one writer.
/// \code
///     zel::buffer message(header, header_size);
///     message.append(body, body_size);
///     std::uint32_t const line_end = message.find(crlf, 2);
/// \endcode
class ZEL_API buffer : public ref_obj {
public:
    /// Of `find`: not found. Of `remove`: up to the end.
    static constexpr std::uint32_t c_npos = 0xFFFFFFFF;

    buffer() noexcept = default;
    /// A copy of `count` bytes, or `count` times `fill`.
    buffer(unsigned char const * source, std::uint32_t count);
    buffer(std::uint32_t count, unsigned char fill);
    /// A copy has a count of its own; what was moved from is empty.
    buffer(buffer const & other);
    buffer(buffer && other) noexcept;
    ~buffer() override;

    /// The count of this object stays.
    buffer & operator=(buffer const & other);
    buffer & operator=(buffer && other) noexcept;

    /// Whether both hold the same bytes.
    bool operator==(buffer const & other) const noexcept;
    bool operator!=(buffer const & other) const noexcept { return !(*this == other); }

    /// Orders by size first. Within one size the order runs downwards: at the first difference the
    /// buffer with the greater byte is the lesser one.
    bool operator<(buffer const & other) const noexcept;
    bool operator<=(buffer const & other) const noexcept { return !(other < *this); }
    bool operator>(buffer const & other) const noexcept { return other < *this; }
    bool operator>=(buffer const & other) const noexcept { return !(*this < other); }

    /// The byte at `index`, which is not tested.
    unsigned char & operator[](std::uint32_t index) noexcept { return data_[index]; }
    unsigned char const & operator[](std::uint32_t index) const noexcept { return data_[index]; }

    /// The storage, valid until the size changes; null in a new and in a cleared buffer.
    unsigned char * data() noexcept { return data_; }
    unsigned char const * data() const noexcept { return data_; }

    /// In bytes.
    std::uint32_t size() const noexcept { return size_; }

    /// True when there are bytes, false when there are none: the opposite of what the name has come
    /// to mean. Ask `size() == 0`.
    bool empty() const noexcept { return size_ != 0; }

    /// Frees the storage.
    void clear() noexcept;

    /// Keeps the first bytes; new ones have no defined value, or are `fill`.
    void resize(std::uint32_t count);
    void resize(std::uint32_t count, unsigned char fill);

    /// Overwrites `count` bytes at `position`; never grows.
    /// \throws memory_exception  `invalid_array_boundary` when they would reach beyond the end.
    void write(std::uint32_t position, unsigned char const * source, std::uint32_t count);

    /// Adds bytes at the end.
    ///
    /// There being no spare room, each call is a `realloc`, and one that has to move copies all
    /// that is there: single bytes appended in a loop cost a reallocation each, several times what
    /// a container with spare room needs, and quadratic time in the worst case. Where many small
    /// pieces arrive, `resize` once to the final size or a bound of it, `write` the pieces, and cut
    /// with `resize` in the end.
    /// \param source  may point into this buffer.
    void append(unsigned char const * source, std::uint32_t count);

    /// Adds the bytes of `other`, which may be this buffer.
    buffer & operator+=(buffer const & other);

    /// Opens a gap at `position` and fills it; appends when `position` lies at or beyond the end.
    /// \param source  must not point into this buffer.
    void insert(std::uint32_t position, unsigned char const * source, std::uint32_t count);

    /// Takes out `count` bytes at `position`, or all from there on when there are no more.
    /// \throws memory_exception  `invalid_array_boundary` when `position` is at or beyond the end.
    void remove(std::uint32_t position, std::uint32_t count = c_npos);

    /// \returns the position of the first match at or after `start`, or `c_npos`; an empty pattern
    ///          is found nowhere.
    /// \throws memory_exception  `invalid_array_boundary` when `start` lies at or beyond the end.
    std::uint32_t find(unsigned char const * pattern, std::uint32_t pattern_size,
                       std::uint32_t start = 0) const;

    /// A new buffer with a copy of `count` bytes at `position`. The span has to end before the last
    /// byte: the last one itself cannot be copied in this way.
    /// \returns an object that the caller owns: to delete, or to put into an `auto_ptr`.
    /// \throws memory_exception  `invalid_array_boundary` when the span reaches the last byte.
    /// \throws std::bad_alloc    when there is no memory for the object itself.
    buffer * submem(std::uint32_t position, std::uint32_t count) const;

protected:
    /// Storage for derived classes.
    /// \throws memory_exception  `allocation_failed`; a block given to `reallocate` is still there.
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
