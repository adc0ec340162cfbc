#pragma once

// Frame sources and small pieces of edit shared by the composition tests.

#include "Model/EditSettings.h"
#include "Model/RecordingMeta.h"
#include "Model/Transcript.h"
#include "Render/FrameSource.h"
#include "Render/PlanarPicture.h"

#include <QColor>
#include <QImage>

#include <functional>

namespace halvane::test {

// Frames made on demand from a function of time.
class FunctionFrames : public FrameSource {
public:
    explicit FunctionFrames(std::function<QImage(double)> make) : make_(std::move(make)) {}
    const QImage* frame(double t) override {
        current_ = make_(t);
        return current_.isNull() ? nullptr : &current_;
    }

private:
    std::function<QImage(double)> make_;
    QImage current_;
};

inline QImage solidFrame(QColor c, int w = 320, int h = 200) {
    QImage image(w, h, QImage::Format_ARGB32_Premultiplied);
    image.fill(c);
    return image;
}

// The same frames, also given in planar form as a decoder would: the BGRA picture is the planar
// one converted back, so both compositions start from the same pixels.
class PlanarFunctionFrames : public FrameSource {
public:
    explicit PlanarFunctionFrames(std::function<QImage(double)> make) : make_(std::move(make)) {}
    const QImage* frame(double t) override {
        if (!make(t)) return nullptr;
        current_ = QImage(planar_.width(), planarSize(planar_).height(), QImage::Format_ARGB32_Premultiplied);
        convertFromPlanar(planar_, current_, current_.rect());
        return &current_;
    }
    const Yuv420View* planarFrame(double t) override {
        if (!make(t)) return nullptr;
        view_ = planarView(planar_);
        return &view_;
    }

private:
    bool make(double t) {
        const QImage image = make_(t);
        if (image.isNull()) return false;
        planar_ = toPlanarPicture(image);
        return true;
    }
    std::function<QImage(double)> make_;
    QImage planar_, current_;
    Yuv420View view_;
};

inline ZoomSegment zoomOn(double level, Point target, double start, double end) {
    ZoomSegment zoom;
    zoom.start = start;
    zoom.end = end;
    zoom.level = level;
    zoom.target = target;
    return zoom;
}

// A ten-second take of a 320 × 200 screen at one pixel per point.
inline RecordingMeta smallScreenMeta() {
    RecordingMeta meta;
    meta.pixelWidth = 320;
    meta.pixelHeight = 200;
    meta.pointWidth = 320;
    meta.pointHeight = 200;
    meta.scale = 1;
    meta.duration = 10;
    return meta;
}

// A transcript whose one cue, a caption below the video, shows from `start` to `end`.
inline Transcript oneCaption(double start, double end) {
    Transcript transcript;
    transcript.locale = "en_US";
    TranscriptCue cue;
    cue.text = "A caption below the video";
    cue.start = start;
    cue.end = end;
    transcript.cues = {cue};
    return transcript;
}

}  // namespace halvane::test
