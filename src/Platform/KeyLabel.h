#pragma once

#include <xkbcommon/xkbcommon.h>

#include <optional>
#include <string>

namespace halvane {

// The text shown for a key: a symbol for the named keys (return, arrows, F1-F12 ...), otherwise the
// key's unshifted character upper-cased, so shift-a and a both read "A". Nothing for keys without
// a printable character, such as the bare modifiers or F13.
std::optional<std::string> keyLabel(xkb_keysym_t unshiftedSym);

}  // namespace halvane
