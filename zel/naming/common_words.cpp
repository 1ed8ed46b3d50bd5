// SPDX-License-Identifier: MIT
#include "zel/naming/common_words.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <iterator>

namespace zel::naming {
namespace {

// In ascending byte order. The order is part of the abbreviator's results: it fixes which of
// several rows with one prefix the halving search meets.
// clang-format off
constexpr common_word rows[] = {
    {"acknowledge", "ACK"},
    {"address", "Addr"},
    {"adjust", "Adj"},
    {"advanc", "Adv"},
    {"analog", "Anlg"},
    {"anchor", "Anchr"},
    {"assemble", "Asm"},
    {"assign", "Asgn"},
    {"assume", "Assm"},
    {"balance", "Bal"},
    {"basic", "Bas"},
    {"begin", "Beg"},
    {"binary", "Bin"},
    {"break", "Brk"},
    {"class", "Cls"},
    {"clear", "Clr"},
    {"clock", "Clk"},
    {"column", "Col"},
    {"compar", "Cmp"},
    {"compil", "Comp"},
    {"compress", "Cmprs"},
    {"connect", "Cnct"},
    {"constant", "Const"},
    {"continue", "Contn"},
    {"contrast", "Cont"},
    {"count", "Cnt"},
    {"cross", "X"},
    {"deca", "d"},
    {"deci", "d"},
    {"decimal", "Dec"},
    {"decrement", "Dec"},
    {"delete", "Del"},
    {"dialog", "Dlg"},
    {"digit", "Dgt"},
    {"down", "Dn"},
    {"dword", "DWord"},
    {"equal", "Eq"},
    {"equate", "Eq"},
    {"error", "Err"},
    {"execut", "Exec"},
    {"field", "Fld"},
    {"frequency", "Frq"},
    {"function", "Func"},
    {"generat", "Gen"},
    {"giga", "G"},
    {"gramm", "g"},
    {"group", "Grp"},
    {"halt", "Hlt"},
    {"hertz", "Hz"},
    {"hexadecimal", "Hex"},
    {"increment", "Inc"},
    {"index", "Idx"},
    {"indices", "Idx"},
    {"input", "Inp"},
    {"insert", "Ins"},
    {"kilo", "k"},
    {"language", "Lang"},
    {"left", "Lft"},
    {"length", "Len"},
    {"logic", "Log"},
    {"maximal", "Max"},
    {"maximum", "Max"},
    {"mega", "M"},
    {"message", "Msg"},
    {"micro", "u"},
    {"middle", "Mid"},
    {"milli", "m"},
    {"minimal", "Min"},
    {"minimum", "Min"},
    {"move", "Mov"},
    {"nano", "n"},
    {"negate", "Neg"},
    {"negative", "Neg"},
    {"network", "Net"},
    {"number", "Num"},
    {"offset", "Ofs"},
    {"output", "Out"},
    {"period", "Prd"},
    {"phase", "Phs"},
    {"phaze", "Phs"},
    {"physic", "Phys"},
    {"pico", "p"},
    {"picture", "Pic"},
    {"pixel", "Pxl"},
    {"point", "Pnt"},
    {"pointer", "Ptr"},
    {"position", "Pos"},
    {"preferenc", "Pref"},
    {"prefices", "Prfx"},
    {"prefix", "Prfx"},
    {"rectangle", "Rect"},
    {"reference", "Ref"},
    {"register", "Reg"},
    {"repeat", "Rep"},
    {"request", "Req"},
    {"reset", "Rst"},
    {"respond", "Resp"},
    {"response", "Resp"},
    {"restore", "Rest"},
    {"resume", "Resm"},
    {"return", "Ret"},
    {"right", "Rght"},
    {"second", "Sec"},
    {"section", "Sect"},
    {"sector", "Sect"},
    {"segment", "Seg"},
    {"shift", "Shft"},
    {"start", "Strt"},
    {"stop", "Stp"},
    {"string", "Str"},
    {"subroutine", "Sub"},
    {"subtract", "Sub"},
    {"suffices", "Sfx"},
    {"suffix", "Sfx"},
    {"synthesize", "Synth"},
    {"synthetic", "Synth"},
    {"system", "Sys"},
    {"table", "Tbl"},
    {"task", "Tsk"},
    {"temperature", "Temp"},
    {"temporary", "Tmp"},
    {"user", "Usr"},
    {"value", "Val"},
    {"variable", "Var"},
    {"volume", "Vol"},
    {"width", "Wdth"},
    {"window", "Wnd"},
    {"word", "Wrd"},
};
// clang-format on
constexpr int row_count = 128;
static_assert(std::size(rows) == row_count);
static_assert(std::adjacent_find(std::begin(rows), std::end(rows),
                                 [](common_word const & a, common_word const & b) {
                                     return a.word >= b.word;
                                 })
              == std::end(rows));
static_assert(std::all_of(std::begin(rows), std::end(rows), [](common_word const & row) {
    return row.abbreviation.size() <= row.word.size();
}));

// The first eight bytes of a text as a number that orders as the bytes do, padded with zeros:
// nearly every probe is decided by one comparison of such numbers.
constexpr std::uint64_t leading_bytes(std::string_view text)
{
    std::uint64_t key = 0;
    for (std::size_t i = 0; i < sizeof key; ++i) {
        key = key << 8 | (i < text.size() ? static_cast<unsigned char>(text[i]) : 0U);
    }
    return key;
}

constexpr auto row_keys = [] {
    std::array<std::uint64_t, row_count> keys{};
    for (std::size_t i = 0; i < keys.size(); ++i) {
        keys[i] = leading_bytes(rows[i].word);
    }
    return keys;
}();

// The bytes of a key that belong to a text of that size.
constexpr std::uint64_t key_mask(std::size_t size)
{
    return size >= sizeof(std::uint64_t) ? ~std::uint64_t{0} : ~(~std::uint64_t{0} >> (8 * size));
}

constexpr auto row_masks = [] {
    std::array<std::uint64_t, row_count> masks{};
    for (std::size_t i = 0; i < masks.size(); ++i) {
        masks[i] = key_mask(rows[i].word.size());
    }
    return masks;
}();

// The same for a word at run time.
std::uint64_t key_of(std::string_view word) noexcept
{
    char const * const text = word.data();
    std::size_t const size = word.size();
    std::uint64_t key = 0;
    if (size >= sizeof key) {
        std::memcpy(&key, text, sizeof key);
    } else if (size >= 4) {
        std::uint32_t front = 0;
        std::uint32_t back = 0; // overlaps the front
        std::memcpy(&front, text, sizeof front);
        std::memcpy(&back, text + size - 4, sizeof back);
        key = front | std::uint64_t{back} << 8 * (size - 4);
    } else {
        for (std::size_t i = 0; i < size; ++i) {
            key |= std::uint64_t{static_cast<unsigned char>(text[i])} << 8 * i;
        }
    }
    return __builtin_bswap64(key);
}

// Which first and second letters the rows have together: most words that are in no row end here.
constexpr auto beginnings = [] {
    std::array<std::uint32_t, 32> seconds{};
    for (auto const & row : rows) {
        seconds[row.word[0] & 31] |= 1U << (row.word[1] & 31);
    }
    return seconds;
}();

// False only for a word of two bytes or more that can equal or begin no row, nor begin with one.
bool may_be_common(std::string_view word) noexcept
{
    if (word.size() < 2) {
        return true;
    }
    auto const first = static_cast<unsigned char>(word[0]);
    auto const second = static_cast<unsigned char>(word[1]);
    return first - 0x60U < 32 && second - 0x60U < 32
        && (beginnings[first & 31U] >> (second & 31U) & 1U) != 0;
}

// Unsigned byte order behind keys that are equal as far as both texts reach.
int compare_rest(std::string_view word, std::string_view row) noexcept
{
    std::size_t const shared = std::min(word.size(), row.size());
    constexpr std::size_t done = sizeof(std::uint64_t);
    return shared <= done ? 0 : std::memcmp(word.data() + done, row.data() + done, shared - done);
}

} // namespace

found_word find_common_word(std::string_view word) noexcept
{
    found_word found{-1, false};
    if (!may_be_common(word)) {
        return found;
    }
    // One search for both answers: a word that is in no row takes the same way until it meets the
    // first row of its prefix.
    std::uint64_t const key = key_of(word);
    std::uint64_t const mask = key_mask(word.size());
    std::size_t low = 0;
    std::size_t high = row_count;
    std::size_t probe = high / 2;
    for (;;) {
        bool before = key < row_keys[probe];
        if (((key ^ row_keys[probe]) & mask & row_masks[probe]) == 0) [[unlikely]] {
            std::string_view const row = rows[probe].word;
            int const rest = compare_rest(word, row);
            if (rest == 0) {
                if (word.size() == row.size()) {
                    return {static_cast<int>(probe), true};
                }
                if (found.row < 0) {
                    found.row = static_cast<int>(probe);
                }
            }
            before = rest < 0 || (rest == 0 && word.size() < row.size());
        }
        high = before ? probe : high;
        low = before ? low : probe;
        // The halving never lands on row 0, which therefore comes last.
        if (high - low <= 1) {
            if (probe == 0 || high != 1) {
                return found;
            }
            probe = 0;
        } else {
            probe = low + (high - low) / 2;
        }
    }
}

common_word const & common_word_at(int row) noexcept { return rows[static_cast<std::size_t>(row)]; }

} // namespace zel::naming
