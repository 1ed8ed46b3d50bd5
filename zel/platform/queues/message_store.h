// SPDX-License-Identifier: MIT
#pragma once

#include "zel/platform/message_queue.h"
#include <cstdint>

namespace zel::platform {

/// Which of the waiting messages a caller asks for.
struct message_filter {
    window_handle window; // null for all, thread_messages_only() for those without a window
    unsigned int first; // the range of numbers; 0 and 0 for all
    unsigned int last;

    /// The quit message is in every range.
    bool takes(tagMSG const & message) const noexcept;
};

/// Waiting messages in the order of their arrival. The caller provides locking and any limit.
///
/// Messages are stored in blocks of a fixed size, so that none is ever moved to make room. One
/// empty block is kept: a queue that alternates between empty and one block of messages allocates
/// nothing.
class message_store {
public:
    constexpr message_store() noexcept = default;
    message_store(message_store const &) = delete;
    message_store & operator=(message_store const &) = delete;

    /// \returns false, with nothing changed, when memory is exhausted.
    bool push(tagMSG const & message) noexcept;

    /// Copies the first message that the filter takes, and removes it if `remove` is true.
    /// \returns true if there is one.
    bool fetch(message_filter const & filter, bool remove, tagMSG & message) noexcept;

    /// Discards the messages of a window.
    void drop(window_handle window) noexcept;

    /// Discards all messages and frees all memory. There is no destructor for this: a store may be
    /// in static memory, where a destructor would have to run at the end of the process.
    void clear() noexcept;

    std::uint32_t size() const noexcept { return size_; }

private:
    struct block;

    // Removes the message at `index` of `in`, whose predecessor is `before`.
    void remove_at(block * before, block & in, std::uint32_t index) noexcept;
    void unlink(block * before, block & empty) noexcept;

    block * head_ = nullptr;
    block * tail_ = nullptr;
    block * spare_ = nullptr;
    std::uint32_t size_ = 0;
};

} // namespace zel::platform
