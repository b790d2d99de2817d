#include "core/common/text.hpp"

#include <gtest/gtest.h>

namespace orvane {
namespace {

TEST(Text, CountsAndClipsUserPerceivedCharacters) {
    const std::string family = "\U0001F468\u200D\U0001F469\u200D\U0001F467";  // one character
    const std::string flag = "\U0001F1E9\U0001F1EA";                             // one character
    const std::string accented = "e\u0301";                                     // one character
    struct Case {
        std::string text;
        std::size_t count;
    } cases[] = {
        {"", 0},
        {"abc", 3}, {family, 1}, {flag + flag, 2}, {accented + "x", 2}, {"\r\n", 1},
        {"a\xff" "b", 3},  // an undecodable byte counts as one
    };
    for (const auto& c : cases) EXPECT_EQ(characterCount(c.text), c.count) << c.text;

    EXPECT_EQ(clipCharacters("abcdef", 3), "abc");
    EXPECT_EQ(clipCharacters("ab", 3), "ab");
    EXPECT_EQ(clipCharacters(family + "xyz", 1), family);
    EXPECT_EQ(clipCharacters("x" + accented + "y", 2), "x" + accented);
    EXPECT_EQ(clipCharacters(flag + flag, 1), flag);
    EXPECT_EQ(clipCharacters("abc", 0), "");
}

TEST(Text, NormalFormAndCase) {
    EXPECT_EQ(nfc("e\u0301"), "\u00e9");
    EXPECT_EQ(nfc("Cafe\u0301/Re\u0301sume\u0301"), "Caf\u00e9/R\u00e9sum\u00e9");
    EXPECT_EQ(nfc("already \u00e9"), "already \u00e9");
    EXPECT_EQ(nfc("bad \xc3"), "bad \xc3");  // invalid UTF-8 passes unchanged

    EXPECT_EQ(lowercased("Some.APP"), "some.app");
    EXPECT_EQ(lowercased("\u00c9T\u00c9"), "\u00e9t\u00e9");
    EXPECT_EQ(lowercased("A\xffZ"), "a\xffz");

    EXPECT_TRUE(isValidUTF8("plain \u00e9"));
    EXPECT_FALSE(isValidUTF8("\xc0\x80"));  // overlong NUL
    EXPECT_FALSE(isValidUTF8("\xed\xa0\x80"));  // a surrogate
}

TEST(Text, TrimsWhiteSpaceAtBothEnds) {
    EXPECT_EQ(trimWhitespace("  a b \n\t"), "a b");
    EXPECT_EQ(trimWhitespace("\u00a0\u3000x\u2028"), "x");
    EXPECT_EQ(trimWhitespace(" \n "), "");
    EXPECT_EQ(trimWhitespace("x\xff "), "x\xff");
    EXPECT_EQ(L("any.key", "Default text"), "Default text");
}

TEST(Text, DisplayWidthCountsColumns) {
    EXPECT_EQ(displayWidth("cargo"), 5u);
    EXPECT_EQ(displayWidth("Caf\u00e9"), 4u);
    EXPECT_EQ(displayWidth("Cafe\u0301"), 4u);               // the mark joins its letter
    EXPECT_EQ(displayWidth("\u65e5\u672c\u8a9e"), 6u);      // wide
    EXPECT_EQ(displayWidth("\U0001F468\u200D\U0001F469"), 2u);  // one joined emoji
    EXPECT_EQ(displayWidth("a\xff"), 2u);
    EXPECT_EQ(displayWidth(""), 0u);
}

TEST(Text, EscapesWhatCouldMoveTheCursorOrStartALine) {
    const struct {
        std::string in, out;
    } cases[] = {
        {"plain caf\u00e9 \u65e5\u672c", "plain caf\u00e9 \u65e5\u672c"}, {"a\nb\rc\td", "a\\nb\\rc\\td"},
        {std::string("nul\0x", 5), "nul\\x00x"}, {"\x1b[2Jclear", "\\x1B[2Jclear"}, {"del\x7f", "del\\x7F"},
        {"c1 \u009b31m", "c1 \\xC2\\x9B31m"},    // a one-character escape sequence start
        {"sep\u2028x", "sep\\xE2\\x80\\xA8x"},  // a line separator
        {"bad \xff\xc3", "bad \\xFF\\xC3"},      // invalid UTF-8, byte by byte
        {"back\\slash", "back\\slash"},
    };
    for (const auto& c : cases) EXPECT_EQ(escapeControlCharacters(c.in), c.out) << c.out;
}

}  // namespace
}  // namespace orvane
