// SPDX-License-Identifier: MIT
#include "zel/naming/common_words.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <iterator>

namespace zel::naming {
namespace {

// Sorted by bytes. The order is part of the results: it determines which of several rows with a
// common prefix the binary search finds.
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

// The first eight bytes of a text, padded with zeros, as a number that compares like the bytes.
// Nearly every comparison needs only this number.
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

// Selects those bytes of a key that a text of this size has.
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

// `leading_bytes` at run time.
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

// The state of the binary search.
struct search {
    std::uint8_t low = 0;
    std::uint8_t high = row_count;
    std::uint8_t probe = row_count / 2;

    // Moves on from a row that did not match. Returns false if no row is left. The halving never
    // reaches row 0, so row 0 is compared last.
    constexpr bool advance(bool before) noexcept
    {
        high = before ? probe : high;
        low = before ? low : probe;
        if (high - low > 1) {
            probe = static_cast<std::uint8_t>(low + (high - low) / 2);
            return true;
        }
        if (probe == 0 || high != 1) {
            return false;
        }
        probe = 0;
        return true;
    }
};

// For all words with the same first two letters the search takes the same path until it meets a row
// with these letters. `searches` contains the state at that point. `search_of` contains its index
// for two letters, or 0 if no row begins with them. Most words that are not in the table end there.
constexpr int most_beginnings = 96;
struct beginnings {
    std::array<std::array<std::uint8_t, 32>, 32> search_of{};
    std::array<search, most_beginnings> searches{};
};
constexpr beginnings begun = [] {
    beginnings result;
    std::uint8_t count = 1;
    for (auto const & row : rows) {
        std::uint8_t & entry = result.search_of[row.word[0] & 31][row.word[1] & 31];
        if (entry != 0) {
            continue;
        }
        std::string_view const two = row.word.substr(0, 2);
        search at;
        while (rows[at.probe].word.substr(0, 2) != two) {
            at.advance(two < rows[at.probe].word.substr(0, 2));
        }
        result.searches[count] = at;
        entry = count++;
    }
    return result;
}();

// Compares the bytes after the first eight. It uses a loop because no row has more than a few bytes
// there.
int compare_rest(std::string_view word, std::string_view row) noexcept
{
    std::size_t const shared = std::min(word.size(), row.size());
    for (std::size_t i = sizeof(std::uint64_t); i < shared; ++i) {
        if (word[i] != row[i]) {
            return static_cast<unsigned char>(word[i]) < static_cast<unsigned char>(row[i]) ? -1
                                                                                            : 1;
        }
    }
    return 0;
}

} // namespace

found_word find_common_word(std::string_view word) noexcept
{
    found_word found{-1, false};
    search at;
    if (word.size() >= 2) {
        auto const first = static_cast<unsigned char>(word[0]);
        auto const second = static_cast<unsigned char>(word[1]);
        if (first - 0x60U >= 32 || second - 0x60U >= 32) {
            return found;
        }
        unsigned int const beginning = begun.search_of[first & 31U][second & 31U];
        if (beginning == 0) {
            return found;
        }
        at = begun.searches[beginning];
    }
    // One search gives both answers. For a word that is not in the table, the answer is the first
    // row on the path of the search that has a common prefix.
    std::uint64_t const key = key_of(word);
    std::uint64_t const mask = key_mask(word.size());
    bool before = false;
    do {
        before = key < row_keys[at.probe];
        if (((key ^ row_keys[at.probe]) & mask & row_masks[at.probe]) == 0) {
            std::string_view const row = rows[at.probe].word;
            int const rest = compare_rest(word, row);
            if (rest == 0) {
                if (word.size() == row.size()) {
                    return {at.probe, true};
                }
                if (found.row < 0) {
                    found.row = at.probe;
                }
            }
            before = rest < 0 || (rest == 0 && word.size() < row.size());
        }
    } while (at.advance(before));
    return found;
}

common_word const & common_word_at(int row) noexcept { return rows[static_cast<std::size_t>(row)]; }

} // namespace zel::naming
