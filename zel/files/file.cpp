// SPDX-License-Identifier: MIT
#include "zel/files/file.h"

#include "zel/platform/files/file_stream.h"
#include <cstring>
#include <iterator>
#include <utility>

namespace zel {
namespace {

constexpr char const * reasons[] = {
    "Zel IO Exception: Cannot open file",
    "Zel IO Exception: Cannot close file",
    "Zel IO Exception: End of file",
};

} // namespace

constinit char const * const file::ms_Modes[6] = {"r", "w", "a", "r+", "w+", "a+"};
constinit char const * const file::ms_Kinds[2] = {"t", "b"};

file::exception::exception(exc_type type, char const * text)
    : zel::exception(type, reasons, text)
{
}

file::exception::~exception() = default;

file::file()
    : open_mode(mode_read)
    , open_kind(kind_binary)
    , stream(nullptr)
{
}

file::file(path const & source, mode wanted_mode, kind wanted_kind)
    : file_obj(source)
    , open_mode(wanted_mode)
    , open_kind(wanted_kind)
    , stream(nullptr)
{
    open(source, wanted_mode, wanted_kind);
}

file::~file()
{
    if (stream != nullptr) {
        std::fclose(stream);
    }
}

void file::open(path const & source, mode wanted_mode, kind wanted_kind)
{
    if (stream != nullptr) {
        std::fclose(std::exchange(stream, nullptr));
    }
    file_path = source;
    if (wanted_mode < std::size(ms_Modes) && wanted_kind < std::size(ms_Kinds)) {
        char mode_text[4] = {};
        std::strcat(std::strcpy(mode_text, ms_Modes[wanted_mode]), ms_Kinds[wanted_kind]);
        stream = platform::open_stream(file_path.c_str(), mode_text);
    }
    if (stream == nullptr) {
        throw exception(exception::cannot_open, file_path.c_str());
    }
    open_mode = wanted_mode;
    open_kind = wanted_kind;
}

void file::close()
{
    if (stream == nullptr || std::fclose(std::exchange(stream, nullptr)) != 0) {
        throw exception(exception::cannot_close);
    }
}

bool file::eof() const noexcept { return stream == nullptr || std::feof(stream) != 0; }

std::uint32_t file::read(void * buffer, std::uint32_t size) noexcept
{
    return stream == nullptr || buffer == nullptr
        ? 0
        : static_cast<std::uint32_t>(platform::read_stream(stream, buffer, size));
}

std::uint32_t file::write(void const * buffer, std::uint32_t size) noexcept
{
    return stream == nullptr || buffer == nullptr
        ? 0
        : static_cast<std::uint32_t>(platform::write_stream(stream, buffer, size));
}

std::uint32_t file::write_string(char const * text) noexcept
{
    return text == nullptr || stream == nullptr
        ? 0
        : static_cast<std::uint32_t>(platform::write_stream(stream, text, std::strlen(text)));
}

std::uint32_t file::write_string(string const & text) noexcept
{
    return stream == nullptr
        ? 0
        : static_cast<std::uint32_t>(platform::write_stream(stream, text.c_str(), text.size()));
}

std::uint32_t file::write_char(char ch) noexcept
{
    int const result = stream == nullptr ? EOF : std::fputc(static_cast<unsigned char>(ch), stream);
    return static_cast<std::uint32_t>(result);
}

} // namespace zel
