#pragma once

#include "Model/EditTypes.h"
#include "Model/RecordedEvents.h"
#include "Support/Color.h"
#include "Support/Geometry.h"

#include <QImage>

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace halvane {

// The bitmaps drawn over a recording: the ten pointer shapes, the dot pointer, the two click
// effects and the spotlight disc. Each is built on first use, once per process, and only read after.
class CursorArt {
public:
    struct Cursor {
        QImage image;          // ARGB32 premultiplied
        Point hotspotUnit;     // fraction of the image, x from the left, y from the top
        Size pointSize;        // size at cursor scale 1
        friend bool operator==(const Cursor&, const Cursor&) = default;
    };

    static Color effectBlue() { return {10 / 255.0, 132 / 255.0, 1.0, 1.0}; }

    // The art used at composition; absent when its bitmap couldn't be made.
    static const std::optional<Cursor>& dot();
    static const std::optional<QImage>& rippleRing();
    static const std::optional<QImage>& circleDisc();
    static const std::optional<QImage>& spotlightDisc();

    // One pointer per shape: the desktop's cursor theme where it has the shape at a useful size,
    // otherwise the program's own drawing.
    static const std::map<CursorShape, Cursor>& systemCursors();
    static std::optional<Cursor> arrow();
    // Style dot gives the dot whatever the shape; arrow and spotlight the shape's pointer, or the
    // arrow when the shape has none.
    static std::optional<Cursor> cursor(CursorStyle style, CursorShape shape);

    // Building blocks, public for tests and for the preview, which shows the same pointers.
    // X cursor names tried for a shape, most specific first.
    static std::vector<std::string> themeNames(CursorShape shape);
    // The shape from an X cursor theme (nullptr: the user's, from XCURSOR_THEME or "default") at
    // the largest size the theme has; absent if the theme lacks the shape or its largest image is
    // under minimumPixels across.
    static std::optional<Cursor> themeCursor(CursorShape shape, const char* theme = nullptr, int minimumPixels = 64);
    // The program's own pointer, drawn as vectors at high resolution.
    static Cursor vectorCursor(CursorShape shape);

    // The size a theme cursor of nominal size 24 (the desktop's 1× size) stands at.
    static constexpr double nominalPointSize = 24;
    // Pixels across of a vector pointer.
    static constexpr int vectorPixels = 128;
};

}  // namespace halvane
