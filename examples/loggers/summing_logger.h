// SPDX-License-Identifier: MIT
#pragma once

#include <map>
#include <zel/zel.h>

/// Hands messages on to another logger, only so many of each group, and in the end says of each
/// group how many were held back.
///
/// A logger passes a group's messages on until its limit and then is silent. Here the limit of the
/// base is out of the way, and the groups are counted again where their messages come out.
/// `summarize` says what was held back since the last time; so do `clean` and the destruction.
/// One thread at a time, as for all grouped messages.
class summing_logger : public zel::logger {
public:
    /// \param allowance  messages of a group that come out.
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
            // The other logger cannot take it, and there is nobody left to tell.
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
