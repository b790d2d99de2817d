// Text as the user reads it: display strings, Unicode normal form, and counting by
// user-perceived characters rather than bytes.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace orvane {

// A display text by key. This build carries no string table, so the default stands.
std::string L(std::string_view key, std::string_view defaultText);

// Canonical composition (NFC). Text that is not valid UTF-8 comes back unchanged.
std::string nfc(std::string_view text);

// The number of user-perceived characters (extended grapheme clusters). Invalid UTF-8
// counts one character per byte that does not decode.
std::size_t characterCount(std::string_view text);

// The columns a terminal gives the text: per user-perceived character, the widest of its code
// points (two for East Asian wide and emoji, none for a lone combining mark, one otherwise).
// Bytes that are not valid UTF-8 take one column each.
std::size_t displayWidth(std::string_view text);

// The first `limit` user-perceived characters, never cutting one in half.
std::string clipCharacters(std::string_view text, std::size_t limit);

// White space and newlines trimmed from both ends (Unicode's White_Space set).
std::string trimWhitespace(std::string_view text);
// Trims spaces and tabs only, as the line formats of macOS tools are read: other white space is
// part of the text.
std::string_view trimSpacesAndTabs(std::string_view text);

// Unicode lower case, code point by code point; invalid UTF-8 bytes are kept as they are.
std::string lowercased(std::string_view text);

// The pieces between separators, empty ones kept: "a..b" gives "a", "", "b"; "" gives one "".
std::vector<std::string> splitKeepingEmpties(std::string_view text, char separator);
// The same without the empty pieces: "a..b" gives "a", "b".
std::vector<std::string> splitDroppingEmpties(std::string_view text, char separator);

// The first character upper-cased and the rest as it stands ("iTerm" stays "ITerm").
std::string uppercasedFirstCharacter(std::string_view text);

// Whether `text` contains `query` with case and compatibility differences folded away (Unicode
// case folding after NFKC), as a person searching a list expects.
bool localizedCaseInsensitiveContains(std::string_view text, std::string_view query);
// The order of names in a file browser: case ignored, and runs of digits compared as numbers, so
// that "App 9" comes before "App 10". Negative, zero or positive like strcmp.
int localizedStandardCompare(std::string_view a, std::string_view b);

// Whether the text is well-formed UTF-8.
bool isValidUTF8(std::string_view text);

// Bytes as text, each ill-formed sequence replaced by U+FFFD as its maximal part that could have
// begun a character, the way the platform's decoder repairs.
std::string repairedUTF8(std::string_view bytes);

// The text made safe for one line of a terminal or a log: control characters (C0, DEL, C1) and
// the Unicode line and paragraph separators become "\n", "\r", "\t" or "\xNN" per byte, and so
// does every byte that is not valid UTF-8, so that a name can neither move the cursor nor start a
// line of its own. Everything else, a backslash too, stays as it is.
std::string escapeControlCharacters(std::string_view text);

}  // namespace orvane
