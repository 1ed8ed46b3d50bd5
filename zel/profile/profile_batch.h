// SPDX-License-Identifier: MIT
#pragma once

#include "zel/profile/iprofile.h"
#include <cstdint>
#include <span>
#include <string_view>
#include <variant>

namespace zel {

/// One write of several that go to a store together. The texts and the bytes are the caller's and
/// must live until `write_entries` returns.
struct profile_write {
    std::string_view section;
    std::string_view key;
    /// What `write_string`, `write_int` or `write_binary` would be given.
    std::variant<std::string_view, std::int32_t, std::span<unsigned char const>> value;
};

/// True for a store that `write_entries` serves: an `ini_file` itself. A class derived from one may
/// have overridden the writes and expects to see each, like every other kind of store.
bool takes_batches(iprofile const * store) noexcept;

/// Writes all entries with one rewrite of the file. What the file holds afterwards is what single
/// calls in the order of `writes` would have left; an entry that a single call would lose is lost
/// here too, and the others are written.
/// \param store  one that `takes_batches`.
/// \throws std::bad_alloc  with nothing written.
void write_entries(iprofile & store, std::span<profile_write const> writes);

} // namespace zel
