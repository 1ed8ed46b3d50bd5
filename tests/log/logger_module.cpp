// SPDX-License-Identifier: MIT
// A module with a logger in its static memory, which writes when the module is loaded and unloaded.
#include "zel/log/logger.h"

#include <cstdlib>

#include <unistd.h>

namespace {

class pipe_logger : public zel::logger {
public:
    pipe_logger()
        : descriptor_(std::atoi(std::getenv("ZEL_TEST_PIPE")))
    {
        write(info, "%s", "loaded");
    }
    ~pipe_logger() override
    {
        write_grouped(info, "end", "unloaded after %u of %s", get_info_counter(),
                      "a group that is suppressed");
        write_grouped(info, "end", "held back");
    }

protected:
    void output_buffer(log_type, zel::string const & text, zel::string const &) override
    {
        zel::string const line = text + ";";
        static_cast<void>(!::write(descriptor_, line.c_str(), line.length()));
    }
    void output_buffer_grouped(log_type type, zel::string const &, zel::string const & text,
                               zel::string const & url) override
    {
        output_buffer(type, text, url);
        set_group_limitation(0);
    }

private:
    int descriptor_;
} module_logger;

} // namespace
