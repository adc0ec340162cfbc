#include "Capture/CursorShapeSampler.h"

#include <cstdlib>
#include <limits>
#include <string_view>
#include <utility>

namespace halvane {

namespace {

// Names from the core cursor font and from the freedesktop (CSS) cursor themes.
const std::pair<std::string_view, CursorShape> namedShapes[] = {
    {"left_ptr", CursorShape::arrow},           {"default", CursorShape::arrow},
    {"arrow", CursorShape::arrow},              {"top_left_arrow", CursorShape::arrow},
    {"xterm", CursorShape::iBeam},              {"text", CursorShape::iBeam},
    {"ibeam", CursorShape::iBeam},              {"vertical-text", CursorShape::iBeam},
    {"hand2", CursorShape::pointingHand},       {"hand1", CursorShape::pointingHand},
    {"pointer", CursorShape::pointingHand},     {"pointing_hand", CursorShape::pointingHand},
    {"grabbing", CursorShape::closedHand},      {"closedhand", CursorShape::closedHand},
    {"dnd-move", CursorShape::closedHand},      {"fleur", CursorShape::closedHand},
    {"grab", CursorShape::openHand},            {"openhand", CursorShape::openHand},
    {"crosshair", CursorShape::crosshair},      {"cross", CursorShape::crosshair},
    {"tcross", CursorShape::crosshair},         {"cell", CursorShape::crosshair},
    {"sb_h_double_arrow", CursorShape::resizeLeftRight}, {"ew-resize", CursorShape::resizeLeftRight},
    {"col-resize", CursorShape::resizeLeftRight},        {"h_double_arrow", CursorShape::resizeLeftRight},
    {"size_hor", CursorShape::resizeLeftRight},          {"sb_v_double_arrow", CursorShape::resizeUpDown},
    {"ns-resize", CursorShape::resizeUpDown},            {"row-resize", CursorShape::resizeUpDown},
    {"v_double_arrow", CursorShape::resizeUpDown},       {"size_ver", CursorShape::resizeUpDown},
    {"context-menu", CursorShape::contextualMenu},       {"not-allowed", CursorShape::operationNotAllowed},
    {"crossed_circle", CursorShape::operationNotAllowed}, {"no-drop", CursorShape::operationNotAllowed},
    {"forbidden", CursorShape::operationNotAllowed},
};

constexpr size_t cacheLimit = 97;
constexpr uint64_t unknownLimit = 61440;  // 15 per byte on average

}  // namespace

CursorShapeSampler::CursorShapeSampler(CursorImageSource& source, std::vector<Reference> references)
    : source_(source), references_(std::move(references)) {}

std::optional<CursorShape> CursorShapeSampler::shapeForName(const std::string& name) {
    for (const auto& [known, shape] : namedShapes)
        if (name == known) return shape;
    return std::nullopt;
}

uint64_t CursorShapeSampler::fnv1a(const uint8_t* bytes, size_t count) {
    uint64_t hash = 0xcbf29ce484222325ull;
    for (size_t i = 0; i < count; ++i) {
        hash ^= bytes[i];
        hash *= 0x100000001b3ull;
    }
    return hash;
}

CursorShapeSampler::Pixels CursorShapeSampler::render(const CursorImage& image) {
    Pixels pixels{};
    if (image.width <= 0 || image.height <= 0 || image.argb.size() < static_cast<size_t>(image.width * image.height)) return pixels;
    // Nearest-sample stretch: enough to tell standard shapes apart, and cheap at 30 polls a second.
    for (int y = 0; y < side; ++y) {
        int sy = y * image.height / side;
        for (int x = 0; x < side; ++x) {
            uint32_t argb = image.argb[static_cast<size_t>(sy * image.width + x * image.width / side)];
            uint8_t* out = &pixels[static_cast<size_t>((y * side + x) * 4)];
            out[0] = static_cast<uint8_t>(argb >> 16);
            out[1] = static_cast<uint8_t>(argb >> 8);
            out[2] = static_cast<uint8_t>(argb);
            out[3] = static_cast<uint8_t>(argb >> 24);
        }
    }
    return pixels;
}

CursorShape CursorShapeSampler::classify(const Pixels& pixels) const {
    uint64_t best = std::numeric_limits<uint64_t>::max();
    CursorShape shape = CursorShape::arrow;
    for (const auto& reference : references_) {
        uint64_t sum = 0;
        for (size_t i = 0; i < pixels.size(); ++i) sum += static_cast<uint64_t>(std::abs(pixels[i] - reference.pixels[i]));
        if (sum < best) {
            best = sum;
            shape = reference.shape;
        }
    }
    return best < unknownLimit ? shape : CursorShape::arrow;
}

std::optional<CursorShape> CursorShapeSampler::changedTo(CursorShape shape) {
    if (shape == lastShape_) return std::nullopt;
    lastShape_ = shape;
    return shape;
}

std::optional<CursorShape> CursorShapeSampler::poll() {
    auto image = source_.current();
    if (!image) return std::nullopt;
    if (!image->name.empty()) {
        if (auto named = shapeForName(image->name)) {
            lastHash_ = 0;
            return changedTo(*named);
        }
    }
    if (references_.empty()) return std::nullopt;
    Pixels pixels = render(*image);
    uint64_t hash = fnv1a(pixels.data(), pixels.size());
    if (hash == lastHash_) return std::nullopt;
    lastHash_ = hash;
    auto cached = cache_.find(hash);
    CursorShape shape;
    if (cached != cache_.end()) {
        shape = cached->second;
    } else {
        shape = classify(pixels);
        if (cache_.size() >= cacheLimit) cache_.clear();
        cache_.emplace(hash, shape);
    }
    return changedTo(shape);
}

}  // namespace halvane
