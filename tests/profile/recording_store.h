// SPDX-License-Identifier: MIT
#pragma once

#include "zel/profile/iprofile.h"
#include <cstring>
#include <stdexcept>
#include <string>
#include <utility>

/// Says which calls it got, and knows every entry as its own name.
class recording_store : public zel::iprofile {
public:
    zel::string log;
    zel::string raise_for; // the key whose write fails

    zel::string read_string(zel::string const & section, zel::string const & key,
                            zel::string const & value) override
    {
        note("read_string", section, key, value);
        return key.starts_with("missing") ? value : zel::string("text of ") + key;
    }
    std::int32_t read_int(zel::string const & section, zel::string const & key,
                          std::int32_t value) override
    {
        note("read_int", section, key, std::to_string(value));
        return key.starts_with("missing") ? value : 42;
    }
    bool read_bool(zel::string const & section, zel::string const & key, bool value) override
    {
        note("read_bool", section, key, value ? "true" : "false");
        return true;
    }
    void write_string(zel::string const & section, zel::string const & key,
                      zel::string const & value) override
    {
        note("write_string", section, key, value);
        raise(key);
    }
    void write_int(zel::string const & section, zel::string const & key,
                   std::int32_t value) override
    {
        note("write_int", section, key, std::to_string(value));
        raise(key);
    }
    void write_bool(zel::string const & section, zel::string const & key, bool value) override
    {
        note("write_bool", section, key, value ? "true" : "false");
    }
    void read_multiple(zel::string const & section, zel::string const & key, char separator,
                       zel::string const & base_key,
                       std::list<std::pair<std::int32_t, zel::string>> & result) override
    {
        note("read_multiple", section, key, base_key + separator);
        result.emplace_back(1, "one");
    }
    zel::string read_by_index_string(zel::string const & section, zel::string const & key,
                                     std::int32_t index) override
    {
        note("read_by_index_string", section, key, std::to_string(index));
        return "indexed";
    }
    std::int32_t read_by_index_int(zel::string const & section, zel::string const & key,
                                   std::int32_t index) override
    {
        note("read_by_index_int", section, key, std::to_string(index));
        return 43;
    }
    void write_by_index_string(zel::string const & section, zel::string const & key,
                               std::int32_t index, zel::string const & value) override
    {
        note("write_by_index_string", section, key, std::to_string(index) + value);
    }
    void write_binary(zel::string const & section, zel::string const & key, void * data,
                      std::uint32_t size) override
    {
        note("write_binary", section, key, zel::string(static_cast<char *>(data), size));
        raise(key);
    }
    std::uint32_t get_binary_size(zel::string const & section, zel::string const & key) override
    {
        note("get_binary_size", section, key, "");
        return key.starts_with("missing") ? 0 : 3;
    }
    void read_binary(zel::string const & section, zel::string const & key, void * data,
                     std::uint32_t size) override
    {
        note("read_binary", section, key, std::to_string(size));
        std::memcpy(data, "xyz", size);
    }

    zel::string take() { return std::exchange(log, {}); }

private:
    void note(char const * call, zel::string const & section, zel::string const & key,
              zel::string const & rest)
    {
        log += zel::string(call) + " " + section + "/" + key + "=" + rest + ";";
    }
    void raise(zel::string const & key) const
    {
        if (key == raise_for) {
            throw std::runtime_error("the store fails");
        }
    }
};
