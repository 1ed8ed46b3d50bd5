// SPDX-License-Identifier: MIT
// Strings and buffers as a program: each step takes an operation, two small numbers and a text from
// the input, and does the same to a plain container.
#include "zel/core/auto_ptr.h"
#include "zel/core/exception.h"
#include "zel/text/buffer.h"
#include "zel/text/string.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

void require(bool holds)
{
    if (!holds) {
        std::abort();
    }
}

class input {
public:
    input(std::uint8_t const * data, std::size_t size)
        : at_(data)
        , end_(data + size)
    {
    }
    bool has_more() const { return at_ != end_; }
    unsigned int number() { return at_ == end_ ? 0 : *at_++; }
    std::string text()
    {
        std::size_t const wanted = number() % 40; // read before what is left is measured
        std::size_t const size = std::min(wanted, static_cast<std::size_t>(end_ - at_));
        std::string const result(at_, at_ + size);
        at_ += size;
        return result;
    }

private:
    std::uint8_t const * at_;
    std::uint8_t const * end_;
};

bool in(std::string const & set, char c)
{
    return c != '\0' && set.substr(0, set.find('\0')).find(c) != std::string::npos;
}

std::string replaced(std::string const & text, std::string const & from, std::string const & to)
{
    std::string result;
    for (std::size_t at = 0; at < text.size();) {
        bool const hit = !from.empty() && text.compare(at, from.size(), from) == 0;
        result += hit ? to : text.substr(at, 1);
        at += hit ? from.size() : 1;
    }
    return result;
}

std::vector<std::string> pieces(std::string text, std::string const & separator, bool skip_tail)
{
    std::vector<std::string> result;
    std::size_t at = 0;
    while (!separator.empty() && (at = text.find(separator)) != std::string::npos) {
        result.push_back(text.substr(0, at));
        text.erase(0, at + separator.size());
    }
    if (!skip_tail || !text.empty()) {
        result.push_back(text);
    }
    return result;
}

std::string in_xml(std::string const & text)
{
    std::string result;
    for (char const c : text) {
        switch (c) {
        case '\t':
            result += "#x9;";
            break;
        case '\n':
            result += "#xa";
            break;
        case '\r':
            result += "#xd";
            break;
        case '"':
            result += "&quot;";
            break;
        case '&':
            result += "&amp;";
            break;
        case '<':
            result += "&lt;";
            break;
        case '>':
            result += "&gt;";
            break;
        default:
            result += c;
        }
    }
    return result;
}

std::uint32_t hash(std::string const & text, std::size_t count)
{
    std::uint32_t sum = 0;
    for (char const c : text.substr(0, count)) {
        sum += static_cast<std::uint32_t>(static_cast<signed char>(c));
        sum += sum << 10;
        sum ^= sum >> 6;
    }
    sum += sum << 3;
    sum ^= sum >> 11;
    return sum + (sum << 15);
}

std::string word(std::string const & text, unsigned int index, std::string const & delimiters)
{
    std::size_t at = 0;
    for (;; --index) {
        while (at < text.size() && in(delimiters, text[at])) {
            ++at;
        }
        std::size_t const start = at;
        while (at < text.size() && !in(delimiters, text[at])) {
            ++at;
        }
        if (index == 0 || at == text.size()) {
            return index == 0 ? text.substr(start, at - start) : std::string();
        }
    }
}

