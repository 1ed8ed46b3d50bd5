// SPDX-License-Identifier: MIT
#include "zel/platform/profiles/private_profile.h"

#include "zel/platform/host/failure.h"
#include "zel/platform/profiles/private_profile_batch.h"
#include "zel/platform/profiles/profile_editor.h"
#include "zel/platform/profiles/profile_reader.h"
#include "zel/platform/profiles/profile_text.h"
#include "zel/platform/profiles/profile_writer.h"
#include <algorithm>
#include <limits>
#include <memory>

namespace zel::platform {
namespace {

std::string_view up_to_nul(std::string_view text) noexcept
{
    return text.substr(0, text.find('\0'));
}

/// Passes the entry's value to `sink`.
/// \returns false with the last error set when there is none.
bool find_value(std::string_view section, std::string_view name, value_sink & sink,
                char const * file) noexcept
{
    private_profile_batch::write_what_waits();
    entry_finder finder(up_to_nul(section), up_to_nul(name), sink);
    return find_in_profile(file, finder);
}

} // namespace

std::uint32_t get_private_profile_string(std::string_view section, std::string_view name,
                                         std::string_view default_value, char * buffer,
                                         std::uint32_t size, char const * file) noexcept
{
    if (size == 0) {
        return 0;
    }
    text_value value(buffer, size);
    if (find_value(section, name, value, file)) {
        return value.finish();
    }
    std::size_t const count = up_to_nul(default_value).copy(buffer, size - 1);
    buffer[count] = '\0';
    return static_cast<std::uint32_t>(count);
}

bool get_private_profile_struct(std::string_view section, std::string_view name, void * buffer,
                                std::uint32_t size, char const * file)
{
    // No file can contain a larger block, so no room is needed to see that the size does not fit.
    constexpr std::uint32_t largest = std::numeric_limits<std::int32_t>::max() / 4;
    std::uint32_t const room = size <= largest ? size : 0;
    std::unique_ptr<unsigned char[]> const bytes(new unsigned char[room]);
    block_value value(bytes.get(), room);
    if (!find_value(section, name, value, file)) {
        return false;
    }
    if (!value.sound()) {
        return fail(error_invalid_parameter);
    }
    if (value.size() != size) {
        return fail(error_bad_length);
    }
    std::copy_n(bytes.get(), room, static_cast<unsigned char *>(buffer));
    return true;
}

bool get_private_profile_struct_size(std::string_view section, std::string_view name,
                                     std::uint32_t & size, char const * file) noexcept
{
    size = 0;
    block_value value;
    if (!find_value(section, name, value, file)) {
        return false;
    }
    if (!value.sound()) {
        return fail(error_invalid_parameter);
    }
    size = static_cast<std::uint32_t>(value.size());
    return true;
}

bool write_private_profile_entries(std::span<private_profile_entry const> entries,
                                   char const * file)
{
    bool refused = false;
    if (std::none_of(entries.begin(), entries.end(), can_be_read_back)) {
        refused = !entries.empty();
    } else if (!rewrite_profile(entries, file, refused)) {
        return false;
    }
    return !refused || fail(error_invalid_parameter);
}

namespace {

/// Writes one entry now, or adds it to the batch that is open in this thread.
bool write_entry(private_profile_entry entry, char const * file)
{
    entry.section = up_to_nul(entry.section);
    entry.name = up_to_nul(entry.name);
    if (!can_be_read_back(entry)) {
        return fail(error_invalid_parameter);
    }
    return private_profile_batch::take(entry, file)
        || write_private_profile_entries({&entry, 1}, file);
}

} // namespace

bool write_private_profile_string(std::string_view section, std::string_view name,
                                  std::string_view value, char const * file)
{
    return write_entry({section, name, up_to_nul(value)}, file);
}

bool write_private_profile_struct(std::string_view section, std::string_view name,
                                  void const * data, std::uint32_t size, char const * file)
{
    private_profile_entry entry{section, name, {}, private_profile_entry::block};
    if (data != nullptr) {
        entry.value = {static_cast<char const *>(data), size};
    } else if (size > 0) {
        entry.kind = private_profile_entry::removal;
    }
    return write_entry(entry, file);
}

} // namespace zel::platform
