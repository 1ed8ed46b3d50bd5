// SPDX-License-Identifier: MIT
#include "zel/platform/profiles/private_profile_batch.h"

#include <new>

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

void private_profile_batch::finish()
{
    write();
    clear();
}

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
    if (batch->entries_.empty()) {
        batch->file_ = file;
    } else if (batch->file_ != file) {
        batch->write();
        batch->clear();
        batch->file_ = file;
    }
    std::string & texts = batch->texts_;
    std::size_t const begin = texts.size();
    try {
        texts.append(entry.section).append(entry.name).append(entry.value);
        batch->entries_.push_back(
            {begin, entry.section.size(), entry.name.size(), entry.value.size(), entry.kind});
    } catch (...) {
        texts.resize(begin);
        throw;
    }
    return true;
}

void private_profile_batch::write() const
{
    if (entries_.empty()) {
        return;
    }
    std::vector<private_profile_entry> entries;
    entries.reserve(entries_.size());
    for (noted_entry const & each : entries_) {
        std::string_view rest = std::string_view(texts_).substr(each.begin);
        auto const next = [&rest](std::size_t size) {
            std::string_view const text = rest.substr(0, size);
            rest.remove_prefix(size);
            return text;
        };
        private_profile_entry & entry = entries.emplace_back();
        entry.section = next(each.section_size);
        entry.name = next(each.name_size);
        entry.value = next(each.value_size);
        entry.kind = each.kind;
    }
    write_private_profile_entries(entries, file_.c_str());
}

void private_profile_batch::clear() noexcept
{
    file_.clear();
    texts_.clear();
    entries_.clear();
}

} // namespace zel::platform
