#include "Render/CanvasAnnotationBitmaps.h"

#include "Render/CanvasAnnotationArt.h"

#include <algorithm>

namespace halvane {

namespace {
constexpr long long byteBudget = 0x2000000;
constexpr size_t mostAnnotations = 0x800000;
}  // namespace

long long CanvasAnnotationBitmaps::maximumPixels(size_t n) {
    if (n > mostAnnotations) return 1;
    return byteBudget / (4 * static_cast<long long>(std::max<size_t>(n, 1)));
}

CanvasAnnotation CanvasAnnotationBitmaps::signature(const CanvasAnnotation& annotation) {
    CanvasAnnotation s = annotation;
    s.start = 0;
    s.end = 0;
    s.position = {0.5, 0.5};
    return s;
}

void CanvasAnnotationBitmaps::prepare(const std::vector<CanvasAnnotation>& annotations, Size canvas, double scale) {
    const long long budget = maximumPixels(annotations.size());
    if (canvas != canvas_ || scale != scale_ || budget != maximumPixels_) entries_.clear();
    canvas_ = canvas;
    scale_ = scale;
    maximumPixels_ = budget;
    std::map<Uuid, CanvasAnnotation> current;
    for (const auto& a : annotations) current.emplace(a.id, signature(a));
    std::erase_if(entries_, [&](const auto& entry) {
        auto found = current.find(entry.first);
        return found == current.end() || !(found->second == entry.second.signature);
    });
}

std::optional<AnnotationArt::Rendered> CanvasAnnotationBitmaps::rendered(const CanvasAnnotation& annotation,
                                                                         const std::filesystem::path& package) {
    const CanvasAnnotation key = signature(annotation);
    auto found = entries_.find(annotation.id);
    if (found != entries_.end() && found->second.signature == key) return found->second.rendered;
    auto art = CanvasAnnotationArt::render(annotation, canvas_, scale_, maximumPixels_, package);
    entries_[annotation.id] = Entry{key, art};
    return art;
}

}  // namespace halvane
