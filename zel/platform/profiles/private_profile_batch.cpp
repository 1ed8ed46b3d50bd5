// SPDX-License-Identifier: MIT
#include "zel/platform/profiles/private_profile_batch.h"

#include <algorithm>
#include <cstddef>
#include <new>
#include <utility>

namespace zel::platform {
namespace {

constinit thread_local private_profile_batch * open_batch = nullptr;

} // namespace

private_profile_batch::private_profile_batch() noexcept
    : outer_(open_batch)
{
    if (outer_ == nullptr) {
        open_batch = this;
    }
}

private_profile_batch::~private_profile_batch()
{
    if (outer_ == nullptr) {
        write_what_waits();
        open_batch = nullptr;
    }
}

void private_profile_batch::finish() { write(); }

bool private_profile_batch::write_what_waits() noexcept
{
    if (open_batch == nullptr) {
        return true;
    }
    try {
        open_batch->finish();
        return true;
    } catch (std::bad_alloc const &) {
        return false;
    }
}

bool private_profile_batch::take(private_profile_entry const & entry, char const * file)
{
    private_profile_batch * const batch = open_batch;
    if (batch == nullptr) {
        return false;
    }
    if (!batch->entries_.empty() && batch->file_ != file) {
        batch->write();
    }
    if (batch->entries_.empty()) {
        batch->file_ = file;
    }
    private_profile_entry noted = entry;
    if (!batch->entries_.empty() && batch->entries_.back().section == entry.section) {
        noted.section = batch->entries_.back().section;
    } else {
        noted.section = batch->copy(entry.section);
    }
    noted.name = batch->copy(entry.name);
    noted.value = batch->copy(entry.value);
    batch->entries_.push_back(noted);
    return true;
}

std::string_view private_profile_batch::copy(std::string_view text)
{
    if (texts_.empty() || texts_.back().capacity() - texts_.back().size() < text.size()) {
        constexpr std::size_t usual = 64 * 1024;
        std::string chunk;
        chunk.reserve(std::max(text.size(), usual));
        texts_.push_back(std::move(chunk));
    }
    std::string & chunk = texts_.back();
    return {chunk.append(text).data() + chunk.size() - text.size(), text.size()};
}

/// Writes the collected entries, and forgets them unless it raises.
void private_profile_batch::write()
{
    if (!entries_.empty()) {
        write_private_profile_entries(entries_, file_.c_str());
        entries_.clear();
        texts_.clear();
    }
}

} // namespace zel::platform