void step(zel::string & text, std::string & model, input & from)
{
    unsigned int const operation = from.number() % 20, a = from.number(), b = from.number();
    std::string const other = from.text();
    std::string const c_other = other.substr(0, other.find('\0'));
    bool const is_inside = a <= model.size();
    switch (operation) {
    case 0:
        text += other;
        model += other;
        break;
    case 1:
        text = text + other.c_str() + static_cast<char>(a);
        model = model + c_other + static_cast<char>(a);
        break;
    case 2:
        require(text.left(a) == zel::string(model.substr(0, a)));
        break;
    case 3:
        try {
            require(text.right(a) == zel::string(model.substr(model.size() - a)) && is_inside);
        } catch (std::out_of_range const &) {
            require(!is_inside);
        }
        break;
    case 4:
        try {
            require(text.mid(a, b)
                    == zel::string(model.substr(a, b < a ? std::string::npos : b - a)));
            require(is_inside);
        } catch (std::out_of_range const &) {
            require(!is_inside);
        }
        break;
    case 5: {
        std::string const found = model.substr(std::min<std::size_t>(a, model.size()), 1 + b % 3);
        text.replace(zel::string(found), zel::string(other));
        model = replaced(model, found, other);
        break;
    }
    case 6:
        text.remove(zel::string(other));
        std::erase_if(model, [&](char c) { return in(other, c); });
        break;
    case 7:
        text.trim(other.c_str());
        while (!model.empty() && in(other, model.back())) {
            model.pop_back();
        }
        while (!model.empty() && in(other, model.front())) {
            model.erase(0, 1);
        }
        break;
    case 8: {
        std::string const separator = other.substr(0, 1 + a % 2);
        auto const expected = pieces(model, separator, b % 2 != 0);
        auto const found = text.split(zel::string(separator), b % 2 != 0);
        require(std::equal(found.begin(), found.end(), expected.begin(), expected.end()));
        break;
    }
    case 9:
        require(text.normalize_for_xml() == zel::string(in_xml(model)));
        break;
    case 10:
        require(text.hash(a) == hash(model, a)
                && text.hash(0xFFFFFFFF) == hash(model, model.size()));
        break;
    case 11: {
        zel::string const cut = text.truncate_hash(a);
        require(a <= 8 || model.size() <= a
                    ? cut == text
                    : cut.size() == a && cut.left(a - 8) == text.left(a - 8));
        break;
    }
    case 12: {
        text.to_upper();
        model = model.substr(0, model.find('\0'));
        std::transform(model.begin(), model.end(), model.begin(),
                       [](char c) { return 'a' <= c && c <= 'z' ? static_cast<char>(c - 32) : c; });
        break;
    }
    case 13: {
        std::string const start = model.substr(0, model.find('\0'));
        auto const found
            = std::find_if(start.begin(), start.end(), [&](char c) { return in(other, c); });
        require(text.find_one_of(zel::string(other))
                == (found == start.end() ? -1 : found - start.begin()));
        break;
    }
    case 14: {
        auto const fields = pieces(model.substr(0, model.find('\0')),
                                   std::string(1, static_cast<char>(b)), false);
        bool const exists = a < fields.size() && b != 0;
        require(b == 0
                || text.extract_sub_string(a, static_cast<char>(b))
                    == zel::string(exists ? fields[a] : ""));
        break;
    }
    case 15: {
        std::string const start = model.substr(0, model.find('\0'));
        std::string members = other; // one behind a NUL counts too
        std::erase(members, '\0');
        require(text.word(static_cast<std::int32_t>(a % 8), zel::string(other))
                == zel::string(word(start, a % 8, members)));
        require(text.word(-1, zel::string(other)).empty());
        break;
    }
    case 16:
        text.trim_left(other.c_str());
        while (!model.empty() && in(other, model.front())) {
            model.erase(0, 1);
        }
        break;
    case 17:
        text.trim_right(other.c_str());
        while (!model.empty() && in(other, model.back())) {
            model.pop_back();
        }
        break;
    case 18: { // of a range, in every form
        std::size_t const from_other = std::min<std::size_t>(b % 4, other.size());
        std::size_t const from_c = std::min<std::size_t>(b % 4, c_other.size());
        auto const count = static_cast<unsigned int>(b);
        bool refuses = false;
        zel::string const before = text;
        try {
            switch (b % 5) {
            case 0:
                text.replace(a, count, zel::string(other));
                break;
            case 1:
                text.replace(a, count, zel::string(other), static_cast<unsigned int>(from_other),
                             3U);
                break;
            case 2:
                text.replace(a, count, count, 'c');
                break;
            case 3:
                text.replace(a, count, c_other.c_str());
                break;
            default:
                text.replace(a, count, c_other.c_str(), static_cast<unsigned int>(from_c));
            }
        } catch (std::out_of_range const &) {
            refuses = true;
        }
        require(refuses == !is_inside && (!refuses || text == before));
        if (is_inside) {
            std::string const with[] = {other, other.substr(from_other, 3), std::string(b, 'c'),
                                        c_other, c_other.substr(0, from_c)};
            zel::string iterated = before;
            auto const first = iterated.cbegin() + static_cast<std::ptrdiff_t>(a);
            auto const last
                = first + static_cast<std::ptrdiff_t>(std::min<std::size_t>(b, model.size() - a));
            zel::string const replacement(with[b % 5]);
            if (b % 2 == 0) {
                iterated.replace(first, last, replacement);
            } else {
                iterated.replace(first, last, replacement.cbegin(), replacement.cend());
            }
            model.replace(a, b, with[b % 5]);
            require(iterated == zel::string(model));
        }
        break;
    }
    default:
        text.format("%s%5u|%-3u", text.c_str(), a, b);
        model = model.substr(0, model.find('\0'));
        char numbers[32];
        std::snprintf(numbers, sizeof numbers, "%5u|%-3u", a, b);
        model += numbers;
    }
    require(text == zel::string(model) && text.size() == model.size());
}

