// SPDX-License-Identifier: MIT
// A page of code that has nothing to do with zel means the same behind `using namespace zel`, and
// what only looks like a text of zel's is refused. Compiled, not run.
#include <zel/zel.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <iostream>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>
#include <tuple>
#include <unordered_map>
#include <variant>
#include <vector>

using namespace zel;

namespace {

using namespace std::literals;

bool compares(std::string_view view, std::string const & text, char const * plain)
{
    std::optional<std::string_view> maybe = view;
    std::variant<int, std::string> either = text;
    bool result = view == "x" || "x" == view || view != "x" || view < "x" || "x" < view
        || view <= plain || plain >= view || view > text || text > view || text == view;
    result = result || text == "x" || "x" == text || text < plain || plain < text;
    result = result || maybe == "x" || maybe != view || either == std::variant<int, std::string>(5);
    result = result || (view <=> "x"sv) == 0 || (text <=> plain) < 0;
    return result || std::filesystem::path(text) == view || std::pair{view, 1} < std::pair{"x"sv, 1}
    || std::tuple(text, 1) < std::tuple("x"s, 2);
}

std::string joins(std::string text, std::string_view view, char const * plain)
{
    text = "x" + std::move(text) + "x" + plain + 'c' + std::string(view) + std::to_string(5);
    text = 'c' + text;
    text += view;
    text += plain;
    std::ostringstream out;
    out << text << view << plain << 'c' << 5 << true << 2.5 << std::filesystem::path("/tmp");
    return out.str() + text;
}

std::size_t collects(std::vector<std::string> names)
{
    std::map<std::string, std::vector<int>, std::less<>> numbers;
    std::unordered_map<std::string_view, std::size_t> sizes;
    std::sort(names.begin(), names.end());
    for (auto const & name : names) {
        numbers[name].push_back(static_cast<int>(name.size()));
        sizes[name] = std::hash<std::string_view>()(name);
    }
    bool const late = std::chrono::steady_clock::now() - std::chrono::steady_clock::now() > 5ms;
    return numbers.find("x"sv) == numbers.end() || late ? std::min(sizes.size(), names.size()) : 0;
}

template <typename left, typename right>
concept can_be_added = requires(left const & a, right const & b)
{
    a + b;
};

static_assert(can_be_added<zel::string, char> && can_be_added<char, zel::string>);
static_assert(can_be_added<zel::string, std::string_view>);
static_assert(!can_be_added<zel::string, int> && !can_be_added<int, zel::string>);
static_assert(!can_be_added<zel::string, std::size_t> && !can_be_added<zel::string, double>);
static_assert(!can_be_added<zel::string, bool> && !can_be_added<zel::string, unsigned char>);
static_assert(!can_be_added<std::string_view, char const *>);
static_assert(!can_be_added<std::string_view, std::string_view>);

} // namespace

int main() { std::cout << joins("x", "x", "x") << compares("x", "x", "x") << collects({"x", "y"}); }
