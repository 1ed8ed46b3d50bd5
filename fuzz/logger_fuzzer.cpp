// SPDX-License-Identifier: MIT
// A logger's counters and its table of groups against a plain map. Each byte of the input is a step.
#include "zel/log/logger.h"

#include <array>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <string>

namespace {

void require(bool holds)
{
    if (!holds) {
        std::abort();
    }
}

class recorder : public zel::logger {
public:
    std::string last; // group, text and url of the last output

protected:
    void output_buffer(log_type type, zel::string const & text, zel::string const & url) override
    {
        last = std::to_string(type) + '|' + text + '|' + url;
    }
    void output_buffer_grouped(log_type type, zel::string const & group, zel::string const & text,
                               zel::string const & url) override
    {
        last = std::to_string(type) + '|' + group + '|' + text + '|' + url;
    }
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const * data, std::size_t size)
{
    recorder log;
    std::map<std::string, std::uint32_t> groups;
    std::array<std::uint32_t, 3> counters{}; // info, error, warning, as the types are numbered
    std::uint32_t limit = 64;
    for (std::size_t i = 0; i < size; ++i) {
        unsigned const step = data[i];
        if (step >= 250) {
            log.clean();
            groups.clear();
            counters = {};
        } else if (step >= 240) {
            limit = step % 10 % 4;
            log.set_group_limitation(limit);
        } else {
            auto const type = static_cast<zel::logger::log_type>(step % 6);
            bool const is_grouped = step % 4 != 0;
            std::string const group(step / 6 % 8, static_cast<char>('a' + step / 48 % 2));
            std::string const text = std::to_string(i);
            bool comes_out = type != zel::logger::trace;
            std::string expected = std::to_string(type) + '|';
            log.last.clear();
            if (is_grouped) {
                std::uint32_t & count = groups[group];
                comes_out = ++count == 1 || count <= limit ? comes_out : false;
                expected += group + '|';
                log.write_grouped_url(type, "u", group.empty() ? nullptr : group.c_str(), "%s",
                                      text.c_str());
            } else {
                log.write_url(type, "u", "%s", text.c_str());
            }
            if (type < counters.size()) {
                ++counters[type];
            }
            require(log.last == (comes_out ? expected + text + "|u" : ""));
        }
        require(log.get_info_counter() == counters[zel::logger::info]
                && log.get_error_counter() == counters[zel::logger::error]
                && log.get_warning_counter() == counters[zel::logger::warning]);
    }
    return 0;
}