/// \returns whether the call was refused as one beyond the end.
template <typename Call> bool refused(Call const & call)
{
    try {
        call();
        return false;
    } catch (zel::memory_exception const &) {
        return true;
    }
}

void step(zel::buffer & bytes, std::string & model, input & from)
{
    unsigned int const operation = from.number() % 9, a = from.number(), b = from.number();
    std::string const other = from.text();
    auto const * const source = reinterpret_cast<unsigned char const *>(other.data());
    auto const count = static_cast<std::uint32_t>(other.size());
    std::size_t const size = model.size();
    switch (operation) {
    case 0:
        bytes.append(source, count);
        model += other;
        break;
    case 1:
        bytes.insert(a, source, count);
        model.insert(std::min<std::size_t>(a, size), other);
        break;
    case 2:
        require(refused([&] { bytes.write(a, source, count); }) == (a + other.size() > size));
        if (a + other.size() <= size) {
            model.replace(a, other.size(), other);
        }
        break;
    case 3:
        require(refused([&] { bytes.remove(a, b == 255 ? zel::buffer::c_npos : b); })
                == (a >= size));
        if (a < size) {
            model.erase(a, b == 255 ? std::string::npos : b);
        }
        break;
    case 4: {
        std::uint32_t found = 0;
        require(refused([&] { found = bytes.find(source, count, a); }) == (a >= size));
        std::size_t const expected = other.empty() ? std::string::npos : model.find(other, a);
        require(a >= size
                || found == (expected == std::string::npos ? zel::buffer::c_npos : expected));
        break;
    }
    case 5: {
        std::unique_ptr<zel::buffer> part;
        require(refused([&] { part.reset(bytes.submem(a, b)); }) == (a + b >= size));
        require(part == nullptr
                || std::string(part->data(), part->data() + part->size()) == model.substr(a, b));
        break;
    }
    case 6:
        bytes.resize(a, static_cast<unsigned char>(b));
        model.resize(a, static_cast<char>(b));
        break;
    case 7: { // the shorter one is the lesser, of two of one size the one with the greater bytes
        zel::buffer copy(source, count);
        std::string known = other;
        if (a % 2 == 0) { // of one size, and much alike
            copy = bytes;
            known = model;
            if (size != 0) {
                known[b % size] = static_cast<char>(a);
                unsigned char const byte = static_cast<unsigned char>(a);
                copy.write(static_cast<std::uint32_t>(b % size), &byte, 1);
            }
        }
        int const order
            = size != known.size() ? (size < known.size() ? -1 : 1) : known.compare(model);
        require((bytes < copy) == (order < 0) && (bytes <= copy) == (order <= 0));
        require((bytes > copy) == (order > 0) && (bytes >= copy) == (order >= 0));
        require((bytes == copy) == (order == 0) && (bytes != copy) == (order != 0));
        break;
    }
    default:
        bytes += bytes;
        model += model.substr(0, 2000);
        bytes.resize(static_cast<std::uint32_t>(model.size()), 0);
    }
    require(bytes.size() == model.size() && bytes.empty() == !model.empty());
    require(std::equal(model.begin(), model.end(), bytes.data(),
                       [](char x, unsigned char y) { return static_cast<unsigned char>(x) == y; }));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const * data, std::size_t size)
{
    input from(data, size);
    zel::string text;
    zel::buffer bytes;
    std::string text_model, bytes_model;
    while (from.has_more()) {
        if (from.number() % 2 == 0) {
            step(text, text_model, from);
        } else {
            step(bytes, bytes_model, from);
        }
        if (text_model.size() > 5000 || bytes_model.size() > 5000) {
            break;
        }
    }
    return 0;
}
