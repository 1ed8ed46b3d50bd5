// SPDX-License-Identifier: MIT
#pragma once

#include <map>
#include <zel/zel.h>

/// Passes messages on to another logger, a limited number of each group, and finally reports for
/// each group how many were not passed on.
///
/// A logger passes a group's messages on up to its limit and then stops. Here the limit of the base
/// class is raised so that it has no effect, and the output counts the groups itself. `summarize`
/// reports what was not passed on since the last time; so do `clean` and the destructor. Use it in
/// one thread at a time, as for all grouped messages.
class summing_logger : public zel::logger {
public:
    /// \param allowance  how many messages of a group are passed on.
    summing_logger(zel::auto_ptr<zel::logger> next, std::uint32_t allowance)
        : next_(std::move(next))
        , allowance_(allowance)
    {
        set_group_limitation(0xFFFFFFFF);
    }

    ~summing_logger() override
    {
        try {
            summarize();
        } catch (...) {
            // A destructor can't report that the other logger failed.
        }
    }

    void clean() override
    {
        summarize();
        groups_.clear();
        logger::clean();
    }

    void summarize()
    {
        for (auto & [group, seen] : groups_) {
            if (seen > allowance_) {
                next_->write(note, "%u messages of the group '%s' were held back",
                             seen - allowance_, group.c_str());
                seen = allowance_;
            }
        }
    }

protected:
    void output_buffer(log_type type, zel::string const & text, zel::string const & url) override
    {
        next_->write_url(type, url.c_str(), "%s", text.c_str());
    }

    void output_buffer_grouped(log_type type, zel::string const & group, zel::string const & text,
                               zel::string const & url) override
    {
        if (++groups_[group] <= allowance_) {
            next_->write_url(type, url.c_str(), "%s", text.c_str());
        }
    }

private:
    zel::auto_ptr<zel::logger> next_;
    std::uint32_t allowance_;
    std::map<zel::string, std::uint32_t> groups_; // messages so far
};
