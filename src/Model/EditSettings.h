#pragma once

#include "Model/CanvasAnnotation.h"
#include "Model/ClipTimeline.h"
#include "Model/EditTypes.h"
#include "Model/SpeedMap.h"
#include "Model/TimeRange.h"
#include "Support/CowList.h"
#include "Support/Json.h"

#include <optional>
#include <string>

namespace halvane {


// Every decision the user takes about a take, stored as "edit.json". List fields share their
// storage between copies until written, so undo snapshots stay cheap.
struct EditSettings {
    CanvasAspect canvasAspect = CanvasAspect::autoAspect;
    CanvasBackground background;
    bool showBackground = true;
    double backgroundBlur = 0;
    double padding = 0.07;
    double inset = 0;
    double cornerRadiusFraction = 0.016;
    double shadow = 0.6;
    double borderWidth = 0;
    CardBorderStyle borderStyle = CardBorderStyle::glass;
    bool showCursor = true;
    double cursorScale = 3.0;
    double cursorSmoothness = 0.67;
    CursorStyle cursorStyle = CursorStyle::arrow;
    bool cursorSyncShape = true;
    bool cursorLoop = false;
    ClickEffect clickEffect = ClickEffect::ripple;
    bool clickBounce = true;
    bool cursorAutoHide = false;
    bool autoZoom = true;
    double autoZoomLevel = 1.75;
    double zoomSpeed = 1.0;
    bool zoomFollowCursor = true;
    CowList<ZoomSegment> zooms;
    CowList<FocusSegment> focusSwitches;
    bool motionBlur = false;
    CowList<SpeedSegment> speeds;
    CowList<CanvasAnnotation> annotations;
    CowList<CutSegment> cuts;
    CowList<double> clipSplits;
    CowList<MaskAnnotation> masks;
    std::optional<Rect> sourceCrop;
    double trimStart = 0;
    std::optional<double> trimEnd;
    bool audioMuted = false;
    double audioVolume = 1.0;
    bool audioDenoise = false;
    bool audioNormalize = false;
    ClickSoundKind clickSound = ClickSoundKind::none;
    std::optional<std::string> musicFileName;
    double musicVolume = 0.45;
    bool captionsEnabled = false;
    double captionSize = 0.032;
    std::optional<std::string> transcriptionLocaleIdentifier;
    bool showKeystrokes = true;
    KeystrokeMode keystrokeMode = KeystrokeMode::commandKeys;
    double keystrokeSize = 0.038;
    bool webcamEnabled = true;
    double webcamSize = 0.24;
    WebcamCorner webcamCorner = WebcamCorner::bottomRight;
    WebcamShape webcamShape = WebcamShape::squircle;
    WebcamPortraitRatio webcamPortraitRatio = WebcamPortraitRatio::twoThree;

    WebcamFrame webcamFrame() const { return {webcamShape, webcamPortraitRatio}; }

    // The trimmed source range: never shorter than 0.01 s, start never within 0.1 s of the end.
    TimeRange trimBounds(double duration) const;

    // `sourceCrop` held to a usable rectangle, or the full frame (0, 0, 1, 1).
    Rect cropRect() const;

    // Source to output time for this edit's trim, cuts and speeds.
    SpeedMap speedMap(double duration) const;

    // Clips and the operations on them; all times are source seconds.
    ClipTimeline clipTimeline(double duration) const;
    void trimClip(const ClipTrim& trim, const ClipSegment& to);
    bool splitClip(double t, double duration, double minimumDuration);
    bool canDeleteClip(const ClipSegment& segment, double duration) const;
    bool deleteClip(const ClipSegment& segment, double duration);

    void setShowBackground(bool on);
    void setBackground(CanvasBackground value);

    friend bool operator==(const EditSettings&, const EditSettings&) = default;
};

// Keys older files hold and newer ones don't write.
struct EditSettingsLegacyKeys {
    static constexpr const char* clickRipples = "clickRipples";
    static constexpr const char* clickSounds = "clickSounds";
};

// Lenient per key; list keys fall back to empty as a whole when one element is bad.
void fromJson(const Json& j, EditSettings& out);
Json toJson(const EditSettings& v);

}  // namespace halvane
