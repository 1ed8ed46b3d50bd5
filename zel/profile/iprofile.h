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
/// Stores can be stacked: a `sub_profile` shows one part of a `cached_profile`, which caches an
/// `ini_file` on disk. All of them are shared as `auto_ptr<iprofile>`.
///
/// There is no operation that removes an entry, lists the keys or tells whether an entry exists: a
/// missing entry shows only as the default that a read returns. No operation returns a failure of
/// the store either: a failed write is lost, and a failed read gives its default. A write that was
/// refused or that failed leaves its reason in the thread's last error; `ini_file` lists the codes.
/// Every text ends at its first NUL: section, key, value and default. Each class says which threads
/// may use one object.
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
    /// The number at the start of the text, up to the first byte that is no digit; 0 if there is
    /// none. `default_value` is only for a missing entry.
    virtual std::int32_t read_int(string const & section, string const & key,
                                  std::int32_t default_value)
        = 0;
    virtual bool read_bool(string const & section, string const & key, bool default_value) = 0;

    /// Sets an entry, and creates it when it is missing.
    virtual void write_string(string const & section, string const & key, string const & value) = 0;
    virtual void write_int(string const & section, string const & key, std::int32_t value) = 0;
    virtual void write_bool(string const & section, string const & key, bool value) = 0;

    /// Reads a list of numbers and a text for each: the entry `key` contains the numbers (`3,7`),
    /// the entries `base_key3` and `base_key7` the texts. An empty number ends the list; a missing
    /// text is empty.
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

    /// Stores a block of bytes. `data` is not modified.
    /// \param size  in bytes; 0 stores a block without bytes.
    virtual void write_binary(string const & section, string const & key, void * data,
                              std::uint32_t size)
        = 0;
    /// The size of a block in bytes; 0 also when there is no block.
    virtual std::uint32_t get_binary_size(string const & section, string const & key) = 0;
    /// \param size  what `get_binary_size` returns.
    virtual void read_binary(string const & section, string const & key, void * data,
                             std::uint32_t size)
        = 0;

    /// A pointer would convert to true, so it is refused as a truth value.
    template <typename T> bool read_bool(string const &, string const &, T *) = delete;
    template <typename T> void write_bool(string const &, string const &, T *) = delete;
};

} // namespace zel
