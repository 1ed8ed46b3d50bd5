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

// clang-format off
TEST(name_generator_words, end_where_a_capital_or_a_delimiter_begins)
{
    struct { char const * name, * words; stages by = stage; } const rows[] = {
        {"", ""}, 
        {"pixelClockFrequency", "pixel|clock|frequency|"}, {"ABCDef", "a|b|c|def|"},
        {"connection-timeout", "connection|-timeout|"}, // only the underscore vanishes
        {"a__b", "a||b|"}, {"_foo", "foo|"}, {"__foo", "|foo|"}, {"foo_", "foo||"},
        {"a\xC4z", "a\xC4z|"}, // no capital: bytes are compared as signed
        {"a_bC", "ab|c|", stages("")}, // the underscore vanishes even when it parts nothing
        {"axb", "a|xb|", stages("x")},
    };
    for (auto const & row : rows) {
        SCOPED_TRACE(row.name);
        std::vector<zel::string> words{"stale"};
        int const count = row.by.findWords(row.name, words);
        EXPECT_EQ(joined(words), row.words);
        EXPECT_EQ(count, static_cast<int>(words.size()));
    }
}
// clang-format on

TEST(name_generator_words, common_ones_are_rewritten_in_probe_order)
{
    // clang-format off
    struct { char const * word; bool common; char const * after; } const rows[] = {
        {"width", true, "Wdth"},
        {"acknowledge", true, "ACK"}, // the first row, which no halving reaches
        {"word", true, "Wrd"}, {"acknowledged", true, "ACKd"}, // the tail begins a row and stays
        {"wordcount", true, "WrdCnt"}, {"maximumwidth", true, "MaxWdth"},
        {"addressing", true, "Addr"}, // the tail is no common word and goes
        {"stopwatch", true, "Stp"}, {"pointers", true, "Pnt"}, // "point" is met before "pointer"
        {"adjus", true, "adjus"}, // a beginning of a row stays
        {"u", true, "u"}, {"", true, ""}, {"zebra", false, "zebra"}, {"Wdth", false, "Wdth"},
        {"hexadecimax", false, "hexadecimax"}, // agrees with its row for more than eight bytes
        {"temperaturf", false, "temperaturf"},
    };
    // clang-format on
    for (auto const & row : rows) {
        SCOPED_TRACE(row.word);
        zel::string word = row.word;
        EXPECT_EQ(stage.abbreviateCommonWords(word), row.common);
        EXPECT_EQ(word, row.after);
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
    function const word = [](auto & all, auto target) { all = stage.abbreviateWord(all, target); };
    struct { function run; zel::string word; std::uint32_t target; char const * after; } rows[] = {
        {combinations, "colour", 0, "color"},
        {combinations, "aeee", 0, "a"}, // the search goes on at the replacement
        {combinations, "COLOUR", 0, "COLOUR"}, {suffix, "assumption", 0, "assume"},
        {suffix, "ties", 0, "ti"}, // "ies" leaves one byte only, "es" fits
        {suffix, "red", 0, "red"}, {vowels, "queue", 3, "que"}, {vowels, "cooperate", 5, "coprt"},
        {vowels, "aeiou", 0, "ae"}, {vowels, "", 0, ""},
        {word, "width", 1, "Wdth"}, // a common word may stay longer than its target
        {word, "register", 5, "regist"}, // the suffix goes first and hides the row
        {word, "queue", 4, "queu"}, // one byte too long costs the last byte, no vowel
        {word, "red", 1, "r"}, {word, "zebra", 9, "zebra"}, {word, "", 0, ""},
    };
    for (auto & row : rows) {
        SCOPED_TRACE(row.word);
        row.run(row.word, row.target);
        EXPECT_EQ(row.word, row.after);
    }
}
// clang-format on

TEST(name_generator, abbreviates_names)
{
    // clang-format off
    struct { char const * name; std::uint32_t target; char const * result; } const rows[] = {
        {"HorizontalSyncPulseWidth", 12, "HorznSynPulW"}, 
        
        
        {"foo__bar", 4, "FoBa"}, // the empty word counts in the division
        {"maximum", 2, "Ma"},
        {"information", 5, ""}, // a single word has all of the share and loses all of it
        {"x", 0, ""}, {"", 0, ""},
    };
    // clang-format on
    zel::name_generator const shortener;
    for (auto const & row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(shortener.abbreviate(row.name, row.target), row.result);
    }
    EXPECT_EQ(zel::name_generator("q").abbreviate("maximumqwidth", 6), "MaQwd");
}

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
