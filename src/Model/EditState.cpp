#include "Model/EditState.h"

#include "Support/Clock.h"

#include <tuple>

namespace halvane {

namespace {

// The crop compares like geometry does: a rectangle dragged "backwards" equals its standardized self.
bool sameCrop(const std::optional<Rect>& a, const std::optional<Rect>& b) {
    if (a.has_value() != b.has_value()) return false;
    return !a || a->standardized() == b->standardized();
}

auto appearanceFields(const EditSettings& s) {
    return std::tie(s.canvasAspect, s.background, s.backgroundBlur, s.padding, s.inset, s.cornerRadiusFraction, s.shadow,
                    s.borderWidth, s.borderStyle, s.webcamEnabled, s.webcamSize, s.webcamCorner, s.webcamShape,
                    s.webcamPortraitRatio);
}

auto cursorFields(const EditSettings& s) {
    return std::tie(s.showCursor, s.cursorScale, s.cursorSmoothness, s.cursorStyle, s.cursorSyncShape, s.cursorLoop,
                    s.clickEffect, s.clickBounce, s.cursorAutoHide);
}

auto zoomFields(const EditSettings& s) {
    return std::tie(s.zooms, s.autoZoom, s.autoZoomLevel, s.zoomSpeed, s.zoomFollowCursor, s.motionBlur);
}

auto captionFields(const EditSettings& s) { return std::tie(s.captionsEnabled, s.captionSize, s.transcriptionLocaleIdentifier); }
auto keystrokeFields(const EditSettings& s) { return std::tie(s.showKeystrokes, s.keystrokeSize, s.keystrokeMode); }
auto trimFields(const EditSettings& s) { return std::tie(s.trimStart, s.trimEnd); }

auto audioFields(const EditSettings& s) {
    return std::tie(s.audioMuted, s.audioVolume, s.audioDenoise, s.audioNormalize, s.clickSound, s.musicFileName, s.musicVolume);
}

}  // namespace

EditState::EditState(EditSettings settings, Clock clock) : settings_(std::move(settings)), clock_(std::move(clock)) {}

double EditState::now() const { return clock_ ? clock_() : systemUptime(); }

EditState::ChangeSet EditState::changes(const EditSettings& a, const EditSettings& b) {
    ChangeSet set;
    auto mark = [&set](Change c, bool differs) {
        if (differs) set.insert(c);
    };
    mark(Change::appearance, appearanceFields(a) != appearanceFields(b));
    mark(Change::cursor, cursorFields(a) != cursorFields(b));
    mark(Change::zooms, zoomFields(a) != zoomFields(b));
    mark(Change::focus, a.focusSwitches != b.focusSwitches);
    mark(Change::speeds, a.speeds != b.speeds);
    mark(Change::annotations, a.annotations != b.annotations);
    mark(Change::cuts, a.cuts != b.cuts);
    mark(Change::clips, a.clipSplits != b.clipSplits);
    mark(Change::masks, a.masks != b.masks);
    mark(Change::crop, !sameCrop(a.sourceCrop, b.sourceCrop));
    mark(Change::captions, captionFields(a) != captionFields(b));
    mark(Change::keystrokes, keystrokeFields(a) != keystrokeFields(b));
    mark(Change::trim, trimFields(a) != trimFields(b));
    mark(Change::audio, audioFields(a) != audioFields(b));
    return set;
}

void EditState::notify(Change change) {
    // An observer may add another; the newcomer hears from the next change on.
    const std::size_t count = onChange.size();
    for (std::size_t i = 0; i < count; ++i)
        if (onChange[i]) onChange[i](change);
}

void EditState::edit(std::string name, Change change, const Mutation& mutate, bool coalescing) {
    commitGesture();
    EditSettings before = settings_;
    mutate(settings_);
    history_.record(std::move(name), std::move(before), settings_, coalescing, now());
    notify(change);
}

void EditState::editGesture(std::string_view name, Change change, const Mutation& mutate) {
    if (activeGesture_ && activeGesture_->name != name) commitGesture();
    if (!activeGesture_) activeGesture_ = Gesture{std::string(name), settings_};
    mutate(settings_);
    notify(change);
}

void EditState::commitGesture() {
    if (!activeGesture_) return;
    Gesture gesture = std::move(*activeGesture_);
    activeGesture_.reset();
    // Observers have seen every tick; the history gets the drag as one step, never merged.
    history_.record(std::move(gesture.name), std::move(gesture.before), settings_, false, now());
}

void EditState::apply(EditSettings newValue) {
    ChangeSet changed = changes(settings_, newValue);
    // A difference no case covers (showBackground alone) still has to reach everyone.
    if (changed.empty() && !(settings_ == newValue)) changed = ChangeSet::all();
    settings_ = std::move(newValue);
    for (std::size_t i = 0; i < changeCount; ++i) {
        auto change = static_cast<Change>(i);
        if (changed.contains(change)) notify(change);
    }
}

bool EditState::undo() {
    commitGesture();
    auto entry = history_.undo();
    if (!entry) return false;
    apply(std::move(entry->before));
    return true;
}

bool EditState::redo() {
    commitGesture();
    auto entry = history_.redo();
    if (!entry) return false;
    apply(std::move(entry->after));
    return true;
}

}  // namespace halvane
