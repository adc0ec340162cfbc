#include "Support/UnicodeText.h"

#include <unicode/brkiter.h>
#include <unicode/locid.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>
#include <unicode/utf8.h>

#include <memory>
#include <vector>

namespace halvane {

namespace {

icu::UnicodeString toUnicode(std::string_view text) {
    return icu::UnicodeString::fromUTF8(icu::StringPiece(text.data(), static_cast<int32_t>(text.size())));
}

std::string toUtf8(const icu::UnicodeString& text) {
    std::string out;
    text.toUTF8String(out);
    return out;
}

// Boundaries (UTF-16 offsets) of the grapheme clusters of `text`: first 0, last its length.
std::vector<int32_t> characterBoundaries(const icu::UnicodeString& text) {
    std::vector<int32_t> bounds;
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<icu::BreakIterator> it(icu::BreakIterator::createCharacterInstance(icu::Locale::getRoot(), status));
    if (U_FAILURE(status) || !it) {
        // Without break data every code point stands alone, right for the common case.
        for (int32_t i = 0; i < text.length(); i = text.moveIndex32(i, 1)) bounds.push_back(i);
        bounds.push_back(text.length());
        return bounds;
    }
    it->setText(text);
    for (int32_t b = it->first(); b != icu::BreakIterator::DONE; b = it->next()) bounds.push_back(b);
    if (bounds.empty()) bounds.push_back(0);
    return bounds;
}

// Line and paragraph separators and the C0/C1 breaks count as newlines; White_Space covers the rest.
bool isWhitespaceOrNewline(UChar32 c) {
    return u_isUWhiteSpace(c) || c == 0x0A || c == 0x0B || c == 0x0C || c == 0x0D || c == 0x85 || c == 0x2028 ||
           c == 0x2029;
}

template <class Pred>
bool allScalars(std::string_view text, Pred pred) {
    if (text.empty()) return false;
    int32_t i = 0;
    const auto* s = reinterpret_cast<const uint8_t*>(text.data());
    const auto n = static_cast<int32_t>(text.size());
    while (i < n) {
        UChar32 c;
        U8_NEXT(s, i, n, c);
        if (c < 0 || !pred(c)) return false;
    }
    return true;
}

}  // namespace

std::size_t UnicodeText::characterCount(std::string_view text) {
    if (text.empty()) return 0;
    return characterBoundaries(toUnicode(text)).size() - 1;
}

std::string UnicodeText::suffixCharacters(std::string_view text, std::size_t n) {
    auto u = toUnicode(text);
    auto bounds = characterBoundaries(u);
    std::size_t count = bounds.size() - 1;
    if (count <= n) return std::string(text);
    return toUtf8(u.tempSubString(bounds[count - n]));
}

std::string UnicodeText::droppingLastCharacter(std::string_view text) {
    if (text.empty()) return {};
    auto u = toUnicode(text);
    auto bounds = characterBoundaries(u);
    if (bounds.size() < 2) return {};
    return toUtf8(u.tempSubString(0, bounds[bounds.size() - 2]));
}

bool UnicodeText::isPunctuation(std::string_view text) {
    return allScalars(text, [](UChar32 c) { return u_ispunct(c) != 0; });
}

bool UnicodeText::consistsOf(std::string_view text, std::string_view set) {
    auto members = toUnicode(set);
    return allScalars(text, [&](UChar32 c) { return members.indexOf(c) >= 0; });
}

std::string UnicodeText::trimmingPunctuationAndWhitespace(std::string_view text) {
    return trimming(text, [](UChar32 c) { return u_ispunct(c) || isWhitespaceOrNewline(c); });
}

std::string UnicodeText::trimmingWhitespaceAndNewlines(std::string_view text) {
    // Works on the bytes themselves, so text that is not valid UTF-8 keeps its bad bytes for the
    // caller to see.
    const auto* s = reinterpret_cast<const uint8_t*>(text.data());
    int32_t begin = 0, end = static_cast<int32_t>(text.size());
    while (begin < end) {
        int32_t next = begin;
        UChar32 c;
        U8_NEXT(s, next, end, c);
        if (c < 0 || !isWhitespaceOrNewline(c)) break;
        begin = next;
    }
    while (end > begin) {
        int32_t previous = end;
        UChar32 c;
        U8_PREV(s, begin, previous, c);
        if (c < 0 || !isWhitespaceOrNewline(c)) break;
        end = previous;
    }
    return std::string(text.substr(static_cast<size_t>(begin), static_cast<size_t>(end - begin)));
}

bool UnicodeText::containsControlCharacter(std::string_view text) {
    const auto* s = reinterpret_cast<const uint8_t*>(text.data());
    const auto n = static_cast<int32_t>(text.size());
    for (int32_t i = 0; i < n;) {
        UChar32 c;
        U8_NEXT(s, i, n, c);
        if (c < 0) return true;
        int8_t category = u_charType(c);
        if (category == U_CONTROL_CHAR || category == U_FORMAT_CHAR) return true;
    }
    return false;
}

template <class Pred>
std::string UnicodeText::trimming(std::string_view text, Pred trimmed) {
    auto u = toUnicode(text);
    int32_t start = 0;
    int32_t end = u.length();
    while (start < end && trimmed(u.char32At(start))) start = u.moveIndex32(start, 1);
    while (end > start) {
        int32_t prev = u.moveIndex32(end, -1);
        if (!trimmed(u.char32At(prev))) break;
        end = prev;
    }
    return toUtf8(u.tempSubString(start, end - start));
}

std::string UnicodeText::lowercased(std::string_view text) {
    auto u = toUnicode(text);
    u.toLower(icu::Locale::getRoot());
    return toUtf8(u);
}

std::string UnicodeText::uppercased(std::string_view text) {
    auto u = toUnicode(text);
    u.toUpper(icu::Locale::getRoot());
    return toUtf8(u);
}

std::string UnicodeText::languageCode(std::string_view localeIdentifier) {
    if (localeIdentifier.empty()) return {};
    icu::Locale locale = icu::Locale::createCanonical(std::string(localeIdentifier).c_str());
    if (locale.isBogus()) return {};
    return locale.getLanguage();
}

}  // namespace halvane
