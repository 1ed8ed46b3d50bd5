// SPDX-License-Identifier: MIT
#pragma once

#include <initializer_list>
#include <random>
#include <string>
#include <string_view>

/// What a fuzzer asserts about an input. It ends the program where that does not hold.
using property = int(unsigned char const * data, std::size_t size);

/// Tries a property on `count` inputs that `make(random)` composes, the same ones in every run.
template <typename Make> void expect_for_any(property & holds, int count, Make && make)
{
    std::mt19937_64 random(1);
    for (; count > 0; --count) {
        std::string const input = make(random);
        holds(reinterpret_cast<unsigned char const *>(input.data()), input.size());
    }
}

/// Bytes of any value, half of them out of `likely`.
inline std::string any_bytes(std::mt19937_64 & random, std::size_t size, std::string_view likely)
{
    std::string bytes(size, '\0');
    for (char & byte : bytes) {
        byte = random() % 2 == 0 ? likely[random() % likely.size()] : static_cast<char>(random());
    }
    return bytes;
}

/// Up to `most` words one behind the other.
inline std::string any_words(std::mt19937_64 & random, std::size_t most,
                             std::initializer_list<std::string_view> words)
{
    std::string text;
    for (auto count = random() % (most + 1); count > 0; --count) {
        text += words.begin()[random() % words.size()];
    }
    return text;
}
