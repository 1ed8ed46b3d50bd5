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

/// The entries and sections of a `cached_profile`.
namespace zel::profile_cache {

/// One entry in memory. Its name and its text end at their first NUL. It has the operations of all
/// types; those of another type than its own do nothing, or return "" or 0.
class ZEL_API cached_value : public ref_obj {
public:
    /// \param is_dirty  true if the store below does not have the value yet.
    cached_value(string const & entry, bool is_dirty);
    ~cached_value() override;

    /// Writes a dirty entry to `store`.
    virtual void commit(auto_ptr<iprofile> store, string const & section);
    virtual string get_string();
    virtual std::int32_t get_int();
    /// Copies the first `count` bytes, or as many as there are.
    virtual void get_binary(void * target, std::uint32_t count);
    virtual std::uint32_t get_binary_size();
    /// A set operation of the entry's own type makes it dirty, even if the value does not change.
    virtual void set_string(string const & text);
    virtual void set_int(std::int32_t number);
    /// \param block  may be null when `length` is 0.
    virtual void set_binary(void * block, std::uint32_t length);

    /// Called when a commit ran out of memory, so that the store may not have stored the value.
    virtual void commit_failed() noexcept;

    /// The entry's name.
    string get_name() const { return name; }
    std::string_view name_view() const noexcept { return name; }
    /// For an entry that must not be written any more.
    void forget_change() noexcept { dirty = false; }

protected:
    string const name; ///< the entry's name
    bool dirty; ///< the store below does not have it yet
};

/// An entry whose first use was a text.
class ZEL_API string_cached_value : public cached_value {
public:
    /// Stores a text that was read, or that has to be written.
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
    /// Stores a number that was read, or that has to be written.
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

    /// The entry is not dirty afterwards, unlike those of other types.
    void commit(auto_ptr<iprofile> store, string const & section) override;
    void get_binary(void * target, std::uint32_t count) override;
    std::uint32_t get_binary_size() override;
    void set_binary(void * block, std::uint32_t length) override;
    /// Makes the entry dirty again if it was committed.
    void commit_failed() noexcept override;

private:
    auto_buffer<unsigned char> data_;
    std::uint32_t size_; // bytes in `data_`
    bool was_committed_ = false;
};

} // namespace zel::profile_cache
