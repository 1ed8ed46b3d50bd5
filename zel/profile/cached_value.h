// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/api.h"
#include "zel/core/auto_buffer.h"
#include "zel/core/auto_ptr.h"
#include "zel/core/ref_obj.h"
#include "zel/profile/iprofile.h"
#include "zel/text/string.h"
#include <cstdint>
#include <string_view>

/// What a `cached_profile` keeps.
namespace zel::profile_cache {

/// One entry in memory. Its name and its text end at their first NUL. It answers every operation; those that do not fit its type do nothing or
/// give "" or 0.
class ZEL_API cached_value : public ref_obj {
public:
    /// `is_dirty` for what the store below does not have yet.
    cached_value(string const & entry, bool is_dirty);
    ~cached_value() override;

    /// Writes a dirty entry to `store`.
    virtual void commit(auto_ptr<iprofile> store, string const & section);
    virtual string get_string();
    virtual std::int32_t get_int();
    /// Copies the first `count` bytes, or as many as there are.
    virtual void get_binary(void * target, std::uint32_t count);
    virtual std::uint32_t get_binary_size();
    /// A set operation of the entry's own type makes it dirty, also with the value that it had.
    virtual void set_string(string const & text);
    virtual void set_int(std::int32_t number);
    /// \param block  may be null when `length` is 0.
    virtual void set_binary(void * block, std::uint32_t length);

    /// Told when a commit ended with no memory, so that the store may not have kept what it got.
    virtual void commit_failed() noexcept;

    /// Of the entry.
    string get_name() const { return name; }
    std::string_view name_view() const noexcept { return name; }
    /// For an entry that nobody is to write any more.
    void forget_change() noexcept { dirty = false; }

protected:
    string const name; ///< of the entry
    bool dirty; ///< the store below does not have it yet
};

/// An entry whose first use was a text.
class ZEL_API string_cached_value : public cached_value {
public:
    /// A text as it was read, or is to be written.
    string_cached_value(string const & entry, string const & text, bool is_dirty);
    ~string_cached_value() override;

    void commit(auto_ptr<iprofile> store, string const & section) override;
    string get_string() override;
    void set_string(string const & text) override;

private:
    string value_;
};

/// An entry whose first use was a number or a truth value.
class ZEL_API int_cached_value : public cached_value {
public:
    /// A number as it was read, or is to be written.
    int_cached_value(string const & entry, std::int32_t number, bool is_dirty);
    ~int_cached_value() override;

    void commit(auto_ptr<iprofile> store, string const & section) override;
    std::int32_t get_int() override;
    void set_int(std::int32_t number) override;

private:
    std::int32_t value_;
};

/// An entry whose first use was a block of bytes.
class ZEL_API binary_cached_value : public cached_value {
public:
    /// Copies `length` bytes of `block`.
    binary_cached_value(string const & entry, void const * block, std::uint32_t length,
                        bool is_dirty);
    ~binary_cached_value() override;

    /// Clean afterwards, unlike the other types.
    void commit(auto_ptr<iprofile> store, string const & section) override;
    void get_binary(void * target, std::uint32_t count) override;
    std::uint32_t get_binary_size() override;
    void set_binary(void * block, std::uint32_t length) override;
    /// Dirty again.
    void commit_failed() noexcept override;

private:
    auto_buffer<unsigned char> data_;
    std::uint32_t size_; // bytes in `data_`
    bool was_committed_ = false;
};

} // namespace zel::profile_cache
