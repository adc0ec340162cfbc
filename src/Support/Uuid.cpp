#include "Support/Uuid.h"

#include <random>

namespace halvane {

Uuid Uuid::random() {
    thread_local std::mt19937_64 engine{std::random_device{}()};
    Uuid u;
    for (int i = 0; i < 16; i += 8) {
        std::uint64_t v = engine();
        for (int k = 0; k < 8; ++k) u.bytes[i + k] = static_cast<std::uint8_t>(v >> (8 * k));
    }
    u.bytes[6] = (u.bytes[6] & 0x0F) | 0x40;  // version 4
    u.bytes[8] = (u.bytes[8] & 0x3F) | 0x80;  // RFC 4122 variant
    return u;
}

static int hexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

std::optional<Uuid> Uuid::parse(std::string_view text) {
    if (text.size() != 36) return std::nullopt;
    Uuid u;
    int byte = 0;
    for (size_t i = 0; i < 36;) {
        if (i == 8 || i == 13 || i == 18 || i == 23) {
            if (text[i] != '-') return std::nullopt;
            ++i;
            continue;
        }
        int hi = hexValue(text[i]), lo = hexValue(text[i + 1]);
        if (hi < 0 || lo < 0) return std::nullopt;
        u.bytes[byte++] = static_cast<std::uint8_t>(hi * 16 + lo);
        i += 2;
    }
    return u;
}

std::string Uuid::string() const {
    static constexpr char digits[] = "0123456789ABCDEF";
    std::string s;
    s.reserve(36);
    for (int i = 0; i < 16; ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10) s.push_back('-');
        s.push_back(digits[bytes[i] >> 4]);
        s.push_back(digits[bytes[i] & 15]);
    }
    return s;
}

}  // namespace halvane
