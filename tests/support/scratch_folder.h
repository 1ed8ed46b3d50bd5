// SPDX-License-Identifier: MIT
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <system_error>
#include <unistd.h>

/// A folder of a test's own, which goes with all that is in it.
class scratch_folder {
public:
    /// \param place  of the folder; the one for temporary files when it can't be made there.
    explicit scratch_folder(char const * place = "")
    {
        name_ = std::string(place) + "/zel-test-XXXXXX";
        if (*place == '\0' || ::mkdtemp(name_.data()) == nullptr) {
            name_ = std::filesystem::temp_directory_path() / "zel-test-XXXXXX";
            if (::mkdtemp(name_.data()) == nullptr) {
                throw std::runtime_error("no folder for temporary files");
            }
        }
    }
    scratch_folder(scratch_folder const &) = delete;
    scratch_folder & operator=(scratch_folder const &) = delete;
    ~scratch_folder()
    {
        std::error_code ignored;
        std::filesystem::remove_all(name_, ignored);
    }

    std::string const & name() const { return name_; }
    std::string file(std::string const & name) const { return name_ + "/" + name; }
    long entries() const { return std::distance(std::filesystem::directory_iterator(name_), {}); }

private:
    std::string name_;
};

/// Memory where the host has such a place: flushing costs nothing there.
constexpr char const * fast_place = "/dev/shm";

inline void put(std::string const & file, std::string const & text)
{
    std::ofstream(file, std::ios::binary | std::ios::trunc) << text;
}

/// What a file holds; an unlikely text when it can't be opened.
inline std::string get(std::string const & file)
{
    std::ifstream in(file, std::ios::binary);
    return in ? std::string(std::istreambuf_iterator<char>(in), {}) : "<no file>";
}
