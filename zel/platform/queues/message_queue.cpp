// SPDX-License-Identifier: MIT
#include "zel/platform/message_queue.h"

#include "zel/platform/host/failure.h"
#include "zel/platform/kernel_objects.h"
#include "zel/platform/last_error.h"
#include "zel/platform/queues/queue.h"
#include "zel/platform/waits/address_wait.h"

namespace zel::platform {
namespace {

// Called with the lock held, after a message was added. If it returns true, the caller has to wake
// the owner: after releasing the lock, but before the caller itself can be stopped.
[[nodiscard]] bool announce(queue & it) noexcept
{
    it.fresh = true;
    update_descriptor(it);
    if (it.sleeping.load(std::memory_order_relaxed) == 0) {
        return false;
    }
    it.sleeping.store(0, std::memory_order_relaxed);
    return true;
}

std::uint32_t now_in_milliseconds() noexcept
{
    return static_cast<std::uint32_t>(monotonic_now() / 1'000'000);
}

// Posts if the receiver still exists, which is checked with the lock held; otherwise sets the error
// `otherwise`.
template <typename Check>
bool post(queue & to, tagMSG const & message, Check is_there, error otherwise) noexcept
{
    uninterrupted const guard; // no stop between the post and its wake
    bool wake = false;
    {
        held const lock(to.lock);
        if (!is_there()) {
            return fail(otherwise);
        }
        if (to.messages.size() == message_limit) {
            return fail(error_not_enough_quota);
        }
        if (!to.messages.push(message)) {
            return fail(error_not_enough_memory);
        }
        wake = announce(to);
    }
    if (wake) {
        wake_address(to.sleeping, 1, false);
    }
    return true;
}

bool post_to_thread(queue & to, std::uint32_t thread_id, tagMSG const & message) noexcept
{
    auto const & owner = owner_of(to);
    return post(
        to, message, [&] { return owner.load(std::memory_order_relaxed) == thread_id; },
        error_invalid_thread_id);
}

// Call it with the lock held, on the owner's thread.
bool fetch(queue & from, message_filter const & filter, bool remove, tagMSG & message) noexcept
{
    from.fresh = false;
    if (!from.messages.fetch(filter, remove, message)) {
        if (!from.quit) {
            return false;
        }
        message = {nullptr, message_quit,          static_cast<std::uintptr_t>(from.exit_code),
                   0,       now_in_milliseconds(), {0, 0}};
        from.quit = !remove;
    }
    if (remove) {
        update_descriptor(from);
    }
    return true;
}

bool may_ask_for(queue & own, window_handle wanted) noexcept
{
    if (wanted == nullptr || wanted == thread_messages_only()
        || window_in(own, name_of(wanted)) != nullptr) {
        return true;
    }
    return fail(error_invalid_window_handle);
}

int get_message(tagMSG & message, window_handle wanted, unsigned int first,
                unsigned int last) noexcept
{
    queue * const own = own_queue();
    if (own == nullptr || !may_ask_for(*own, wanted)) {
        return -1;
    }
    for (;;) {
        {
            held const lock(own->lock);
            if (fetch(*own, {wanted, first, last}, true, message)) {
                return message.message == message_quit ? 0 : 1;
            }
            own->sleeping.store(1, std::memory_order_relaxed);
        }
        while (own->sleeping.load(std::memory_order_relaxed) == 1) {
            wait_on_address(own->sleeping, 1, -1, false);
        }
    }
}

} // namespace

bool post_message(window_handle handle, unsigned int message, std::uintptr_t wparam,
                  std::intptr_t lparam) noexcept
{
    tagMSG const posted{handle, message, wparam, lparam, now_in_milliseconds(), {0, 0}};
    if (handle == nullptr) {
        queue * const own = own_queue();
        return own != nullptr
            && post_to_thread(*own, owner_of(*own).load(std::memory_order_relaxed), posted);
    }
    window_name const name = name_of(handle);
    queue * const owner = queue_of(name);
    if (owner == nullptr) {
        return fail(error_invalid_window_handle);
    }
    return post(
        *owner, posted, [&] { return window_in(*owner, name) != nullptr; },
        error_invalid_window_handle);
}

bool post_thread_message(std::uint32_t thread_id, unsigned int message, std::uintptr_t wparam,
                         std::intptr_t lparam) noexcept
{
    tagMSG const posted{nullptr, message, wparam, lparam, now_in_milliseconds(), {0, 0}};
    {
        uninterrupted const guard;
        reap_threads(); // one of them may have had this number
    }
    queue * const to = thread_id == 0 ? nullptr : queue_of_thread(thread_id);
    if (to == nullptr) {
        if (thread_id == current_thread_id()) {
            return post_message(nullptr, message, wparam, lparam);
        }
        return fail(error_invalid_thread_id);
    }
    return post_to_thread(*to, thread_id, posted);
}

void post_quit_message(int exit_code) noexcept
{
    queue * const own = own_queue();
    if (own == nullptr) {
        return;
    }
    held const lock(own->lock);
    own->quit = true;
    own->exit_code = exit_code;
    static_cast<void>(announce(*own)); // the owner is the calling thread, which is awake
}

bool peek_message(tagMSG & message, window_handle wanted, unsigned int first, unsigned int last,
                  unsigned int remove) noexcept
{
    queue * const own = own_queue();
    if (own == nullptr || !may_ask_for(*own, wanted)) {
        return false;
    }
    held const lock(own->lock);
    return fetch(*own, {wanted, first, last}, (remove & peek_remove) != 0, message);
}

int get_message_a(tagMSG & message, window_handle wanted, unsigned int first,
                  unsigned int last) noexcept
{
    return get_message(message, wanted, first, last);
}

int get_message_w(tagMSG & message, window_handle wanted, unsigned int first,
                  unsigned int last) noexcept
{
    return get_message(message, wanted, first, last);
}

bool translate_message(tagMSG const & message) noexcept
{
    // A key goes down or up, alone or with the menu key.
    return message.message == 0x0100 || message.message == 0x0101 || message.message == 0x0104
        || message.message == 0x0105;
}

std::uint32_t msg_wait_for_thread(void * thread, std::uint32_t milliseconds) noexcept
{
    queue * const own = own_queue();
    if (own == nullptr) {
        return wait_failed;
    }
    bool fresh = false;
    {
        held const lock(own->lock);
        fresh = own->fresh;
        own->sleeping.store(fresh ? 0 : 1, std::memory_order_relaxed);
    }
    // The word already differs from 1, so this only checks whether the thread has ended.
    std::uint32_t const result = wait_for_thread_or_change(thread, own->sleeping, 1, milliseconds);
    own->sleeping.store(0, std::memory_order_relaxed);
    return result;
}

} // namespace zel::platform
