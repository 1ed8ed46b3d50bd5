// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/api.h"
#include "zel/core/auto_ptr.h"
#include "zel/profile/iprofile.h"
#include <cstdint>
#include <list>
#include <utility>

namespace zel {

/// A part of another store, shown as a store of its own: it prefixes every section's name with a
/// path and forwards everything else.
///
/// A component that uses one needs only short names and reaches no section outside its path. Many
/// of them can share one store. It caches nothing, and allows the same threads as the store below.
/// \code
///     zel::auto_ptr<zel::iprofile> const view(new zel::sub_profile(settings, "app"));
///     auto const title = view->read_string("view", "title", "untitled"); // of section app\view
/// \endcode
class ZEL_API sub_profile : public iprofile {
public:
    /// \param below  may be null; then every operation raises `memory_exception` with
    ///               `null_pointer`.
    sub_profile(auto_ptr<iprofile> below, string const & section_path);
    ~sub_profile() override;

    string read_string(string const & section, string const & key,
                       string const & default_value) override;
    std::int32_t read_int(string const & section, string const & key,
                          std::int32_t default_value) override;
    bool read_bool(string const & section, string const & key, bool default_value) override;

    using iprofile::read_bool;
    using iprofile::write_bool;

    void write_string(string const & section, string const & key, string const & value) override;
    void write_int(string const & section, string const & key, std::int32_t value) override;
    void write_bool(string const & section, string const & key, bool value) override;

    void read_multiple(string const & section, string const & key, char separator,
                       string const & base_key,
                       std::list<std::pair<std::int32_t, string>> & result) override;

    string read_by_index_string(string const & section, string const & key,
                                std::int32_t index) override;
    std::int32_t read_by_index_int(string const & section, string const & key,
                                   std::int32_t index) override;
    void write_by_index_string(string const & section, string const & key, std::int32_t index,
                               string const & value) override;

    void write_binary(string const & section, string const & key, void * data,
                      std::uint32_t size) override;
    std::uint32_t get_binary_size(string const & section, string const & key) override;
    void read_binary(string const & section, string const & key, void * data,
                     std::uint32_t size) override;

protected:
    /// The section's name in the store below: the path up to its first NUL, a backslash and the
    /// section. A derived class may form it in another way.
    virtual string formPath(string const & section);

    auto_ptr<iprofile> const profile; ///< the store below
    string const path; ///< the prefix

private:
    template <typename Operation> auto forward(string const & section, Operation && operation);
};

} // namespace zel
