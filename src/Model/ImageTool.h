#pragma once

#include "Model/AnnotationStyle.h"

#include <array>
#include <optional>
#include <string>
#include <string_view>

namespace halvane {

// What one image annotation is, in the order the file format names them.
enum class ImageAnnotationKind { arrow, line, rectangle, ellipse, pen, highlighter, text, counter, redact, spotlight, image };
constexpr auto enumNames(ImageAnnotationKind) {
    return std::array<std::string_view, 11>{"arrow", "line", "rectangle", "ellipse", "pen", "highlighter",
                                            "text", "counter", "redact", "spotlight", "image"};
}

// The image editor's tools; the raw value is the case name.
enum class ImageTool { select, arrow, line, rectangle, ellipse, pen, highlighter, text, counter, redact, spotlight, crop };
constexpr auto enumNames(ImageTool) {
    return std::array<std::string_view, 12>{"select", "arrow", "line", "rectangle", "ellipse", "pen", "highlighter",
                                            "text", "counter", "redact", "spotlight", "crop"};
}

// The symbol shown on the tool's button.
std::string_view symbolName(ImageTool tool);
// The kind a tool draws; select and crop draw none.
std::optional<ImageAnnotationKind> drawnKind(ImageTool tool);
// The tool that draws a kind; a picture belongs to select.
ImageTool toolFor(ImageAnnotationKind kind);

// Localized titles for lists, menus and undo names.
std::string title(ImageAnnotationKind kind);
std::string title(ArrowStyle style);

}  // namespace halvane
