#pragma once

#include "Model/RecordedEvents.h"
#include "Platform/CursorImageSource.h"

#include <array>
#include <cstdint>
#include <optional>
#include <unordered_map>
#include <vector>

namespace halvane {

// Tells which standard shape the system cursor has. A themed cursor says its name, which decides;
// a nameless one is rendered into 32 x 32 and matched against the reference pictures.
class CursorShapeSampler {
public:
    static constexpr int side = 32;
    using Pixels = std::array<uint8_t, side * side * 4>;
    struct Reference {
        CursorShape shape = CursorShape::arrow;
        Pixels pixels{};
    };

    CursorShapeSampler(CursorImageSource& source, std::vector<Reference> references);

    // The shape when it changed since the last poll, else nothing.
    std::optional<CursorShape> poll();

    // Shape for a cursor theme name ("left_ptr", "xterm", "pointer" ...), nothing for other names.
    static std::optional<CursorShape> shapeForName(const std::string& name);
    // The picture stretched into 32 x 32 RGBA bytes, premultiplied.
    static Pixels render(const CursorImage& image);
    static uint64_t fnv1a(const uint8_t* bytes, size_t count);
    // The nearest reference under 15 per byte on average, else arrow.
    CursorShape classify(const Pixels& pixels) const;

private:
    std::optional<CursorShape> changedTo(CursorShape shape);

    CursorImageSource& source_;
    std::vector<Reference> references_;
    uint64_t lastHash_ = 0;
    CursorShape lastShape_ = CursorShape::arrow;
    std::unordered_map<uint64_t, CursorShape> cache_;
};

}  // namespace halvane
