// SPDX-License-Identifier: MIT
// Works on folders and their content:
//     tree list FOLDER               the folder as a tree, with sizes
//     tree find PATTERN FOLDER       the entries below whose names match, such as '*.txt'
//     tree copy SOURCE TARGET        a file or a folder with all that is in it
//     tree compare FIRST SECOND      two files or folders; status 1 when they differ
//     tree remove NAME...            files and folders with all that is in them
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <list>
#include <stdexcept>
#include <string>
#include <string_view>
#include <unistd.h>
#include <vector>
#include <zel/zel.h>

namespace {

constexpr char const * usage
    = "usage: tree list FOLDER | find PATTERN FOLDER | copy SOURCE TARGET | "
      "compare FIRST SECOND | remove NAME...";
constexpr unsigned int no_size = 0xFFFFFFFF; // for a folder, and for a file of 4 GiB and more

[[noreturn]] void fail(std::string const & message) { throw std::runtime_error(message); }

zel::path to_path(char const * name)
{
    try {
        return zel::from_native(name);
    } catch (std::logic_error const & reason) {
        fail(std::string(name) + ": " + reason.what());
    }
}

std::string shown(zel::path const & place) { return zel::to_native(place); }

/// The reason of the last failure, without its line end.
std::string reason()
{
    zel::string text = zel::get_last_error();
    text.trim_right();
    return text;
}

/// The last component. A colon in a name has no special meaning on the disk.
char const * name_of(zel::path const & entry)
{
    char const * const separator = std::strrchr(entry.c_str(), '\\');
    return separator == nullptr ? entry.c_str() : separator + 1;
}

/// The path in `folder` for an entry of another folder.
zel::path counterpart(zel::path const & folder, zel::path const & entry)
{
    zel::path result = folder;
    result.add_back_slash();
    if (!result.add_extension(name_of(entry))) {
        fail(shown(entry) + ": the name is too long in " + shown(folder));
    }
    return result;
}

/// False for a link to a folder, which is not part of the tree.
bool is_branch(zel::path const & place)
{
    return place.is_directory() && !std::filesystem::is_symlink(shown(place));
}

std::vector<zel::path> entries_of(zel::path folder)
{
    std::list<zel::auto_ptr<zel::path>> entries;
    folder.get_entries(entries);
    std::vector<zel::path> sorted;
    for (auto const & entry : entries) {
        sorted.push_back(*entry);
    }
    std::sort(sorted.begin(), sorted.end());
    return sorted;
}

struct totals {
    unsigned long long files = 0;
    unsigned long long folders = 0;
    unsigned long long bytes = 0;

    void add(unsigned int size)
    {
        ++files;
        bytes += size == no_size ? 0 : size;
    }
    std::string text() const
    {
        return std::to_string(bytes) + " bytes in " + std::to_string(files) + " files and "
            + std::to_string(folders) + " folders";
    }
};

void list(zel::path const & folder, std::string const & indent, totals & sum)
{
    for (auto const & entry : entries_of(folder)) {
        if (is_branch(entry)) {
            ++sum.folders;
            std::printf("%13s  %s%s/\n", "", indent.c_str(), name_of(entry));
            list(entry, indent + "    ", sum);
        } else {
            unsigned int const size = entry.file_size();
            sum.add(size);
            std::printf("%13s  %s%s\n", size == no_size ? "-" : std::to_string(size).c_str(),
                        indent.c_str(), name_of(entry));
        }
    }
}

bool find(zel::path const & folder, char const * pattern)
{
    bool found = false;
    for (auto const & entry : entries_of(folder)) {
        if (entry.match_spec(pattern)) {
            found = true;
            std::printf("%s\n", shown(entry).c_str());
        }
        found = (is_branch(entry) && find(entry, pattern)) || found;
    }
    return found;
}

/// One line on the terminal that shows the progress of a long copy.
class progress {
public:
    progress(zel::path const & source, unsigned int size)
        : name_(name_of(source))
        , size_(size)
    {
    }
    ~progress() { std::fputs("\r\033[K", stderr); }

