// SPDX-License-Identifier: MIT
// A module with a logger in its static memory, which writes when the module comes and goes.
#include "zel/log/logger.h"

#include <cstdlib>

#include <unistd.h>

namespace {

class pipe_logger : public zel::logger {
public:
    pipe_logger()
    {
        set_group_limitation(1);
        write_grouped(info, "g", "%s", "come");
    }
    ~pipe_logger() override
    {
        write_grouped(info, "g", "held back");
        write(info, "gone after %u", get_info_counter());
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
    }

private:
    int descriptor_ = std::atoi(std::getenv("ZEL_TEST_PIPE"));
} module_logger;

} // namespace
