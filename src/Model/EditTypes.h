#pragma once

// The small value types an edit is made of.

#include "Support/Json.h"
#include "Support/Uuid.h"

#include <optional>
#include <string>

namespace halvane {

enum class CanvasAspect { autoAspect, wide16x9, vertical9x16, square, classic4x3, portrait3x4, social4x5 };
constexpr auto enumNames(CanvasAspect) {
    return std::array<std::string_view, 7>{"auto", "wide16x9", "vertical9x16", "square", "classic4x3", "portrait3x4", "social4x5"};
}

enum class CardBorderStyle { glass, glassDark, liquid };
constexpr auto enumNames(CardBorderStyle) { return std::array<std::string_view, 3>{"glass", "glassDark", "liquid"}; }

enum class CursorStyle { arrow, dot, spotlight };
constexpr auto enumNames(CursorStyle) { return std::array<std::string_view, 3>{"arrow", "dot", "spotlight"}; }

enum class ClickEffect { none, circle, ripple };
constexpr auto enumNames(ClickEffect) { return std::array<std::string_view, 3>{"none", "circle", "ripple"}; }

enum class ClickSoundKind { none, magicMouse, mxMaster };
constexpr auto enumNames(ClickSoundKind) { return std::array<std::string_view, 3>{"none", "magicMouse", "mxMaster"}; }

enum class KeystrokeMode { allKeys, commandKeys };
constexpr auto enumNames(KeystrokeMode) { return std::array<std::string_view, 2>{"allKeys", "commandKeys"}; }

enum class MaskStyle { blur, pixelate };
constexpr auto enumNames(MaskStyle) { return std::array<std::string_view, 2>{"blur", "pixelate"}; }

enum class WebcamCorner { topLeft, topRight, bottomLeft, bottomRight };
constexpr auto enumNames(WebcamCorner) { return std::array<std::string_view, 4>{"topLeft", "topRight", "bottomLeft", "bottomRight"}; }

enum class WebcamShape { circle, rounded, squircle, portrait };
constexpr auto enumNames(WebcamShape) { return std::array<std::string_view, 4>{"circle", "rounded", "squircle", "portrait"}; }

enum class WebcamPortraitRatio { fourFive, threeFour, twoThree, nineSixteen };
constexpr auto enumNames(WebcamPortraitRatio) {
    return std::array<std::string_view, 4>{"fourFive", "threeFour", "twoThree", "nineSixteen"};
}

// Shape and portrait ratio travel together to the geometry.
struct WebcamFrame {
    WebcamShape shape = WebcamShape::squircle;
    WebcamPortraitRatio portraitRatio = WebcamPortraitRatio::twoThree;
    friend bool operator==(const WebcamFrame&, const WebcamFrame&) = default;
};

// What lies behind the card: a tagged value with one string payload.
struct CanvasBackground {
    enum class Kind { gradient, solid, image, wallpaper };
    Kind kind = Kind::gradient;
    std::string value = "shots-gradient-1";  // gradient id, hex colour, package file name or wallpaper id

    static CanvasBackground gradient(std::string id) { return {Kind::gradient, std::move(id)}; }
    static CanvasBackground solid(std::string hex) { return {Kind::solid, std::move(hex)}; }
    static CanvasBackground image(std::string fileName) { return {Kind::image, std::move(fileName)}; }
    static CanvasBackground wallpaper(std::string id) { return {Kind::wallpaper, std::move(id)}; }

    friend bool operator==(const CanvasBackground&, const CanvasBackground&) = default;
};
constexpr auto enumNames(CanvasBackground::Kind) {
    return std::array<std::string_view, 4>{"gradient", "solid", "image", "wallpaper"};
}

// Segment records: times are source seconds; every key is required except `source`.
struct ZoomSegment {
    Uuid id = Uuid::random();
    double start = 0;
    double end = 0;
    double level = 1.75;
    Point target{0.5, 0.5};  // unit coordinates of the source, top-left origin
    bool isAuto = false;
    std::optional<int> source;
    friend bool operator==(const ZoomSegment&, const ZoomSegment&) = default;
};

struct FocusSegment {
    Uuid id = Uuid::random();
    double start = 0;  // the source is in front from here on
    int source = 0;
    friend bool operator==(const FocusSegment&, const FocusSegment&) = default;
};

struct SpeedSegment {
    Uuid id = Uuid::random();
    double start = 0;
    double end = 0;
    double factor = 1;
    friend bool operator==(const SpeedSegment&, const SpeedSegment&) = default;
};

struct CutSegment {
    Uuid id = Uuid::random();
    double start = 0;
    double end = 0;
    friend bool operator==(const CutSegment&, const CutSegment&) = default;
};

struct MaskAnnotation {
    Uuid id = Uuid::random();
    double start = 0;
    double end = 0;
    Rect rect;  // unit coordinates of the source
    MaskStyle style = MaskStyle::blur;
    std::optional<int> source;
    friend bool operator==(const MaskAnnotation&, const MaskAnnotation&) = default;
};

void fromJson(const Json& j, CanvasBackground& out);
Json toJson(const CanvasBackground& v);
void fromJson(const Json& j, ZoomSegment& out);
Json toJson(const ZoomSegment& v);
void fromJson(const Json& j, FocusSegment& out);
Json toJson(const FocusSegment& v);
void fromJson(const Json& j, SpeedSegment& out);
Json toJson(const SpeedSegment& v);
void fromJson(const Json& j, CutSegment& out);
Json toJson(const CutSegment& v);
void fromJson(const Json& j, MaskAnnotation& out);
Json toJson(const MaskAnnotation& v);

}  // namespace halvane