    void show(unsigned long long done)
    {
        auto const now = std::chrono::steady_clock::now();
        if (now - shown_ < std::chrono::milliseconds(100)) {
            return;
        }
        shown_ = now;
        std::fprintf(stderr, "\r\033[K%s: %llu MB", name_.c_str(), done / 1'000'000);
        if (size_ != no_size) {
            std::fprintf(stderr, " of %u MB (%llu%%)", size_ / 1'000'000, done * 100 / size_);
        }
    }

private:
    std::string name_;
    unsigned int size_;
    std::chrono::steady_clock::time_point shown_{};
};

/// Copies in pieces, so that the progress can be shown.
void copy_with_progress(zel::path const & source, zel::path const & target)
{
    // The copy has another name until it is complete.
    zel::path part = target;
    if (!part.add_extension(".part")) {
        fail(shown(target) + ": the name is too long");
    }
    try {
        progress line(source, source.file_size());
        zel::file in(source, zel::file::mode_read, zel::file::kind_binary);
        zel::file out(part, zel::file::mode_write, zel::file::kind_binary);
        std::vector<char> block(1 << 20);
        unsigned long long done = 0;
        while (!in.eof()) {
            auto const count = in.read(block.data(), static_cast<std::uint32_t>(block.size()));
            if (out.write(block.data(), count) != count || (count < block.size() && !in.eof())) {
                part.remove();
                fail(shown(target) + ": not written or not read");
            }
            line.show(done += count);
        }
        out.close();
    } catch (zel::file::exception & failure) {
        part.remove();
        fail(failure.get_message());
    }
    zel::path old = target;
    if ((old.file_exists() && !old.remove()) || !part.rename(target)) {
        part.remove();
        fail(shown(target) + ": " + reason());
    }
}

void copy(zel::path source, zel::path const & target, totals & sum)
{
    constexpr unsigned int long_copy = 64'000'000; // bytes
    if (is_branch(source)) {
        zel::path shared;
        if (shared.common_prefix(source.c_str(), target.c_str()) && shared == source) {
            fail(shown(target) + ": is in what is copied");
        }
        if (!zel::path(target).create()) {
            fail(shown(target) + ": " + reason());
        }
        ++sum.folders;
        for (auto const & entry : entries_of(source)) {
            copy(entry, counterpart(target, entry), sum);
        }
        return;
    }
    unsigned int const size = source.file_size();
    if (::isatty(STDERR_FILENO) == 1 && size >= long_copy) {
        copy_with_progress(source, target);
    } else if (!source.copy(target)) {
        fail(shown(source) + " to " + shown(target) + ": " + reason());
    }
    sum.add(size);
}

bool compare(zel::path const & first, zel::path const & second, totals & sum)
{
    if (!is_branch(first) || !is_branch(second)) {
        bool const equal = zel::path::compare_files(first, second);
        sum.add(first.file_size());
        if (!equal) {
            std::printf("%s and %s differ\n", shown(first).c_str(), shown(second).c_str());
        }
        return equal;
    }
    ++sum.folders;
    bool equal = true;
    for (auto const & entry : entries_of(first)) {
        equal = compare(entry, counterpart(second, entry), sum) && equal;
    }
    for (auto const & entry : entries_of(second)) {
        if (!counterpart(first, entry).file_exists()) {
            std::printf("only %s\n", shown(entry).c_str());
            equal = false;
        }
    }
    return equal;
}

zel::path existing(char const * name)
{
    zel::path const place = to_path(name);
    if (!place.file_exists()) {
        fail(std::string(name) + ": " + reason());
    }
    return place;
}

zel::path existing_folder(char const * name)
{
    zel::path const place = existing(name);
    if (!place.is_directory()) {
        fail(std::string(name) + ": no folder");
    }
    return place;
}

int run(std::string_view command, std::vector<char const *> const & names)
{
    if (command == "list" && names.size() == 1) {
        totals sum;
        zel::path const folder = existing_folder(names[0]);
        std::printf("%13s  %s\n", "", names[0]);
        list(folder, "    ", sum);
        std::printf("%13s  %s\n", "", sum.text().c_str());
    } else if (command == "find" && names.size() == 2) {
        return find(existing_folder(names[1]), names[0]) ? 0 : 1;
    } else if (command == "copy" && names.size() == 2) {
        totals sum;
        copy(existing(names[0]), to_path(names[1]), sum);
        std::printf("%s copied\n", sum.text().c_str());
    } else if (command == "compare" && names.size() == 2) {
        totals sum;
        if (!compare(existing(names[0]), existing(names[1]), sum)) {
            return 1;
        }
        std::printf("equal: %s\n", sum.text().c_str());
    } else if (command == "remove" && !names.empty()) {
        for (char const * name : names) {
            if (!to_path(name).remove()) {
                fail(std::string(name) + ": " + reason());
            }
            std::printf("%s removed\n", name);
        }
    } else {
        fail(usage);
    }
    return 0;
}

} // namespace

int main(int argc, char ** argv)
{
    std::string_view const command = argc > 1 ? argv[1] : "";
    if (command == "--help") {
        std::puts(usage);
        return 0;
    }
    try {
        int const status = run(command, {argv + std::min(argc, 2), argv + argc});
        if (std::fflush(stdout) != 0) {
            fail("standard output can't be written");
        }
        return status;
    } catch (std::exception const & failure) {
        std::fprintf(stderr, "tree: %s\n", failure.what());
        return 2;
    }
}
