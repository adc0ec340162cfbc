#pragma once

#include "Model/EditTypes.h"
#include "Support/Json.h"

#include <string>

namespace halvane {

// Stored as the integers 0, 1, 2.
enum class AnnotationSize { small = 0, medium = 1, large = 2 };

enum class ArrowStyle { standard, fancy, curved, doubleHeaded };
constexpr auto enumNames(ArrowStyle) { return std::array<std::string_view, 4>{"standard", "fancy", "curved", "double"}; }
// Only curved arrows use a control point; `double` has a head at both ends.
inline bool isCurved(ArrowStyle s) { return s == ArrowStyle::curved || s == ArrowStyle::doubleHeaded; }

// Colour, size and options of one mark. Every field reads leniently.
struct AnnotationStyle {
    std::string colorHex = "#FF3B30";
    AnnotationSize size = AnnotationSize::medium;
    bool filled = false;
    bool shadow = true;
    MaskStyle redaction = MaskStyle::pixelate;
    ArrowStyle arrow = ArrowStyle::standard;
    friend bool operator==(const AnnotationStyle&, const AnnotationStyle&) = default;
};

void fromJson(const Json& j, AnnotationSize& out);
Json toJson(AnnotationSize v);
void fromJson(const Json& j, AnnotationStyle& out);
Json toJson(const AnnotationStyle& v);

}  // namespace halvane
