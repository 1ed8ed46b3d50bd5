// SPDX-License-Identifier: MIT
// The store of waiting messages against a plain list. A step may push hundreds of messages at once,
// so that blocks fill, empty and go.
#include "zel/platform/queues/message_store.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace {

using zel::platform::message_filter;

void require(bool holds)
{
    if (!holds) {
        std::abort();
    }
}

window_handle window(unsigned int number)
{
    return reinterpret_cast<window_handle>(std::uintptr_t{number % 4} * 16); // the first is null
}

bool takes(message_filter const & filter, tagMSG const & message)
{
    if (filter.window == zel::platform::thread_messages_only()
            ? message.hwnd != nullptr
            : filter.window != nullptr && message.hwnd != filter.window) {
        return false;
    }
    return message.message == zel::platform::message_quit || (filter.first == 0 && filter.last == 0)
        || (message.message >= filter.first && message.message <= filter.last);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const * data, std::size_t size)
{
    zel::platform::message_store store;
    std::vector<tagMSG> model;
    std::intptr_t pushed = 0;
    for (; size >= 4; data += 4, size -= 4) {
        unsigned int const operation = data[0] % 8;
        if (operation < 3) {
            for (int i = 0; i <= (operation == 0 ? data[3] * 2 : 0); ++i) {
                tagMSG const message{window(data[1]), 0x10U + data[2] % 8U, 0, pushed++, 0, {}};
                require(store.push(message));
                model.push_back(message);
            }
        } else if (operation < 6) {
            message_filter const filter{data[1] % 5 == 4 ? zel::platform::thread_messages_only()
                                                         : window(data[1]),
                                        data[2] % 3 == 0 ? 0U : 0x10U + data[2] % 8U,
                                        data[2] % 3 == 0 ? 0U : 0x10U + data[3] % 8U};
            bool const removes = operation != 3;
            for (int i = 0; i <= (operation == 5 ? data[3] : 0); ++i) {
                auto const expected
                    = std::find_if(model.begin(), model.end(),
                                   [&](auto const & each) { return takes(filter, each); });
                tagMSG found{};
                bool const has_found = store.fetch(filter, removes, found);
                require(has_found == (expected != model.end()));
                require(!has_found
                        || (found.lParam == expected->lParam && found.hwnd == expected->hwnd));
                if (has_found && removes) {
                    model.erase(expected);
                }
            }
        } else if (operation == 6) {
            store.drop(window(1 + data[1] % 3));
            std::erase_if(model,
                          [&](auto const & each) { return each.hwnd == window(1 + data[1] % 3); });
        } else if (data[1] == 0) {
            store.clear();
            model.clear();
        }
        require(store.size() == model.size());
        if (model.size() > 20'000) {
            break;
        }
    }
    store.clear();
    return 0;
}
