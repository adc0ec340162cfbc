#pragma once

#include <string>
#include <string_view>

namespace halvane {

// Text rules over UTF-8 that follow Unicode rather than ASCII, so a name typed with a
// no-break space or a zero-width joiner is judged the way the user sees it.

// Removes Unicode white space and line breaks from both ends.
std::string trimmedWhitespaceAndNewlines(std::string_view text);

// True when the text holds a control (Cc) or format (Cf) character, or bytes that are no UTF-8.
bool containsControlCharacter(std::string_view text);

}  // namespace halvane
