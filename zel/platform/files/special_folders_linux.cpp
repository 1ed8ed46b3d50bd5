// SPDX-License-Identifier: MIT
#include "zel/platform/files/special_folders.h"

#include "zel/platform/paths/host_path.h"
#include "zel/platform/paths/path_parts.h"
#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string_view>

#include <climits>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

namespace zel::platform {
namespace {

/// An absolute name of the host, in an array of its own; empty when the name is relative or too
/// long.
class absolute_name {
public:
    absolute_name() noexcept = default;
    explicit absolute_name(std::string_view text) noexcept
    {
        if (text.starts_with('/')) {
            add(text);
        }
    }

    void add(std::string_view text) noexcept
    {
        if (text.size() >= sizeof text_ - size_) {
            size_ = 0;
        } else {
            size_ += text.copy(text_ + size_, text.size());
        }
        text_[size_] = '\0';
    }

    std::string_view view() const noexcept { return {text_, size_}; }
    char * c_str() noexcept { return text_; }

private:
    char text_[PATH_MAX] = {};
    std::size_t size_ = 0;
};

bool store_path(char * result, std::string_view host) noexcept
{
    *result = '\0';
    return host.starts_with('/') && from_host_path(result, host);
}

std::string_view variable(char const * name) noexcept
{
    // A program with raised rights must not trust its environment.
    char const * const value = ::secure_getenv(name);
    return value == nullptr ? std::string_view() : std::string_view(value);
}

absolute_name home() noexcept
{
    absolute_name result(variable("HOME"));
    if (result.view().empty()) {
        passwd entry;
        passwd * found = nullptr;
        char area[4096];
        if (::getpwuid_r(::getuid(), &entry, area, sizeof area, &found) == 0 && found != nullptr) {
            result = absolute_name(found->pw_dir);
        }
    }
    return result;
}

absolute_name in_home(std::string_view name) noexcept
{
    absolute_name result = home();
    if (!result.view().empty()) {
        result.add(name);
    }
    return result;
}

/// XDG Base Directory 0.8: the variable's value when it is an absolute name, else the folder in
/// `HOME`.
absolute_name base_folder(char const * name, std::string_view fallback) noexcept
{
    absolute_name const result(variable(name));
    return result.view().empty() ? in_home(fallback) : result;
}

/// The user's setting in `user-dirs.dirs`, a line of the form `XDG_NAME_DIR="$HOME/folder"` or with
/// an absolute name; else the folder in `HOME`.
absolute_name user_folder(std::string_view name, std::string_view fallback) noexcept
{
    absolute_name result = in_home(fallback);
    absolute_name list = base_folder("XDG_CONFIG_HOME", "/.config");
    list.add("/user-dirs.dirs");
    std::unique_ptr<std::FILE, int (*)(std::FILE *)> const file(
        std::fopen(list.c_str(), "re"), [](std::FILE * stream) { return std::fclose(stream); });
    char area[PATH_MAX + 64];
    while (file != nullptr && std::fgets(area, sizeof area, file.get()) != nullptr) {
        std::string_view line = area;
        line.remove_prefix(std::min(line.find_first_not_of(" \t"), line.size()));
        if (!line.starts_with(name) || !line.substr(name.size()).starts_with("=\"")) {
            continue;
        }
        line.remove_prefix(name.size() + 2);
        line = line.substr(0, line.find('"'));
        if (line.starts_with("$HOME")) {
            result = in_home(line.substr(5));
        } else if (line.starts_with('/')) {
            result = absolute_name(line);
        }
    }
    return result;
}

absolute_name special_folder(std::uint32_t identifier) noexcept
{
    switch (identifier) {
    case 5:
        return user_folder("XDG_DOCUMENTS_DIR", "/Documents");
    case 13:
        return user_folder("XDG_MUSIC_DIR", "/Music");
    case 14:
        return user_folder("XDG_VIDEOS_DIR", "/Videos");
    case 0:
    case 16:
        return user_folder("XDG_DESKTOP_DIR", "/Desktop");
    case 20:
        return absolute_name("/usr/share/fonts");
    case 21:
        return user_folder("XDG_TEMPLATES_DIR", "/Templates");
    case 26:
        return base_folder("XDG_CONFIG_HOME", "/.config");
    case 28:
        return base_folder("XDG_DATA_HOME", "/.local/share");
    case 32:
        return base_folder("XDG_CACHE_HOME", "/.cache");
    case 34:
        return base_folder("XDG_STATE_HOME", "/.local/state");
    case 35:
        return absolute_name("/var/lib");
    case 36:
        return absolute_name("/usr");
    case 37:
        return absolute_name("/usr/lib");
    case 38:
        return absolute_name("/opt");
    case 39:
        return user_folder("XDG_PICTURES_DIR", "/Pictures");
    case 40:
        return home();
    case 43:
        return absolute_name("/usr/share");
    case 46:
        return user_folder("XDG_PUBLICSHARE_DIR", "/Public");
    case 47:
        return absolute_name("/usr/sbin");
    case 48:
        return in_home("/.local/bin");
    default:
        return {};
    }
}

/// Creates the folder and missing folders above it, accessible only to the user, as XDG requires.
bool create_folder(absolute_name & name) noexcept
{
    struct stat facts;
    if (name.view().empty()) {
        return false;
    }
    if (::stat(name.c_str(), &facts) == 0) {
        return S_ISDIR(facts.st_mode);
    }
    for (char * at = name.c_str() + 1;; ++at) {
        if (*at == '/' || *at == '\0') {
            char const separator = *at;
            *at = '\0';
            if (::mkdir(name.c_str(), 0700) != 0 && errno != EEXIST) {
                *at = separator;
                return false;
            }
            *at = separator;
        }
        if (*at == '\0') {
            return ::stat(name.c_str(), &facts) == 0 && S_ISDIR(facts.st_mode);
        }
    }
}

} // namespace

void get_temp_path(char * result) noexcept
{
    std::string_view chosen = variable("TMPDIR");
    if (chosen.size() > 1 && chosen.ends_with('/')) {
        chosen.remove_suffix(1);
    }
    // A name that leaves no room for the backslash is not used.
    if (!store_path(result, chosen) || path_add_backslash(result) == nullptr) {
        store_path(result, "/tmp/");
    }
}

bool get_current_folder(char * result) noexcept
{
    char area[PATH_MAX];
    return store_path(result, ::getcwd(area, sizeof area) == nullptr ? "" : area);
}

bool get_special_folder(std::uint32_t identifier, char * result) noexcept
{
    constexpr std::uint32_t number = 0xFF; // the other bits are flags, such as 0x8000 to create it
    absolute_name folder = special_folder(identifier & number);
    bool const exists = create_folder(folder);
    return store_path(result, exists ? folder.view() : std::string_view());
}

} // namespace zel::platform
