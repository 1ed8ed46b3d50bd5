// SPDX-License-Identifier: MIT
#include "zel/platform/queues/message_store.h"

#include <algorithm>
#include <new>
#include <utility>

namespace zel::platform {

// A block in the list is never empty, unless it is the only one.
struct message_store::block {
    static constexpr std::uint32_t capacity = 84; // a page with the heap's own bytes

    block * next;
    std::uint32_t first; // messages are at first to last - 1
    std::uint32_t last;
    tagMSG messages[capacity];
};

bool message_filter::takes(tagMSG const & message) const noexcept
{
    window_handle const wanted = window == thread_messages_only() ? nullptr : window;
    if (window != nullptr && message.hwnd != wanted) {
        return false;
    }
    return (first == 0 && last == 0) || (first <= message.message && message.message <= last)
        || message.message == message_quit;
}

bool message_store::push(tagMSG const & message) noexcept
{
    if (tail_ == nullptr || tail_->last == block::capacity) {
        block * added = spare_;
        spare_ = nullptr;
        if (added == nullptr) {
            added = new (std::nothrow) block;
            if (added == nullptr) {
                return false;
            }
        }
        added->next = nullptr;
        added->first = 0;
        added->last = 0;
        (tail_ == nullptr ? head_ : tail_->next) = added;
        tail_ = added;
    }
    tail_->messages[tail_->last++] = message;
    ++size_;
    return true;
}

bool message_store::fetch(message_filter const & filter, bool remove, tagMSG & message) noexcept
{
    for (block *before = nullptr, *in = head_; in != nullptr; before = in, in = in->next) {
        for (std::uint32_t i = in->first; i < in->last; ++i) {
            if (filter.takes(in->messages[i])) {
                message = in->messages[i];
                if (remove) {
                    remove_at(before, *in, i);
                }
                return true;
            }
        }
    }
    return false;
}

void message_store::drop(window_handle window) noexcept
{
    block * before = nullptr;
    for (block * in = head_; in != nullptr;) {
        block * const next = in->next;
        tagMSG * const end = in->messages + in->last;
        tagMSG * const left
            = std::remove_if(in->messages + in->first, end,
                             [=](tagMSG const & message) { return message.hwnd == window; });
        size_ -= static_cast<std::uint32_t>(end - left);
        in->last = static_cast<std::uint32_t>(left - in->messages);
        if (in->first == in->last) {
            unlink(before, *in);
        } else {
            before = in;
        }
        in = next;
    }
}

void message_store::clear() noexcept
{
    for (block * in = head_; in != nullptr;) {
        delete std::exchange(in, in->next);
    }
    delete spare_;
    head_ = nullptr;
    tail_ = nullptr;
    spare_ = nullptr;
    size_ = 0;
}

void message_store::remove_at(block * before, block & in, std::uint32_t index) noexcept
{
    if (index == in.first) {
        ++in.first;
    } else {
        std::copy(in.messages + index + 1, in.messages + in.last, in.messages + index);
        --in.last;
    }
    --size_;
    if (in.first == in.last) {
        unlink(before, in);
    }
}

void message_store::unlink(block * before, block & empty) noexcept
{
    if (head_ == tail_) {
        empty.first = 0;
        empty.last = 0;
        return;
    }
    (before == nullptr ? head_ : before->next) = empty.next;
    if (tail_ == &empty) {
        tail_ = before;
    }
    if (spare_ == nullptr) {
        spare_ = &empty;
    } else {
        delete &empty;
    }
}

} // namespace zel::platform
