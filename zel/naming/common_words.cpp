// SPDX-License-Identifier: MIT
#include "zel/naming/common_words.h"

#include <algorithm>
#include <array>
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

// Unsigned byte order of a word against a row: below 0, 0 or above 0.
template <match how> int compare(std::string_view word, std::uint64_t key, int row) noexcept
{
    auto const index = static_cast<std::size_t>(row);
    std::string_view const other = rows[index].word;
    std::uint64_t row_key = row_keys[index];
    std::size_t const shared = std::min(word.size(), other.size());
    if (how == match::prefix && shared < sizeof key) {
        std::uint64_t const mask = ~(~std::uint64_t{0} >> (8 * shared));
        key &= mask;
        row_key &= mask;
    }
    if (key != row_key) {
        return key < row_key ? -1 : 1;
    }
    if (shared > sizeof key) {
        int const rest
            = std::memcmp(word.data() + sizeof key, other.data() + sizeof key, shared - sizeof key);
        if (rest != 0) {
            return rest;
        }
    }
    if (how == match::prefix || word.size() == other.size()) {
        return 0;
    }
    return word.size() < other.size() ? -1 : 1;
}

template <match how> int find(std::string_view word) noexcept
{
    std::uint64_t const key = leading_bytes(word);
    int low = 0;
    int high = row_count;
    while (high - low > 1) {
        int const probe = low + (high - low) / 2;
        int const order = compare<how>(word, key, probe);
        if (order == 0) {
            return probe;
        }
        (order < 0 ? high : low) = probe;
    }
    // The halving never lands on row 0.
    return high == 1 && compare<how>(word, key, 0) == 0 ? 0 : -1;
}

} // namespace

int find_common_word(std::string_view word, match how) noexcept
{
    return how == match::whole ? find<match::whole>(word) : find<match::prefix>(word);
}

common_word const & common_word_at(int row) noexcept { return rows[static_cast<std::size_t>(row)]; }

} // namespace zel::naming
