// SPDX-License-Identifier: MIT
// Formatting against the runtime's, byte for byte: a literal text, one conversion made of the
// input's bytes, and fixed conversions behind it, which show an argument that was read wrongly.
#include "zel/text/string.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

void expect_like_printf(char const * format, ...);

namespace {

class input {
public:
    input(unsigned char const * data, std::size_t size)
        : data_(data)
        , size_(size)
    {
    }
    unsigned int byte() { return size_ == 0 ? 0 : (--size_, *data_++); }
    char one_of(std::string_view letters) { return letters[byte() % letters.size()]; }
    template <typename T> T value()
    {
        T result{};
        std::size_t const count = std::min(size_, sizeof result);
        std::memcpy(&result, data_, count);
        data_ += count;
        size_ -= count;
        return result;
    }
    std::string text(std::size_t count)
    {
        std::string result;
        while (count-- > 0 && size_ > 0) {
            result += static_cast<char>(byte());
        }
        return result;
    }

private:
    unsigned char const * data_;
    std::size_t size_;
};

std::string number(input & in) { return std::to_string(in.byte() * (in.byte() % 8 == 7 ? 9 : 1)); }

} // namespace

// The tests call it too.
void expect_like_printf(char const * format, ...)
{
    std::va_list first;
    va_start(first, format);
    std::va_list second;
    va_copy(second, first);
    std::va_list third;
    va_copy(third, first);
    int const size = std::vsnprintf(nullptr, 0, format, first);
    if (size >= 0) {
        std::vector<char> expected(static_cast<std::size_t>(size) + 1);
        std::vsnprintf(expected.data(), expected.size(), format, second);
        zel::string text("old");
        text.format_v(format, third);
        if (text != (size == 0 ? "old" : std::string_view(expected.data(), expected.size() - 1))) {
            std::fprintf(stderr, "%s: \"%s\" instead of \"%s\"\n", format, text.c_str(),
                         expected.data());
            std::abort();
        }
    }
    va_end(third);
    va_end(second);
    va_end(first);
}

extern "C" int LLVMFuzzerTestOneInput(unsigned char const * data, std::size_t size)
{
    input in(data, size);
    std::string format;
    for (char const c : in.text(in.byte() % 40)) {
        format += c == '%' ? std::string("%%") : c == '\0' ? std::string() : std::string(1, c);
    }
    format += '%';
    for (unsigned int flags = in.byte() % 4; flags > 0; --flags) {
        format += in.one_of("-+ #0");
    }
    unsigned int const parts = in.byte();
    if (parts % 2 != 0) {
        format += number(in);
    }
    if (parts % 4 > 1) {
        format += '.';
        format += parts % 8 > 3 ? number(in) : std::string();
    }
    switch (in.byte() % 4) {
    case 0: {
        char const * const lengths[] = {"", "hh", "h", "l", "ll", "j", "z", "t"};
        format += lengths[in.byte() % 8];
        format += in.one_of("diuxXo");
        format += "|%s|%g";
        expect_like_printf(format.c_str(), in.value<long long>(), "next", 2.5);
        break;
    }
    case 1: {
        format += in.one_of("gGeEfFaA");
        format += "|%d|%c";
        expect_like_printf(format.c_str(), in.value<double>(), -7, 'c');
        break;
    }
    case 2: {
        format += "s|%lld";
        std::string const text = in.text(in.byte() * 8);
        expect_like_printf(format.c_str(), text.c_str(), -1LL);
        break;
    }
    default:
        format += in.one_of("cp");
        format += "|%u";
        expect_like_printf(format.c_str(), in.value<long long>(), 3U);
    }
    return 0;
}
