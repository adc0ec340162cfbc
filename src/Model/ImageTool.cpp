#include "Model/ImageTool.h"

#include "Support/Json.h"
#include "Support/Localization.h"

namespace halvane {

std::string_view symbolName(ImageTool tool) {
    switch (tool) {
        case ImageTool::select: return "cursorarrow";
        case ImageTool::arrow: return "arrow.up.right";
        case ImageTool::line: return "line.diagonal";
        case ImageTool::rectangle: return "rectangle";
        case ImageTool::ellipse: return "circle";
        case ImageTool::pen: return "pencil.line";
        case ImageTool::highlighter: return "highlighter";
        case ImageTool::text: return "textformat";
        case ImageTool::counter: return "1.circle";
        case ImageTool::redact: return "eye.slash";
        case ImageTool::spotlight: return "flashlight.on.fill";
        case ImageTool::crop: return "crop";
    }
    return {};
}

std::optional<ImageAnnotationKind> drawnKind(ImageTool tool) {
    if (tool == ImageTool::select || tool == ImageTool::crop) return std::nullopt;
    // Every drawing tool shares its raw name with the kind it makes.
    return enumFromName<ImageAnnotationKind>(enumName(tool));
}

ImageTool toolFor(ImageAnnotationKind kind) {
    if (kind == ImageAnnotationKind::image) return ImageTool::select;
    return *enumFromName<ImageTool>(enumName(kind));
}

std::string title(ImageAnnotationKind kind) {
    if (kind == ImageAnnotationKind::image) return Localization::string("imageEditor.kind.image");
    return Localization::string("imageEditor.tool." + std::string(enumName(toolFor(kind))));
}

std::string title(ArrowStyle style) {
    return Localization::string("imageEditor.arrow." + std::string(enumName(style)));
}

}  // namespace halvane
