// SPDX-License-Identifier: MIT
#include "zel/platform/host/failure.h"
#include "zel/platform/last_error.h"
#include "zel/platform/queues/queue.h"
#include <algorithm>
#include <new>
#include <optional>

namespace zel::platform {
namespace {

constexpr std::uint32_t window_limit = 65'535; // for one thread: an index has 16 bits

// The window with this handle; any thread may call it.
std::optional<window> find_window(window_handle handle) noexcept
{
    window_name const name = name_of(handle);
    queue * const owner = queue_of(name);
    if (owner == nullptr) {
        return std::nullopt;
    }
    held const lock(owner->lock);
    window const * const found = window_in(*owner, name);
    return found == nullptr ? std::nullopt : std::optional<window>(*found);
}

// Sets the last error for a handle that is not a window of the calling thread.
void refuse(window_handle handle) noexcept
{
    set_last_error(find_window(handle) ? error_access_denied : error_invalid_window_handle);
}

std::intptr_t dispatch_message(tagMSG const & message)
{
    if (message.hwnd == nullptr) {
        return 0;
    }
    queue * const own = current_queue;
    window const * const found = own == nullptr ? nullptr : window_in(*own, name_of(message.hwnd));
    if (found != nullptr) {
        return found->procedure(message.hwnd, message.message, message.wParam, message.lParam);
    }
    refuse(message.hwnd);
    return 0;
}

} // namespace

window_handle create_window(window_procedure procedure, bool unicode) noexcept
{
    if (procedure == nullptr) {
        return fail_with_null(error_invalid_parameter);
    }
    queue * const own = own_queue();
    if (own == nullptr) {
        return nullptr;
    }
    held const lock(own->lock);
    if (own->free_window == 0 && own->window_count == own->window_room) {
        if (own->window_room == window_limit) {
            return fail_with_null(error_no_system_resources);
        }
        std::uint32_t const room = std::clamp(own->window_room * 2, 4U, window_limit);
        auto * const more = new (std::nothrow) window[room];
        if (more == nullptr) {
            return fail_with_null(error_not_enough_memory);
        }
        std::copy_n(own->windows, own->window_count, more);
        delete[] own->windows;
        own->windows = more;
        own->window_room = room;
    }
    std::uint32_t const index = own->free_window != 0 ? own->free_window - 1 : own->window_count++;
    window & made = own->windows[index];
    if (own->free_window != 0) {
        own->free_window = made.serial;
    }
    made = {procedure, own->next_serial, unicode};
    own->next_serial += own->next_serial == 0xFFFFFFFF ? 2U : 1U;
    return std::bit_cast<window_handle>(
        window_name{static_cast<std::uint16_t>(index), own->number, made.serial});
}

bool destroy_window(window_handle handle) noexcept
{
    window_name const name = name_of(handle);
    queue * const own = current_queue;
    window * const found = own == nullptr ? nullptr : window_in(*own, name);
    if (found == nullptr) {
        refuse(handle);
        return false;
    }
    held const lock(own->lock);
    *found = {nullptr, own->free_window, false};
    own->free_window = name.index + 1U;
    own->messages.drop(handle);
    update_descriptor(*own);
    return true;
}

bool is_window_unicode(window_handle handle) noexcept
{
    // Only the owner changes its windows, so it reads them without a lock.
    queue * const own = current_queue;
    if (window const * const found = own == nullptr ? nullptr : window_in(*own, name_of(handle));
        found != nullptr) {
        return found->unicode;
    }
    if (auto const found = find_window(handle)) {
        return found->unicode;
    }
    return fail(error_invalid_window_handle);
}

std::intptr_t dispatch_message_a(tagMSG const & message) { return dispatch_message(message); }

std::intptr_t dispatch_message_w(tagMSG const & message) { return dispatch_message(message); }

} // namespace zel::platform
