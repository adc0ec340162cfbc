#include "Model/EditSettings.h"

#include <algorithm>

namespace halvane {

TimeRange EditSettings::trimBounds(double duration) const {
    double end = std::min(duration, trimEnd.value_or(duration));
    double start = std::max(trimStart, 0.0);
    start = std::min(start, std::max(end - 0.1, 0.0));
    double upper = std::max(end, start + 0.01);
    return {start, upper};
}

Rect EditSettings::cropRect() const {
    if (!sourceCrop) return {0, 0, 1, 1};
    double w = std::clamp(sourceCrop->size.width, 0.1, 1.0);
    double h = std::clamp(sourceCrop->size.height, 0.1, 1.0);
    double x = std::clamp(sourceCrop->origin.x, 0.0, 1.0 - w);
    double y = std::clamp(sourceCrop->origin.y, 0.0, 1.0 - h);
    return {x, y, w, h};
}

namespace {
// Turning the background on at the automatic aspect brings back the margin and corner a fresh
// edit has, unless the user already chose a margin.
void restoreFramingIfBare(EditSettings& s) {
    const EditSettings fresh;
    if (s.padding < 0.001 && s.canvasAspect == CanvasAspect::autoAspect) {
        s.padding = fresh.padding;
        if (s.cornerRadiusFraction < 0.001) s.cornerRadiusFraction = fresh.cornerRadiusFraction;
    }
}
}  // namespace

void EditSettings::setShowBackground(bool on) {
    showBackground = on;
    if (!on) {
        padding = 0;
        cornerRadiusFraction = 0;
        return;
    }
    restoreFramingIfBare(*this);
}

void EditSettings::setBackground(CanvasBackground value) {
    background = std::move(value);
    showBackground = true;
    restoreFramingIfBare(*this);
}

void fromJson(const Json& j, EditSettings& out) {
    JsonObjectReader r(j);
    EditSettings s;
    r.lenient("canvasAspect", s.canvasAspect);
    r.lenient("background", s.background);
    r.lenient("showBackground", s.showBackground);
    r.lenient("backgroundBlur", s.backgroundBlur);
    r.lenient("padding", s.padding);
    r.lenient("inset", s.inset);
    r.lenient("cornerRadiusFraction", s.cornerRadiusFraction);
    r.lenient("shadow", s.shadow);
    r.lenient("borderWidth", s.borderWidth);
    r.lenient("borderStyle", s.borderStyle);
    r.lenient("showCursor", s.showCursor);
    r.lenient("cursorScale", s.cursorScale);
    r.lenient("cursorSmoothness", s.cursorSmoothness);
    r.lenient("cursorStyle", s.cursorStyle);
    r.lenient("cursorSyncShape", s.cursorSyncShape);
    r.lenient("cursorLoop", s.cursorLoop);
    if (!r.lenient("clickEffect", s.clickEffect)) {
        bool ripples = true;
        if (r.lenient(EditSettingsLegacyKeys::clickRipples, ripples))
            s.clickEffect = ripples ? ClickEffect::ripple : ClickEffect::none;
    }
    r.lenient("clickBounce", s.clickBounce);
    r.lenient("cursorAutoHide", s.cursorAutoHide);
    r.lenient("autoZoom", s.autoZoom);
    r.lenient("autoZoomLevel", s.autoZoomLevel);
    r.lenient("zoomSpeed", s.zoomSpeed);
    r.lenient("zoomFollowCursor", s.zoomFollowCursor);
    r.lenient("zooms", s.zooms);
    r.lenient("focusSwitches", s.focusSwitches);
    r.lenient("motionBlur", s.motionBlur);
    r.lenient("speeds", s.speeds);
    r.lenient("annotations", s.annotations);
    r.lenient("cuts", s.cuts);
    r.lenient("clipSplits", s.clipSplits);
    r.lenient("masks", s.masks);
    r.lenient("sourceCrop", s.sourceCrop);
    r.lenient("trimStart", s.trimStart);
    r.lenient("trimEnd", s.trimEnd);
    r.lenient("audioMuted", s.audioMuted);
    r.lenient("audioVolume", s.audioVolume);
    r.lenient("audioDenoise", s.audioDenoise);
    r.lenient("audioNormalize", s.audioNormalize);
    if (!r.lenient("clickSound", s.clickSound)) {
        bool sounds = false;
        if (r.lenient(EditSettingsLegacyKeys::clickSounds, sounds))
            s.clickSound = sounds ? ClickSoundKind::magicMouse : ClickSoundKind::none;
    }
    r.lenient("musicFileName", s.musicFileName);
    r.lenient("musicVolume", s.musicVolume);
    r.lenient("captionsEnabled", s.captionsEnabled);
    r.lenient("captionSize", s.captionSize);
    r.lenient("transcriptionLocaleIdentifier", s.transcriptionLocaleIdentifier);
    r.lenient("showKeystrokes", s.showKeystrokes);
    r.lenient("keystrokeMode", s.keystrokeMode);
    r.lenient("keystrokeSize", s.keystrokeSize);
    r.lenient("webcamEnabled", s.webcamEnabled);
    r.lenient("webcamSize", s.webcamSize);
    r.lenient("webcamCorner", s.webcamCorner);
    r.lenient("webcamShape", s.webcamShape);
    r.lenient("webcamPortraitRatio", s.webcamPortraitRatio);
    out = std::move(s);
}

Json toJson(const EditSettings& v) {
    Json j = Json::object();
    j["canvasAspect"] = toJson(v.canvasAspect);
    j["background"] = toJson(v.background);
    j["showBackground"] = v.showBackground;
    j["backgroundBlur"] = v.backgroundBlur;
    j["padding"] = v.padding;
    j["inset"] = v.inset;
    j["cornerRadiusFraction"] = v.cornerRadiusFraction;
    j["shadow"] = v.shadow;
    j["borderWidth"] = v.borderWidth;
    j["borderStyle"] = toJson(v.borderStyle);
    j["showCursor"] = v.showCursor;
    j["cursorScale"] = v.cursorScale;
    j["cursorSmoothness"] = v.cursorSmoothness;
    j["cursorStyle"] = toJson(v.cursorStyle);
    j["cursorSyncShape"] = v.cursorSyncShape;
    j["cursorLoop"] = v.cursorLoop;
    j["clickEffect"] = toJson(v.clickEffect);
    j["clickBounce"] = v.clickBounce;
    j["cursorAutoHide"] = v.cursorAutoHide;
    j["autoZoom"] = v.autoZoom;
    j["autoZoomLevel"] = v.autoZoomLevel;
    j["zoomSpeed"] = v.zoomSpeed;
    j["zoomFollowCursor"] = v.zoomFollowCursor;
    j["zooms"] = toJson(v.zooms);
    j["focusSwitches"] = toJson(v.focusSwitches);
    j["motionBlur"] = v.motionBlur;
    j["speeds"] = toJson(v.speeds);
    j["annotations"] = toJson(v.annotations);
    j["cuts"] = toJson(v.cuts);
    j["clipSplits"] = toJson(v.clipSplits);
    j["masks"] = toJson(v.masks);
    putOptional(j, "sourceCrop", v.sourceCrop);
    j["trimStart"] = v.trimStart;
    putOptional(j, "trimEnd", v.trimEnd);
    j["audioMuted"] = v.audioMuted;
    j["audioVolume"] = v.audioVolume;
    j["audioDenoise"] = v.audioDenoise;
    j["audioNormalize"] = v.audioNormalize;
    j["clickSound"] = toJson(v.clickSound);
    putOptional(j, "musicFileName", v.musicFileName);
    j["musicVolume"] = v.musicVolume;
    j["captionsEnabled"] = v.captionsEnabled;
    j["captionSize"] = v.captionSize;
    putOptional(j, "transcriptionLocaleIdentifier", v.transcriptionLocaleIdentifier);
    j["showKeystrokes"] = v.showKeystrokes;
    j["keystrokeMode"] = toJson(v.keystrokeMode);
    j["keystrokeSize"] = v.keystrokeSize;
    j["webcamEnabled"] = v.webcamEnabled;
    j["webcamSize"] = v.webcamSize;
    j["webcamCorner"] = toJson(v.webcamCorner);
    j["webcamShape"] = toJson(v.webcamShape);
    j["webcamPortraitRatio"] = toJson(v.webcamPortraitRatio);
    return j;
}

}  // namespace halvane
