// SPDX-License-Identifier: MIT
#pragma once

#include "zel/profile/ini_file.h"
#include <cstring>
#include <functional>
#include <stdexcept>
#include <string>
#include <utility>

/// Says which calls it got of those that a cache makes, and knows every entry but those whose key
/// begins with "missing".
class recording_store : public zel::ini_file {
    using text = zel::string const &;
    using number = std::int32_t;

public:
    recording_store()
        : ini_file("no file")
    {
    }
    zel::string raise_for; // the key whose write fails
    std::function<void()> at_write; // called in the middle of each
    zel::string take() { return std::exchange(log_, {}); }

    // clang-format off
    zel::string read_string(text s, text k, text d) override
        { note("read_string", s, k, d); return known(k) ? zel::string("text of ") + k : d; }
    number read_int(text s, text k, number d) override
        { note("read_int", s, k, std::to_string(d)); return known(k) ? 42 : d; }
    void write_string(text s, text k, text v) override { note("write_string", s, k, v); raise(k); }
    void write_int(text s, text k, number v) override
        { note("write_int", s, k, std::to_string(v)); raise(k); }
    void write_binary(text s, text k, void * data, std::uint32_t size) override
        { note("write_binary", s, k, zel::string(static_cast<char *>(data), size)); raise(k); }
    std::uint32_t get_binary_size(text s, text k) override
        { note("get_binary_size", s, k, ""); return known(k) ? 3 : 0; }
    void read_binary(text s, text k, void * data, std::uint32_t size) override
        { note("read_binary", s, k, std::to_string(size)); std::memcpy(data, "xyz", size); }
    // clang-format on

private:
    static bool known(text key) { return !key.starts_with("missing"); }
    void note(char const * call, text section, text key, text rest)
    {
        log_ += zel::string(call) + " " + section + "/" + key + "=" + rest + ";";
    }
    void raise(text key) const
    {
        if (at_write) {
            at_write();
        }
        if (key == raise_for) {
            throw std::runtime_error("the store fails");
        }
    }

    zel::string log_;
};
