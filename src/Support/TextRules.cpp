#include "Support/TextRules.h"

#include <unicode/uchar.h>
#include <unicode/utf8.h>

namespace halvane {

namespace {

bool isWhitespaceOrNewline(UChar32 c) {
    // Line and paragraph separators and the C0/C1 breaks count as newlines; U_WHITE_SPACE covers the rest.
    return u_hasBinaryProperty(c, UCHAR_WHITE_SPACE) || c == 0x85 || c == 0x2028 || c == 0x2029;
}

// Decodes the code point at `offset`, advancing it; gives a negative value for a malformed sequence.
UChar32 nextCodePoint(std::string_view text, int32_t& offset) {
    UChar32 c;
    U8_NEXT(reinterpret_cast<const uint8_t*>(text.data()), offset, static_cast<int32_t>(text.size()), c);
    return c;
}

UChar32 previousCodePoint(std::string_view text, int32_t& offset) {
    UChar32 c;
    U8_PREV(reinterpret_cast<const uint8_t*>(text.data()), 0, offset, c);
    return c;
}

}  // namespace

std::string trimmedWhitespaceAndNewlines(std::string_view text) {
    int32_t begin = 0;
    while (begin < static_cast<int32_t>(text.size())) {
        int32_t next = begin;
        UChar32 c = nextCodePoint(text, next);
        if (c < 0 || !isWhitespaceOrNewline(c)) break;
        begin = next;
    }
    int32_t end = static_cast<int32_t>(text.size());
    while (end > begin) {
        int32_t previous = end;
        UChar32 c = previousCodePoint(text, previous);
        if (c < 0 || !isWhitespaceOrNewline(c)) break;
        end = previous;
    }
    return std::string(text.substr(static_cast<size_t>(begin), static_cast<size_t>(end - begin)));
}

bool containsControlCharacter(std::string_view text) {
    int32_t offset = 0;
    while (offset < static_cast<int32_t>(text.size())) {
        UChar32 c = nextCodePoint(text, offset);
        if (c < 0) return true;
        int8_t category = u_charType(c);
        if (category == U_CONTROL_CHAR || category == U_FORMAT_CHAR) return true;
    }
    return false;
}

}  // namespace halvane
