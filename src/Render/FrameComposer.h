#pragma once

#include "Model/EditSettings.h"
#include "Model/RecordedEvents.h"
#include "Model/RecordingMeta.h"
#include "Model/RenderModel.h"
#include "Model/SpeedMap.h"
#include "Model/Transcript.h"
#include "Render/AnnotationArt.h"
#include "Render/BackgroundRenderer.h"
#include "Render/CanvasAnnotationBitmaps.h"
#include "Render/CanvasPool.h"
#include "Render/CardBorder.h"
#include "Render/CursorArt.h"
#include "Render/FrameSource.h"
#include "Render/LiquidGlass.h"
#include "Render/Resampling.h"

#include <QImage>
#include <QPainterPath>

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace halvane {

// What one export composes from: a snapshot of the take and its edit, and the canvas.
struct CompositionInput {
    RecordingMeta meta;
    RecordedEvents events;
    EditSettings settings;
    std::optional<Transcript> transcript;  // only when captions are on
    std::optional<std::filesystem::path> package;
    Size canvasSize;  // whole even pixels
    double fps = 60;
};

// One exported frame at any output time. The time-independent layers are built once
// (`buildStatics`); each frame then only places, clips and blends cached pictures over the decoded
// source frames. Canvas rectangles are in pixels with the origin at the bottom left; the pictures
// are QImages (top-left), so every placement goes through the canvas conversion helpers.
// Used from one thread at a time.
class FrameComposer {
public:
    struct WebcamStatics {
        Rect rect;
        QPainterPath path;  // top-left canvas pixels
        QImage shadow;      // full canvas, shadow outside the bubble only
        QRect shadowArea;   // the part of `shadow` the blur can reach
        QRect bubbleBox;    // whole pixels around the bubble, cut to the canvas
        QImage bubbleMask;  // bubbleBox-sized coverage of the path (alpha)
    };

    struct SourceCardStatics {
        Size referenceSize;
        QImage mask;  // referenceSize, white rounded card on transparent
        QImage shadow;
        double shadowMargin = 0;
        QImage border;
        double borderMargin = 0;
    };

    // A card picture (shadow, mask or border) scaled onto a canvas rectangle, on whole pixels.
    struct PlacedArt {
        QRectF target;
        QPoint topLeft;
        QImage image;
        // Per row, the run around the middle that is wholly opaque (empty: to < from).
        std::vector<int> opaqueFrom, opaqueTo;
    };

    struct Statics {
        QImage plate;        // background, card shadow and card fill
        QImage videoMask;    // videoPixels-sized coverage of the rounded video rectangle
        QRect videoPixels;   // whole-pixel box around the video, top-left
        // The parts of videoPixels that the rounded rectangle covers only partly or not at all:
        // bands along the top and bottom holding the corners, and the side columns.
        std::vector<QRect> videoEdges;
        Rect videoRect;
        Rect canvasRect;
        QImage borderImage;  // the band, placed at borderTopLeft
        QPointF borderTopLeft;
        // The tiles of borderImage that hold any paint: the band is thin, and blending the clear
        // middle of the card on every frame would cost as much as the band itself many times over.
        std::vector<QRect> borderTiles;
        // The border tiles that cross the video box and so are drawn on every frame; the others
        // are part of the plate.
        std::vector<QRect> frameBorderTiles;
        std::optional<QImage> clickEffect;
        std::map<CursorShape, CursorArt::Cursor> cursorImages;
        std::optional<QImage> spotlightDisc;
        std::optional<WebcamStatics> webcam;
        std::vector<SourceCardStatics> multiCards;
    };

    // `screens` holds one frame source per video (entry 0 the main "screen.mov"); entries may be
    // null. `camera` may be null.
    FrameComposer(CompositionInput input, std::vector<FrameSource*> screens, FrameSource* camera = nullptr,
                  double cameraOffset = 0);

    const Statics& buildStatics();
    const Statics& statics() const { return statics_; }

    // The finished frame, canvas-sized, at an output time: the one entry of the export run.
    // Pictures are reused once every copy of them is gone, so a frame may be held (or queued on
    // another thread) for as long as needed; it never changes while held. Sources are told which
    // part of their pictures each frame reads (FrameSource::setRegionOfInterest).
    QImage composeOutputFrame(double outputTime);
    // The same frame as a planar picture (makePlanarPicture), the encoder's form. When the source
    // gives its decoded planes the video is scaled straight from them, and only the parts of the
    // frame drawn on (pointer, overlays, the video's rounded edges) pass through BGRA; otherwise
    // the BGRA frame is converted whole. Pooled and safe to hold like composeOutputFrame's.
    QImage composeOutputPlanar(double outputTime);
    // The frame at a source time (single source, or multi-source when there are cards).
    QImage composeFrame(double t);

    // Output time to source time, never showing the first frame after a cut that ends the trim.
    double sourceTime(double outputTime) const;
    // How many compositions motion blur makes for the frame at an output time (1: none).
    int motionBlurSamples(double outputTime) const;

    const SpeedMap& speedMap() const { return speedMap_; }
    const RenderModel& renderModel() const { return model_; }

    // A unit point or rectangle of the source seen through `visible` and mapped into `target`
    // (canvas, bottom-left). A rectangle's result has its lower corner as origin.
    static Point project(Point p, const Rect& visible, const Rect& target);
    static Rect project(const Rect& r, const Rect& visible, const Rect& target);

    // What a source is told to convert when `window` of it is scaled onto `target`.
    static Rect readRegion(const Rect& window, const Rect& target, Size sourcePixels);

private:
    // A composed single-source picture and the areas outside `videoPixels` where it differs from
    // the plate (the video box itself is rewritten whole on every frame).
    struct Composed {
        QImage image;
        std::vector<QRect> drawn;
    };

    const PlacedArt& placedArt(PlacedArt& cached, const QImage& art, const QRectF& target);

    void buildPlateAndMask(const QImage* background);
    void buildBorder(const std::optional<CardBorder::Band>& band, const QImage* background);
    void settleBorderTiles();
    void buildPointerArt();
    void buildWebcam();
    void buildMultiCards(const QImage* background);

    // What the main screen shows at a source time: the zoom's unit rectangle and the part of the
    // source it takes (crop applied). Tells the screen which part it will be read in.
    struct ScreenView {
        Rect visible, window;
        FrameSource* screen = nullptr;
    };
    ScreenView screenView(double t);
    Composed composeSingleFrame(double t);
    QImage composeBlurredFrame(double outputTime, int samples);
    QImage composeMultiFrame(double t);
    void composeCanvasOverlays(QImage& picture, double t, const RenderState& state);

    void drawVideo(QImage& picture, const QImage& frame, const Rect& window);
    void drawOverVideo(QImage& picture, double t, const Rect& visible);
    // Called before drawing on `area` of the picture: the area is listed as differing from the
    // plate and, in planar composition, brought into the BGRA work picture first.
    void willDraw(const QRectF& area);
    void willDraw(const QRect& area);

    // Planar composition: the planar picture of the frame being composed, the BGRA work picture
    // the drawing functions paint on, and which 16-pixel tiles of it hold this frame.
    QImage composePlanarFrame(double t);
    QImage planarCopy(const QImage& bgra);
    void drawVideoPlanar(QImage& planar, const Yuv420View& frame, const Rect& window);
    void bringIntoWork(const QRect& area);
    void buildPlanarEdges();
    void blendPlanarEdges(QImage& planar);
    std::vector<QRect> returnWorkToPlanar(QImage& planar);
    void applyMasks(QImage& picture, double t, const Rect& visible, const Rect& target, const Rect& crop,
                    std::optional<int> source);
    void drawRipples(QImage& picture, const RenderState& state, const Rect& visible, const Rect& target,
                     double pointsToCanvas, std::optional<int> source);
    void drawSpotlight(QImage& picture, double t, const Rect& visible, double pointsToCanvas);
    void drawPointer(QImage& picture, Point unit, const RenderState& state, const Rect& visible, const Rect& target,
                     double pointsToCanvas);
    void drawWebcam(QImage& picture, double t);
    void drawAnnotations(QImage& picture, double t);
    void drawCaption(QImage& picture, double t);
    void drawKeystroke(QImage& picture, const RenderState& state);

    const AnnotationArt::Rendered* captionImage(const TranscriptCue& cue);
    const AnnotationArt::Rendered* keystrokeImage(const std::string& text);

    double height() const { return input_.canvasSize.height; }
    double duration() const { return input_.meta.duration; }
    std::vector<double> sourceAspects() const;

    CompositionInput input_;
    std::vector<FrameSource*> screens_;
    FrameSource* camera_;
    double cameraOffset_;
    RenderModel model_;
    SpeedMap speedMap_;
    Rect crop_;
    bool multiSource_;
    BackgroundRenderer backgrounds_;
    LiquidGlass liquid_;
    CanvasAnnotationBitmaps annotationBitmaps_;
    std::map<Uuid, std::optional<AnnotationArt::Rendered>> captionCache_;
    std::map<std::string, std::optional<AnnotationArt::Rendered>> keystrokeCache_;
    Statics statics_;
    bool built_ = false;
    // Output pictures are reused once every holder has let go of them (motion blur holds up to six
    // samples and the export queues a few finished frames).
    CanvasPool canvases_{12};
    std::vector<QRect> drawn_;  // areas outside the video box drawn on while composing a frame

    static constexpr int workTile = 16;
    QImage planarPlate_;
    CanvasPool planarCanvases_{12};
    QImage* planar_ = nullptr;  // set while a planar frame is composed
    QImage work_;
    std::vector<uint8_t> inWork_;  // per work tile, row by row
    // The video's rounded edges in planar form: per row of the box (and of its chroma), the runs
    // the rounded rectangle covers partly or not at all, with the coverage there (for chroma the
    // mean over each 2 × 2 block). Blending towards the plate is linear, and so is the step from
    // RGB to YUV, so the edges blend in the planes themselves.
    struct PlanarEdges {
        struct Run {
            int y, from, to;  // relative to the box, `to` included
        };
        std::vector<Run> luma, chroma;
        std::vector<uint8_t> lumaCoverage, chromaCoverage;
    };
    PlanarEdges planarEdges_;
    PlaneScaler planeScalers_[3];
    // Multi-source frames: each card's scaled shadow, mask and border, kept while the card stands
    // still, and two canvas-sized layers reused for every card (only the card's area is used).
    struct CardArt {
        PlacedArt shadow, mask, border;
    };
    std::vector<CardArt> cardArt_;
    QImage cardLayer_, liftedLayer_;
    QImage cameraLayer_;  // the camera frame scaled over the bubble's box
};

}  // namespace halvane
