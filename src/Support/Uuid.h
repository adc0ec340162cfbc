#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace halvane {

struct Uuid {
    std::array<std::uint8_t, 16> bytes{};

    static Uuid random();
    // Accepts either case; gives nothing for anything but 8-4-4-4-12 hex digits.
    static std::optional<Uuid> parse(std::string_view text);
    // Upper-case 8-4-4-4-12.
    std::string string() const;

    friend bool operator==(const Uuid&, const Uuid&) = default;
    friend auto operator<=>(const Uuid&, const Uuid&) = default;
};

}  // namespace halvane
