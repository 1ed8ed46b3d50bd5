// SPDX-License-Identifier: MIT
#pragma once

#include "zel/platform/message_queue.h"
#include <cstdint>

namespace zel::platform {

/// Which of the waiting messages are asked for.
struct message_filter {
    window_handle window; // null for all, thread_messages_only() for those without a window
    unsigned int first; // the range of numbers; 0 and 0 for all
    unsigned int last;

    /// The quit message is in every range.
    bool takes(tagMSG const & message) const noexcept;
};

/// Waiting messages in the order of their arrival. It has no lock and no limit of its own.
///
/// Messages lie in blocks of a fixed size, so that nothing is ever moved to make room. One empty
/// block is kept: a queue that swings between empty and a block's worth asks for no memory.
class message_store {
public:
    constexpr message_store() noexcept = default;
    message_store(message_store const &) = delete;
    message_store & operator=(message_store const &) = delete;

    /// \returns false, with nothing changed, when memory is exhausted.
    bool push(tagMSG const & message) noexcept;

    /// Copies the first message that the filter takes, and takes it out if `remove` says so.
    /// \returns whether there is one.
    bool fetch(message_filter const & filter, bool remove, tagMSG & message) noexcept;

    /// Drops the messages of a window.
    void drop(window_handle window) noexcept;

    /// Drops everything and gives all memory back. There is no destructor that would do so: a store
    /// may lie in static memory, where one would have to run at the end of the process.
    void clear() noexcept;

    std::uint32_t size() const noexcept { return size_; }

private:
    struct block;

    // Takes out the message at `index` of `in`, whose predecessor is `before`.
    void remove_at(block * before, block & in, std::uint32_t index) noexcept;
    void unlink(block * before, block & empty) noexcept;

    block * head_ = nullptr;
    block * tail_ = nullptr;
    block * spare_ = nullptr;
    std::uint32_t size_ = 0;
};

} // namespace zel::platform
