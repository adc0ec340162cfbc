#pragma once

#include "Support/Json.h"

#include <optional>
#include <string>
#include <vector>

namespace halvane {

// Pointer position in unit coordinates of the capture rectangle, origin top left.
struct MouseSample {
    double t = 0;
    double x = 0;
    double y = 0;
    friend bool operator==(const MouseSample&, const MouseSample&) = default;
};

enum class ClickPhase { down, up };
constexpr auto enumNames(ClickPhase) { return std::array<std::string_view, 2>{"down", "up"}; }

struct ClickEvent {
    double t = 0;
    double x = 0;
    double y = 0;
    int button = 0;  // 0 left, 1 right, others other buttons
    ClickPhase phase = ClickPhase::down;
    std::optional<int> source;  // when present, x and y are normalised to that source
    friend bool operator==(const ClickEvent&, const ClickEvent&) = default;
};

// Modifier bits of KeyEvent::modifiers.
enum KeyModifier : int { modifierControl = 1, modifierOption = 2, modifierShift = 4, modifierCommand = 8 };

struct KeyEvent {
    double t = 0;
    std::string label;
    int modifiers = 0;
    friend bool operator==(const KeyEvent&, const KeyEvent&) = default;
};

enum class CursorShape {
    arrow,
    iBeam,
    pointingHand,
    closedHand,
    openHand,
    crosshair,
    resizeLeftRight,
    resizeUpDown,
    contextualMenu,
    operationNotAllowed,
};
constexpr auto enumNames(CursorShape) {
    return std::array<std::string_view, 10>{"arrow",     "iBeam",           "pointingHand", "closedHand",     "openHand",
                                            "crosshair", "resizeLeftRight", "resizeUpDown", "contextualMenu", "operationNotAllowed"};
}

struct CursorShapeSample {
    double t = 0;
    CursorShape shape = CursorShape::arrow;
    friend bool operator==(const CursorShapeSample&, const CursorShapeSample&) = default;
};

struct FocusSample {
    double t = 0;
    int source = 0;
    friend bool operator==(const FocusSample&, const FocusSample&) = default;
};

// A source's frame in global top-left points at a time.
struct WindowFrameSample {
    double t = 0;
    Rect frame;
    friend bool operator==(const WindowFrameSample&, const WindowFrameSample&) = default;
};

// "events.json": pointer, clicks, keys, shapes and focus on the pause-free source clock.
struct RecordedEvents {
    std::vector<MouseSample> samples;
    std::vector<ClickEvent> clicks;
    std::vector<KeyEvent> keys;
    std::vector<CursorShapeSample> shapes;
    std::vector<FocusSample> focus;
    std::optional<Rect> pointerSpace;
    std::vector<std::vector<WindowFrameSample>> windowFrames;

    // Left-button presses in stored order.
    std::vector<ClickEvent> leftClickDowns() const;

    friend bool operator==(const RecordedEvents&, const RecordedEvents&) = default;
};

void fromJson(const Json& j, MouseSample& out);
void fromJson(const Json& j, ClickEvent& out);
void fromJson(const Json& j, KeyEvent& out);
void fromJson(const Json& j, CursorShapeSample& out);
void fromJson(const Json& j, FocusSample& out);
void fromJson(const Json& j, WindowFrameSample& out);
void fromJson(const Json& j, RecordedEvents& out);
Json toJson(const MouseSample& v);
Json toJson(const ClickEvent& v);
Json toJson(const KeyEvent& v);
Json toJson(const CursorShapeSample& v);
Json toJson(const FocusSample& v);
Json toJson(const WindowFrameSample& v);
Json toJson(const RecordedEvents& v);

}  // namespace halvane
