#include "Model/CanvasAnnotation.h"

#include "Model/Easing.h"
#include "Model/ImageAnnotation.h"
#include "Model/ImageTool.h"

#include <algorithm>
#include <cmath>

namespace halvane {

void fromJson(const Json& j, CanvasAnnotation& out) {
    JsonObjectReader r(j);
    CanvasAnnotation a;
    r.required("id", a.id);
    r.required("start", a.start);
    r.required("end", a.end);
    r.optional("text", a.text);
    r.optional("position", a.position);
    r.optional("size", a.size);
    r.optional("pill", a.pill);
    r.optional("kind", a.kind);
    r.optional("span", a.span);
    r.optional("style", a.style);
    r.optional("number", a.number);
    r.optional("imageFileName", a.imageFileName);
    r.optional("imageAspect", a.imageAspect);
    out = std::move(a);
}

Json toJson(const CanvasAnnotation& v) {
    Json j = Json::object();
    j["id"] = toJson(v.id);
    j["start"] = v.start;
    j["end"] = v.end;
    j["text"] = v.text;
    j["position"] = toJson(v.position);
    j["size"] = v.size;
    j["pill"] = v.pill;
    j["kind"] = toJson(v.kind);
    j["span"] = toJson(v.span);
    j["style"] = toJson(v.style);
    j["number"] = v.number;
    putOptional(j, "imageFileName", v.imageFileName);
    j["imageAspect"] = v.imageAspect;
    return j;
}

}  // namespace halvane

// ---- model functions

namespace halvane {

std::string CanvasAnnotation::title() const {
    if (kind == CanvasAnnotationKind::text && !text.empty()) return text;
    auto imageKind = enumFromName<ImageAnnotationKind>(enumName(kind));
    std::string name = imageKind ? halvane::title(*imageKind) : std::string(enumName(kind));
    if (kind == CanvasAnnotationKind::counter) name += " " + std::to_string(number);
    return name;
}

double CanvasAnnotation::alpha(double t) const {
    if (t < start || t > end) return 0;
    const double n = end - start;
    if (n <= 0.01) return 0;
    const double fade = std::min(n / 3, 0.25);
    return std::min(smoothstep((t - start) / fade), 1 - smoothstep((t - (end - fade)) / fade));
}

Rect CanvasAnnotation::rect(Size size) const {
    const double W = size.width;
    const double H = size.height;
    const double w = W * std::abs(span.width);
    double h;
    if (kind == CanvasAnnotationKind::counter) h = w;
    else if (kind == CanvasAnnotationKind::image) h = w / std::max(imageAspect, 0.001);
    else h = H * std::abs(span.height);
    return {W * position.x - w / 2, H * (1 - position.y) - h / 2, w, h};
}

ImageAnnotation CanvasAnnotation::mark(Size size) const {
    const double W = size.width;
    const double H = size.height;
    ImageAnnotation m;
    m.id = id;
    m.kind = enumFromName<ImageAnnotationKind>(enumName(kind)).value_or(ImageAnnotationKind::text);
    m.rect = rect(size);
    m.style = style;
    m.number = number;
    m.text.clear();
    const double x = position.x;
    const double y = position.y;
    const double sx = span.width;
    const double sy = span.height;
    m.points = {{W * (x - sx / 2), H * ((1 - y) + sy / 2)}, {W * (x + sx / 2), H * ((1 - y) - sy / 2)}};
    return m;
}

std::optional<std::filesystem::path> CanvasAnnotation::imageURL(const std::filesystem::path& package) const {
    if (!imageFileName) return std::nullopt;
    const std::string& name = *imageFileName;
    // Only a plain name of our own making: nothing that could step outside the package.
    if (std::filesystem::path(name).filename().string() != name) return std::nullopt;
    if (name.rfind("overlay-", 0) != 0) return std::nullopt;
    if (name.size() < 4 || name.compare(name.size() - 4, 4, ".png") != 0) return std::nullopt;
    return package / name;
}

}  // namespace halvane
