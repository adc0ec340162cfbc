#pragma once

// Text rules that have to agree with what a reader sees as one character: user-perceived
// characters (grapheme clusters), Unicode punctuation, case mapping and locale language codes,
// all through ICU.

#include <cstddef>
#include <string>
#include <string_view>

namespace halvane {

struct UnicodeText {
    // Number of grapheme clusters in UTF-8 text.
    static std::size_t characterCount(std::string_view text);
    // The last n grapheme clusters (all of the text when it has fewer).
    static std::string suffixCharacters(std::string_view text, std::size_t n);
    // The text without its last grapheme cluster; empty stays empty.
    static std::string droppingLastCharacter(std::string_view text);

    // Every scalar is in a Unicode punctuation category (P*); false for empty text.
    static bool isPunctuation(std::string_view text);
    // Every scalar is one of the characters of `set` (UTF-8); false for empty text.
    static bool consistsOf(std::string_view text, std::string_view set);
    // Punctuation and white space (including line breaks) removed from both ends.
    static std::string trimmingPunctuationAndWhitespace(std::string_view text);
    // White space and line breaks of every script removed from both ends.
    static std::string trimmingWhitespaceAndNewlines(std::string_view text);
    // A control or format character anywhere, or bytes that are not UTF-8.
    static bool containsControlCharacter(std::string_view text);

    // Locale-independent full case mapping.
    static std::string lowercased(std::string_view text);
    static std::string uppercased(std::string_view text);

    // The language subtag of a locale identifier ("ja" of "ja_JP"), lower case; empty if none.
    static std::string languageCode(std::string_view localeIdentifier);

private:
    template <class Pred>
    static std::string trimming(std::string_view text, Pred trimmed);
};

}  // namespace halvane
