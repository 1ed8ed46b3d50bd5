// SPDX-License-Identifier: MIT
#include "zel/naming/name_generator.h"

#include "tests/support/property.h"
#include "zel/naming/common_words.h"
#include "zel/text/crc32.h"
#include <gtest/gtest.h>

extern "C" property abbreviator_property;

namespace {

// Opens the stages to the tests, as a derived class may.
struct stages : zel::name_generator {
    using name_generator::abbreviateCommonWords;
    using name_generator::findWords;
    using name_generator::is_consonant;
    using name_generator::is_vowel;
    using name_generator::name_generator;
    using name_generator::optimizeCombinations;
    using name_generator::removeVowels;
    using name_generator::truncateCommonSuffix;
};

stages const stage;

zel::string joined(std::vector<zel::string> const & words)
{
    zel::string text;
    for (auto const & word : words) {
        text += word + "|";
    }
    return text;
}

// What the stages do together is compared with a plain reading below.
TEST(name_generator_words, end_where_a_capital_or_a_delimiter_begins)
{
    // clang-format off
    struct { char const * name, * words; stages by = stage; } const rows[] = {
        {"", ""}, {"ABCDef", "a|b|c|def|"}, {"__foo-x_", "|foo|-x||"}, // only the underscore vanishes
        {"a\xC4z", "a\xC4z|"}, // no capital: bytes are compared as signed
        {"a_bC", "ab|c|", stages("")}, // the underscore vanishes even when it parts nothing
    };
    // clang-format on
    for (auto const & row : rows) {
        SCOPED_TRACE(row.name);
        std::vector<zel::string> words{"stale"};
        int const count = row.by.findWords(row.name, words);
        EXPECT_EQ(count, static_cast<int>(words.size()));
        EXPECT_EQ(joined(words), row.words);
    }
}

TEST(name_generator_words, every_row_is_found_by_its_own_word)
{
    zel::string table;
    for (int row = 0; row < 128; ++row) {
        auto const & [word, abbreviation] = zel::naming::common_word_at(row);
        zel::string found(word);
        EXPECT_TRUE(stage.abbreviateCommonWords(found));
        EXPECT_EQ(found, abbreviation);
        table += zel::string(word) + " " + zel::string(abbreviation) + "\n";
    }
    // Each of the 256 texts is part of the results.
    auto const * const bytes = reinterpret_cast<unsigned char const *>(table.data());
    EXPECT_EQ(zel::Crc32::stringCrc32(bytes, static_cast<int>(table.size())), 0x6505292C);
}

// clang-format off
TEST(name_generator_stages, rewrite_one_word_in_place)
{
    using function = void (*)(zel::string &, std::uint32_t);
    function const combinations = [](auto & word, auto) { stage.optimizeCombinations(word); };
    function const suffix = [](auto & word, auto) { stage.truncateCommonSuffix(word); };
    function const vowels = [](auto & word, auto target) { stage.removeVowels(word, target); };
    function const common = [](auto & word, auto found) { EXPECT_EQ(stage.abbreviateCommonWords(word), found == 1); };
    function const word = [](auto & all, auto target) { all = stage.abbreviateWord(all, target); };
    function const name = [](auto & all, auto target) { all = zel::name_generator().abbreviate(all, target); };
    struct { function run; zel::string word; std::uint32_t argument; char const * after; } rows[] = {
        {combinations, "aeee", 0, "a"}, // the search goes on at the replacement
        {combinations, "COLOUR", 0, "COLOUR"},
        {suffix, "ties", 0, "ti"}, // "ies" leaves one byte only, "es" fits
        {suffix, "red", 0, "red"}, {vowels, "queue", 3, "que"}, {vowels, "", 0, ""},
        {common, "acknowledged", 1, "ACKd"}, // the first row, which no halving reaches; the tail begins a row
        {common, "addressing", 1, "Addr"}, // the tail is no common word and goes
        {common, "adjus", 1, "adjus"}, // a beginning of a row stays
        {common, "", 1, ""}, {common, "zebra", 0, "zebra"},
        {common, "hexadecimax", 0, "hexadecimax"}, // agrees with its row for more than eight bytes
        {word, "width", 1, "Wdth"}, // a common word may stay longer than its target
        {word, "register", 5, "regist"}, // the suffix goes first and hides the row
        {word, "queue", 4, "queu"}, // one byte too long costs the last byte, no vowel
        {name, "HorizontalSyncPulseWidth", 12, "HorznSynPulW"},
        {name, "information", 5, ""}, // a single word has all of the share and loses all of it
    };
    for (auto & row : rows) {
        SCOPED_TRACE(row.word);
        row.run(row.word, row.argument);
        EXPECT_EQ(row.word, row.after);
    }
}
// clang-format on

TEST(name_generator, y_is_a_vowel_and_whatever_is_no_letter_a_consonant)
{
    zel::string vowels;
    for (int byte = 0; byte < 256; ++byte) {
        char const c = static_cast<char>(byte);
        EXPECT_NE(stage.is_vowel(c), stage.is_consonant(c));
        vowels += zel::string(stage.is_vowel(c), c);
    }
    EXPECT_EQ(vowels, "AEIOUYaeiouy");
}

TEST(name_generator, goes_through_its_stages_with_any_name)
{
    constexpr char const * pieces[]
        = {"Pointer", "_decimals", "tion", "colour", "Max", "a", "B",   "_", "ise",
           "\xE4",    " ",         "e",    "o",      "T",   "9", "str", "-", "width"};
    expect_for_any(abbreviator_property, 20'000, [&](auto & random) {
        std::string name = any_bytes(random, 2, "\1\2\3\4\5\6\7\x8\x9");
        for (auto count = random() % 15; count > 0; --count) {
            name += pieces[random() % std::size(pieces)];
        }
        return name;
    });
    zel::name_generator const shortener;
    // Its delimiters are not the default text, though they part the same words.
    zel::name_generator const same("# _-.,:/\\+*=&?!@$#");
    for (char const * name : {"HorizontalSyncPulseWidth", "#max*value_of#all"}) {
        EXPECT_EQ(same.abbreviate(name, 12), shortener.abbreviate(name, 12));
    }
    EXPECT_EQ(shortener.abbreviate(zel::string(2000, 'A'), 1999), zel::string(1999, 'A'));
}

} // namespace
