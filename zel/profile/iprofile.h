// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/api.h"
#include "zel/core/ref_obj.h"
#include "zel/text/string.h"
#include <cstdint>
#include <list>
#include <utility>

namespace zel {

/// A store of settings: values under a key, keys under a section.
///
/// Stores stack: a `sub_profile` shows one part of a `cached_profile`, which keeps in memory what
/// an `ini_file` has on disk. All of them are shared as `auto_ptr<iprofile>`.
///
/// Nothing removes an entry, lists the keys or tells whether one exists: a missing entry is seen
/// only as the default that a read returns. Nothing returns a failure of the store either; a write
/// that failed is lost and a read gives its default. A write that a file refused leaves its reason in
/// the thread's last error (`ini_file`). Every text, section, key, value and default, ends at its
/// first NUL. What threads may do with one store, each class says for itself.
/// \code
///     zel::auto_ptr<zel::iprofile> settings(new zel::ini_file("C:\\home\\me\\app.ini"));
///     settings->write_int("window", "width", 800);
///     auto const title = settings->read_string("window", "title", "untitled");
/// \endcode
struct ZEL_API iprofile : public ref_obj {
    ~iprofile() override;

    /// The text of an entry, or `default_value` when there is none.
    virtual string read_string(string const & section, string const & key,
                               string const & default_value)
        = 0;
    /// What is no number reads as 0, digits up to the first other byte count; `default_value` is
    /// for a missing entry only.
    virtual std::int32_t read_int(string const & section, string const & key,
                                  std::int32_t default_value)
        = 0;
    virtual bool read_bool(string const & section, string const & key, bool default_value) = 0;

    /// Sets an entry, which is made when it is missing.
    virtual void write_string(string const & section, string const & key, string const & value) = 0;
    virtual void write_int(string const & section, string const & key, std::int32_t value) = 0;
    virtual void write_bool(string const & section, string const & key, bool value) = 0;

    /// Reads a list of numbers and the text that belongs to each: the entry `key` holds the numbers
    /// (`3,7`), the entries `base_key3` and `base_key7` the texts. An empty number ends the list; a
    /// missing text is an empty one.
    /// \param result  is cleared first; receives the pairs in the order of the list.
    virtual void read_multiple(string const & section, string const & key, char separator,
                               string const & base_key,
                               std::list<std::pair<std::int32_t, string>> & result)
        = 0;

    /// The entry whose name is `key` directly followed by the decimal text of `index`; empty or 0
    /// when it is missing.
    virtual string read_by_index_string(string const & section, string const & key,
                                        std::int32_t index)
        = 0;
    virtual std::int32_t read_by_index_int(string const & section, string const & key,
                                           std::int32_t index)
        = 0;
    virtual void write_by_index_string(string const & section, string const & key,
                                       std::int32_t index, string const & value)
        = 0;

    /// A block of bytes. `data` is only read.
    /// \param size  in bytes; 0 stores a block without bytes.
    virtual void write_binary(string const & section, string const & key, void * data,
                              std::uint32_t size)
        = 0;
    /// The bytes of a block; 0 also when there is none.
    virtual std::uint32_t get_binary_size(string const & section, string const & key) = 0;
    /// \param size  as `get_binary_size` tells it.
    virtual void read_binary(string const & section, string const & key, void * data,
                             std::uint32_t size)
        = 0;

    /// A text, which would count as true, is no truth value.
    template <typename T> bool read_bool(string const &, string const &, T *) = delete;
    template <typename T> void write_bool(string const &, string const &, T *) = delete;
};

} // namespace zel
