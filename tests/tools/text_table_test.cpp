#include "tools/ui/table.h"
#include "tools/ui/terminal_text.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>

namespace {

using corvan_tool::clipped;
using corvan_tool::display_width;
using corvan_tool::printable;
using corvan_tool::TextTable;

TEST(DisplayWidthTest, NarrowLetters) {
  EXPECT_EQ(display_width(""), 0);
  EXPECT_EQ(display_width("abc 123"), 7);
  EXPECT_EQ(display_width("naïve Größe"), 11);
  EXPECT_EQ(display_width("Привет"), 6);
  EXPECT_EQ(display_width("שלום"), 4);
  EXPECT_EQ(display_width("…"), 1);
}

TEST(DisplayWidthTest, EastAsianWideCharactersTakeTwoColumns) {
  EXPECT_EQ(display_width("中文"), 4);
  EXPECT_EQ(display_width("日本語です"), 10);
  EXPECT_EQ(display_width("カタカナ"), 8);
  EXPECT_EQ(display_width("한국어"), 6);
  EXPECT_EQ(display_width("ＡＢ！"), 6) << "fullwidth forms";
  EXPECT_EQ(display_width("ｱｲｳ"), 3) << "halfwidth forms";
  EXPECT_EQ(display_width("𠮷"), 2) << "beyond the first plane";
  EXPECT_EQ(display_width("\u1112\u1161\u11ab"), 2) << "a syllable of single letters";
  EXPECT_EQ(display_width("a中b"), 4);
}

TEST(DisplayWidthTest, CombiningCharactersTakeNone) {
  EXPECT_EQ(display_width("e\u0301"), 1);
  EXPECT_EQ(display_width("o\u0323\u0302"), 1);
  EXPECT_EQ(display_width("か\u3099"), 2);
  EXPECT_EQ(display_width("a\u200bb"), 2) << "a space of no width";
}

TEST(DisplayWidthTest, EmojiSequencesTakeTwoColumns) {
  EXPECT_EQ(display_width("😀"), 2);
  EXPECT_EQ(display_width("😀😀"), 4);
  EXPECT_EQ(display_width("👍\U0001F3FD"), 2) << "a skin tone";
  EXPECT_EQ(display_width("👨\u200d👩\u200d👧\u200d👦"), 2) << "a family of joined emoji";
  EXPECT_EQ(display_width("👩\U0001F3FD\u200d🚀"), 2) << "a skin tone and a joiner";
  EXPECT_EQ(display_width("🏳\ufe0f\u200d🌈"), 2);
  EXPECT_EQ(display_width("x👍\U0001F3FDy"), 4);
}

TEST(DisplayWidthTest, FlagsArePairs) {
  EXPECT_EQ(display_width("\U0001F1E9\U0001F1EA"), 2);
  EXPECT_EQ(display_width("\U0001F1E9\U0001F1EA\U0001F1EB\U0001F1F7"), 4);
}

TEST(DisplayWidthTest, VariationSelectorsChoosePresentation) {
  EXPECT_EQ(display_width("\u2764"), 1) << "a heart as text";
  EXPECT_EQ(display_width("\u2764\ufe0e"), 1);
  EXPECT_EQ(display_width("\u2764\ufe0f"), 2) << "a heart as an emoji";
  EXPECT_EQ(display_width("1\ufe0f\u20e3"), 2) << "a keycap";
}

TEST(DisplayWidthTest, InvalidBytesTakeTheWidthOfTheirReplacement) {
  for (const std::string text : {"\xff", "a\xffz", "\xc3", "\xe4\xb8", "\xf0\x9f\x98", "\x80\x80",
                                 "\xed\xa0\x80", "\xc0\xaf", "\xf5\x80\x80\x80", "中\xe4"}) {
    EXPECT_EQ(display_width(text), display_width(printable(text)));
  }
}

TEST(ClippedTest, FittingTextStays) {
  EXPECT_EQ(clipped("", 0), "");
  EXPECT_EQ(clipped("abc", 3), "abc");
  EXPECT_EQ(clipped("中文", 4), "中文");
}

TEST(ClippedTest, LongTextEndsWithAnEllipsisWithinTheWidth) {
  EXPECT_EQ(clipped("abcdef", 4), "abc…");
  EXPECT_EQ(clipped("abcdef", 1), "…");
  EXPECT_EQ(clipped("中文字", 5), "中文…");
  EXPECT_EQ(clipped("中文字", 4), "中…") << "half a character is never shown";
  EXPECT_EQ(clipped("中文字", 2), "…");
}

TEST(ClippedTest, CharactersAreNotSplit) {
  EXPECT_EQ(clipped("e\u0301e\u0301e\u0301", 2), "e\u0301…");
  const std::string family = "👨\u200d👩\u200d👧";
  EXPECT_EQ(clipped(family + family, 3), family + "…");
  EXPECT_EQ(clipped(family + family, 2), "…");
  const std::string flag = "\U0001F1E9\U0001F1EA";
  EXPECT_EQ(clipped(flag + flag + flag, 5), flag + flag + "…");
}

TEST(PrintableTest, TextStaysAsItIs) {
  for (const char* text : {"", "plain text", "中文 😀 e\u0301 \u200d", "C:\\n", "naïve"}) {
    EXPECT_EQ(printable(text), text);
  }
}

TEST(PrintableTest, ControlCharactersBecomeEscapes) {
  EXPECT_EQ(printable("a\nb\r\nc\td"), "a\\nb\\r\\nc\\td");
  EXPECT_EQ(printable(std::string("\0\x01\x7f", 3)), "\\x00\\x01\\x7f");
  EXPECT_EQ(printable("\x1b[31mred\x1b]0;title\x07"), "\\x1b[31mred\\x1b]0;title\\x07");
  EXPECT_EQ(printable("\u0085\u009b31m"), "\\x85\\x9b31m") << "controls beyond ASCII";
  EXPECT_EQ(printable("a\u2028b\u2029"), "a\\u2028b\\u2029") << "line ends beyond ASCII";
}

TEST(PrintableTest, NoControlCharacterIsLeft) {
  for (int c = 0; c < 0x20; ++c) {
    const std::string text = printable(std::string(1, static_cast<char>(c)));
    EXPECT_EQ(text[0], '\\') << c;
  }
}

TEST(PrintableTest, BidirectionalControlsBecomeEscapes) {
  EXPECT_EQ(printable("\u202egnp.exe"), "\\u202egnp.exe");
  for (const char* turn :
       {"\u202a", "\u202b", "\u202c", "\u202d", "\u202e", "\u2066", "\u2067", "\u2068", "\u2069",
        "\u200e", "\u200f", "\u061c", "\u206a", "\u206f", "\ufeff"}) {
    EXPECT_EQ(printable(turn).substr(0, 2), "\\u");
  }
  EXPECT_EQ(printable("שלום"), "שלום");
}

TEST(PrintableTest, InvalidBytesAreReplaced) {
  EXPECT_EQ(printable("a\xffz"), "a\ufffdz");
  EXPECT_EQ(printable("\xc3"), "\ufffd");
  EXPECT_EQ(printable("\xc3\x28"), "\ufffd(");
  EXPECT_EQ(printable("\xed\xa0\x80").find('\xed'), std::string::npos) << "half a surrogate pair";
  EXPECT_EQ(printable("\xc0\x8a").find('\n'), std::string::npos) << "an overlong line end";
  EXPECT_EQ(printable("\ufffd"), "\ufffd");
}

std::string printed(const TextTable& table, int line_width) {
  std::ostringstream out;
  table.print(out, line_width);
  return out.str();
}

TEST(TextTableTest, ColumnsAreAsWideAsTheirWidestCell) {
  TextTable table({{"ID", TextTable::kRight}, {"NAME"}, {"N", TextTable::kRight}, {"TEXT"}});
  table.add({"7", "u01", "1", "hello"});
  table.add({"1234", "elizabeth", "22", ""});
  EXPECT_EQ(printed(table, 0),
            "  ID  NAME        N  TEXT\n"
            "   7  u01         1  hello\n"
            "1234  elizabeth  22\n");
}

TEST(TextTableTest, WideCharactersKeepColumnsAligned) {
  TextTable table({{"NAME"}, {"N", TextTable::kRight}, {"TEXT"}});
  table.add({"李明", "1", "x"});
  table.add({"e\u0301mile", "2", "x"});
  table.add({"👨\u200d👩\u200d👧", "3", "x"});
  table.add({"\U0001F1E9\U0001F1EA한", "4", "x"});
  EXPECT_EQ(printed(table, 0),
            "NAME   N  TEXT\n"
            "李明   1  x\n"
            "e\u0301mile  2  x\n"
            "👨\u200d👩\u200d👧     3  x\n"
            "\U0001F1E9\U0001F1EA한   4  x\n");
}

TEST(TextTableTest, CellsAreMadePrintable) {
  TextTable table({{"A"}, {"B"}});
  table.add({"x\ny", "\x1b[2J"});
  EXPECT_EQ(printed(table, 0),
            "A     B\n"
            "x\\ny  \\x1b[2J\n");
}

TEST(TextTableTest, TheLastColumnIsClippedToTheLine) {
  TextTable table({{"A"}, {"TEXT"}});
  table.add({"aaa", "abcdefgh"});
  table.add({"b", "中文中文"});
  table.add({"c", "fits"});
  EXPECT_EQ(printed(table, 10),
            "A    TEXT\n"
            "aaa  abcd…\n"
            "b    中文…\n"
            "c    fits\n");
}

TEST(TextTableTest, ALineTooShortForTheTableStillShowsEveryColumn) {
  TextTable table({{"A"}, {"TEXT"}});
  table.add({"aaaa", "abc"});
  EXPECT_EQ(printed(table, 3), "A     …\naaaa  …\n");
}

TEST(TextTableTest, ATableWithoutRowsShowsItsHeadings) {
  EXPECT_EQ(printed(TextTable({{"A"}, {"B", TextTable::kRight}}), 0), "A  B\n");
}

}  // namespace
