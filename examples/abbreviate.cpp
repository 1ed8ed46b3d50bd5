// SPDX-License-Identifier: MIT
// Shortens the identifiers of a text:
//     abbreviate --target 10 header.h        a table: identifier, abbreviation, lengths
//     abbreviate --target 8 --stats *.h      how many names, and how many of them collide
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <vector>
#include <zel/zel.h>

namespace {

struct options {
    std::uint32_t target = 12;
    bool lines = false; // every line is a name
    bool stats = false;
    std::vector<char const *> files; // none: standard input
};

constexpr char const * usage = "usage: abbreviate [--target N] [--lines] [--stats] [FILE...]";

[[noreturn]] void fail(std::string const & message)
{
    std::fprintf(stderr, "abbreviate: %s\n", message.c_str());
    std::exit(2);
}

options parse(int argc, char ** argv)
{
    options result;
    for (int i = 1; i < argc; ++i) {
        std::string_view const word = argv[i];
        if (word == "--help") {
            std::puts(usage);
            std::exit(0);
        } else if (word == "--target") {
            if (++i == argc) {
                fail("--target needs a number");
            }
            try {
                result.target = zel::convert::stringToUInt32(argv[i]);
            } catch (zel::exception & error) {
                fail("--target " + std::string(argv[i]) + ": " + error.get_message());
            }
        } else if (word == "--lines") {
            result.lines = true;
        } else if (word == "--stats") {
            result.stats = true;
        } else if (word == "--") {
            result.files.insert(result.files.end(), argv + i + 1, argv + argc);
            break;
        } else if (word.size() > 1 && word.front() == '-') {
            fail("unknown option " + std::string(word) + "; " + usage);
        } else {
            result.files.push_back(argv[i]);
        }
    }
    return result;
}

bool begins_identifier(char c)
{
    return c == '_' || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

void collect_identifiers(std::string_view text, std::set<zel::string> & names)
{
    for (std::size_t i = 0; i < text.size();) {
        std::size_t const start = i;
        while (i < text.size()
               && (begins_identifier(text[i]) || (text[i] >= '0' && text[i] <= '9'))) {
            ++i;
        }
        if (i > start && begins_identifier(text[start])) {
            names.insert(text.substr(start, i - start));
        }
        i += i == start;
    }
}

void collect_lines(std::string_view text, std::set<zel::string> & names)
{
    for (zel::string line : zel::string(text).split("\n", true)) {
        line.trim_right("\r");
        if (!line.empty()) {
            names.insert(line);
        }
    }
}

std::string read_all(std::FILE * in, char const * name)
{
    std::string text;
    char block[65536];
    while (std::size_t const count = std::fread(block, 1, sizeof block, in)) {
        text.append(block, count);
    }
    if (std::ferror(in) != 0) {
        fail(std::string(name) + ": " + std::strerror(errno));
    }
    return text;
}

void print_table(std::set<zel::string> const & names, options const & wanted)
{
    zel::name_generator const shortener;
    std::size_t width = 10;
    for (auto const & name : names) {
        width = std::max(width, std::min<std::size_t>(name.size(), 40));
    }
    std::printf("%-*s  %-*s  %5s  %5s\n", static_cast<int>(width), "identifier",
                static_cast<int>(std::min(wanted.target, 40U)), "short", "long", "short");
    for (auto const & name : names) {
        zel::string const result = shortener.abbreviate(name, wanted.target);
        std::printf("%-*s  %-*s  %5zu  %5zu\n", static_cast<int>(width), name.c_str(),
                    static_cast<int>(std::min(wanted.target, 40U)), result.c_str(), name.size(),
                    result.size());
    }
}

void print_statistics(std::set<zel::string> const & names, options const & wanted)
{
    zel::name_generator const shortener;
    std::map<zel::string, std::size_t> takers;
    std::size_t before = 0;
    std::size_t after = 0;
    for (auto const & name : names) {
        zel::string const result = shortener.abbreviate(name, wanted.target);
        before += name.size();
        after += result.size();
        ++takers[result];
    }
    std::size_t colliding = 0;
    for (auto const & [result, count] : takers) {
        colliding += count > 1 ? count : 0;
    }
    auto const mean = [&](std::size_t sum) {
        return names.empty() ? 0.0 : static_cast<double>(sum) / static_cast<double>(names.size());
    };
    std::printf("names              %8zu\n"
                "target             %8u\n"
                "different results  %8zu\n"
                "names that collide %8zu\n"
                "mean length before %8.2f\n"
                "mean length after  %8.2f\n",
                names.size(), wanted.target, takers.size(), colliding, mean(before), mean(after));
}

} // namespace

int main(int argc, char ** argv)
{
    options const wanted = parse(argc, argv);
    std::set<zel::string> names;
    auto const collect = wanted.lines ? collect_lines : collect_identifiers;
    if (wanted.files.empty()) {
        collect(read_all(stdin, "standard input"), names);
    }
    for (char const * name : wanted.files) {
        std::unique_ptr<std::FILE, int (*)(std::FILE *)> const in(std::fopen(name, "rb"),
                                                                  std::fclose);
        if (in == nullptr) {
            fail(std::string(name) + ": " + std::strerror(errno));
        }
        collect(read_all(in.get(), name), names);
    }
    (wanted.stats ? print_statistics : print_table)(names, wanted);
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
        fail("standard output: " + std::string(std::strerror(errno)));
    }
}
