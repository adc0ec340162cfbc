#include "Platform/KeyLabel.h"

#include <unicode/uchar.h>
#include <unicode/utf8.h>

#include <xkbcommon/xkbcommon-keysyms.h>

#include <array>
#include <utility>

namespace halvane {

namespace {

const std::array<std::pair<xkb_keysym_t, const char*>, 29> namedKeys = {{
    {XKB_KEY_Return, "⏎"},     {XKB_KEY_KP_Enter, "⌅"}, {XKB_KEY_Tab, "⇥"},       {XKB_KEY_ISO_Left_Tab, "⇥"},
    {XKB_KEY_space, "Space"},  {XKB_KEY_BackSpace, "⌫"}, {XKB_KEY_Delete, "⌦"},  {XKB_KEY_Escape, "⎋"},
    {XKB_KEY_Left, "←"},       {XKB_KEY_Right, "→"},    {XKB_KEY_Down, "↓"},      {XKB_KEY_Up, "↑"},
    {XKB_KEY_Home, "↖"},       {XKB_KEY_End, "↘"},      {XKB_KEY_Page_Up, "⇞"},   {XKB_KEY_Page_Down, "⇟"},
    {XKB_KEY_F1, "F1"},        {XKB_KEY_F2, "F2"},      {XKB_KEY_F3, "F3"},       {XKB_KEY_F4, "F4"},
    {XKB_KEY_F5, "F5"},        {XKB_KEY_F6, "F6"},      {XKB_KEY_F7, "F7"},       {XKB_KEY_F8, "F8"},
    {XKB_KEY_F9, "F9"},        {XKB_KEY_F10, "F10"},    {XKB_KEY_F11, "F11"},     {XKB_KEY_F12, "F12"},
    {XKB_KEY_KP_Space, "Space"},
}};

}  // namespace

std::optional<std::string> keyLabel(xkb_keysym_t unshiftedSym) {
    for (const auto& [sym, label] : namedKeys)
        if (sym == unshiftedSym) return std::string(label);
    uint32_t codePoint = xkb_keysym_to_utf32(unshiftedSym);
    if (codePoint < 32 || codePoint == 0x7F) return std::nullopt;
    UChar32 upper = u_toupper(static_cast<UChar32>(codePoint));
    char bytes[U8_MAX_LENGTH];
    int32_t length = 0;
    UBool failed = false;
    U8_APPEND(bytes, length, U8_MAX_LENGTH, upper, failed);
    if (failed) return std::nullopt;
    return std::string(bytes, static_cast<size_t>(length));
}

}  // namespace halvane
