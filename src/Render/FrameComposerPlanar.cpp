// Composing export frames in the encoder's planar form. The video, most of every frame, is scaled
// straight from the decoder's planes into the frame's planes; only the tiles something is drawn on
// (pointer, ripples, overlays, the video's rounded edges) are brought into a BGRA work picture,
// drawn on by the same code as the BGRA composition, and converted back. Converting every frame
// to BGRA and back cost more than composing it.

#include "Render/CanvasCoordinates.h"
#include "Render/FrameComposer.h"
#include "Render/PlanarPicture.h"
#include "Render/Resampling.h"

#include <algorithm>
#include <cstring>

namespace halvane {

namespace {

void copyArea(QImage& to, const QImage& from, const QRect& area) {
    for (int y = area.top(); y <= area.bottom(); ++y)
        std::memcpy(to.scanLine(y) + area.left() * 4, from.constScanLine(y) + area.left() * 4,
                    size_t(area.width()) * 4);
}

// Unit rectangles of a picture in its pixels, as the BGRA composition takes them.
QRectF pixelsOf(const Rect& window, double width, double height) {
    return QRectF(width * window.minX(), height * window.minY(), std::max(width * window.width(), 1.0),
                  std::max(height * window.height(), 1.0));
}

QRectF halvedRect(const QRectF& r) { return QRectF(r.x() / 2, r.y() / 2, r.width() / 2, r.height() / 2); }

// d × coverage + plate × (1 − coverage), coverage in 255ths.
inline uint8_t blendedByte(uint8_t d, uint8_t plate, uint8_t coverage) {
    const int k = coverage + (coverage >> 7);
    return uint8_t((d * k + plate * (256 - k) + 128) >> 8);
}

__attribute__((target_clones("avx2", "default")))
void blendRun(uint8_t* d, const uint8_t* plate, const uint8_t* coverage, int count) {
    for (int x = 0; x < count; ++x) d[x] = blendedByte(d[x], plate[x], coverage[x]);
}

}  // namespace

QImage FrameComposer::composeOutputPlanar(double outputTime) {
    buildStatics();
    if (planarPlate_.isNull()) {
        planarPlate_ = toPlanarPicture(statics_.plate);
        buildPlanarEdges();
    }
    if (planarPlate_.isNull()) return {};
    planarCanvases_.trim(uint64_t(std::max(input_.fps, 1.0) * 2));
    if (!multiSource_ && motionBlurSamples(outputTime) <= 1) {
        QImage planar = composePlanarFrame(sourceTime(outputTime));
        if (!planar.isNull()) return planar;
    }
    return planarCopy(composeOutputFrame(outputTime));
}

QImage FrameComposer::planarCopy(const QImage& bgra) {
    if (bgra.isNull()) return {};
    const int slot = planarCanvases_.acquire(planarPlate_, QRect());
    QImage& planar = planarCanvases_.picture(slot);
    convertIntoPlanar(bgra, planar, bgra.rect());
    return planarCanvases_.release(slot, {planar.rect()});
}

QImage FrameComposer::composePlanarFrame(double t) {
    const ScreenView view = screenView(t);
    const Yuv420View* frame = view.screen ? view.screen->planarFrame(t) : nullptr;
    if (!frame || frame->width < 1 || frame->height < 1) return {};
    drawn_.clear();
    if (work_.size() != statics_.plate.size()) work_ = statics_.plate.copy();
    const int columns = (work_.width() + workTile - 1) / workTile, rows = (work_.height() + workTile - 1) / workTile;
    inWork_.assign(size_t(columns) * size_t(rows), 0);

    const auto box = planarAreas(statics_.videoPixels, planarSize(planarPlate_));
    const int slot = planarCanvases_.acquire(planarPlate_, std::vector<QRect>(box.begin(), box.end()));
    QImage& planar = planarCanvases_.picture(slot);
    planar_ = &planar;
    struct Done {
        QImage*& planar;
        ~Done() { planar = nullptr; }
    } done{planar_};
    drawVideoPlanar(planar, *frame, view.window);
    drawOverVideo(work_, t, view.visible);
    std::vector<QRect> drawn = returnWorkToPlanar(planar);
    drawn_.clear();
    return planarCanvases_.release(slot, std::move(drawn));
}

void FrameComposer::drawVideoPlanar(QImage& planar, const Yuv420View& frame, const Rect& window) {
    const QRect box = statics_.videoPixels;  // whole 2 × 2 blocks
    const QRectF target = toTopLeft(statics_.videoRect, height());
    const QRectF source = pixelsOf(window, frame.width, frame.height);
    const auto planes = planarPlanes(planar);
    const int stride = int(planar.bytesPerLine());
    planeScalers_[0].scale(planes[0], stride, box, PlaneView{frame.planes[0], frame.strides[0], frame.width, frame.height},
                           source, target);
    // Chroma samples stand for 2 × 2 blocks in both pictures: the same placement at half scale.
    const QRect chromaBox(box.left() / 2, box.top() / 2, box.width() / 2, box.height() / 2);
    const int chromaWidth = (frame.width + 1) / 2, chromaHeight = (frame.height + 1) / 2;
    for (int c = 1; c <= 2; ++c)
        planeScalers_[c].scale(planes[size_t(c)], stride, chromaBox,
                               PlaneView{frame.planes[size_t(c)], frame.strides[size_t(c)], chromaWidth, chromaHeight},
                               halvedRect(source), halvedRect(target));
    blendPlanarEdges(planar);
}

void FrameComposer::buildPlanarEdges() {
    planarEdges_ = {};
    const QImage& mask = statics_.videoMask;
    if (mask.isNull() || mask.width() < 2 || mask.height() < 2) return;
    const int w = mask.width(), h = mask.height(), cw = w / 2, ch = h / 2;
    auto& e = planarEdges_;
    e.lumaCoverage.resize(size_t(w) * size_t(h));
    e.chromaCoverage.resize(size_t(cw) * size_t(ch));
    for (int y = 0; y < h; ++y) {
        const auto* row = reinterpret_cast<const uint32_t*>(mask.constScanLine(y));
        for (int x = 0; x < w; ++x) e.lumaCoverage[size_t(y) * size_t(w) + size_t(x)] = uint8_t(row[x] >> 24);
    }
    for (int y = 0; y < ch; ++y)
        for (int x = 0; x < cw; ++x) {
            const uint8_t* top = e.lumaCoverage.data() + size_t(2 * y) * size_t(w) + size_t(2 * x);
            e.chromaCoverage[size_t(y) * size_t(cw) + size_t(x)] =
                uint8_t((top[0] + top[1] + top[w] + top[w + 1] + 2) / 4);
        }
    auto runsOf = [](const std::vector<uint8_t>& coverage, int width, int height, std::vector<PlanarEdges::Run>& runs) {
        for (int y = 0; y < height; ++y) {
            const uint8_t* row = coverage.data() + size_t(y) * size_t(width);
            for (int x = 0; x < width;) {
                if (row[x] == 255) {
                    ++x;
                    continue;
                }
                const int from = x;
                while (x < width && row[x] != 255) ++x;
                runs.push_back({y, from, x - 1});
            }
        }
    };
    runsOf(e.lumaCoverage, w, h, e.luma);
    runsOf(e.chromaCoverage, cw, ch, e.chroma);
}

// The video towards the plate where the rounded rectangle doesn't cover it wholly.
void FrameComposer::blendPlanarEdges(QImage& planar) {
    const QRect box = statics_.videoPixels;
    const auto planes = planarPlanes(planar);
    const Yuv420View plate = planarView(planarPlate_);
    const int stride = int(planar.bytesPerLine());
    auto blend = [&](const std::vector<PlanarEdges::Run>& runs, const std::vector<uint8_t>& coverage, int width,
                     int plane, QPoint origin) {
        for (const auto& run : runs) {
            const size_t at = size_t(origin.y() + run.y) * size_t(stride) + size_t(origin.x());
            uint8_t* d = planes[size_t(plane)] + at;
            const uint8_t* p = plate.planes[size_t(plane)] + at;
            const uint8_t* c = coverage.data() + size_t(run.y) * size_t(width);
            const int count = run.to - run.from + 1;
            // Most runs are the one or two pixels of a side edge: too short to be worth a call.
            if (count >= 32) {
                blendRun(d + run.from, p + run.from, c + run.from, count);
                continue;
            }
            for (int x = run.from; x <= run.to; ++x) d[x] = blendedByte(d[x], p[x], c[x]);
        }
    };
    const int w = statics_.videoMask.width();
    blend(planarEdges_.luma, planarEdges_.lumaCoverage, w, 0, box.topLeft());
    const QPoint chromaOrigin(box.left() / 2, box.top() / 2);
    blend(planarEdges_.chroma, planarEdges_.chromaCoverage, w / 2, 1, chromaOrigin);
    blend(planarEdges_.chroma, planarEdges_.chromaCoverage, w / 2, 2, chromaOrigin);
}

// Brings the tiles under `area` that aren't in the work picture yet: from the planar frame where
// they touch the video, straight from the plate elsewhere (nothing else was drawn there yet).
void FrameComposer::bringIntoWork(const QRect& area) {
    const QRect r = area.intersected(work_.rect());
    if (r.isEmpty() || !planar_) return;
    const int columns = (work_.width() + workTile - 1) / workTile;
    for (int ty = r.top() / workTile; ty <= r.bottom() / workTile; ++ty) {
        uint8_t* row = inWork_.data() + size_t(ty) * size_t(columns);
        const int last = r.right() / workTile;
        for (int tx = r.left() / workTile; tx <= last;) {
            if (row[tx]) {
                ++tx;
                continue;
            }
            int end = tx;
            while (end <= last && !row[end]) row[end++] = 1;
            const QRect run =
                QRect(tx * workTile, ty * workTile, (end - tx) * workTile, workTile).intersected(work_.rect());
            if (run.intersects(statics_.videoPixels)) convertFromPlanar(*planar_, work_, run);
            else copyArea(work_, statics_.plate, run);
            tx = end;
        }
    }
}

// Converts the tiles drawn on back into the planar frame; gives the planar areas that now differ
// from the planar plate (beside the video box, which every frame rewrites).
std::vector<QRect> FrameComposer::returnWorkToPlanar(QImage& planar) {
    std::vector<QRect> drawn;
    const int columns = (work_.width() + workTile - 1) / workTile;
    const int rows = columns > 0 ? int(inWork_.size()) / columns : 0;
    const QSize canvas = planarSize(planar);
    for (int ty = 0; ty < rows; ++ty) {
        const uint8_t* row = inWork_.data() + size_t(ty) * size_t(columns);
        for (int tx = 0; tx < columns;) {
            if (!row[tx]) {
                ++tx;
                continue;
            }
            int end = tx;
            while (end < columns && row[end]) ++end;
            const QRect run =
                QRect(tx * workTile, ty * workTile, (end - tx) * workTile, workTile).intersected(work_.rect());
            convertIntoPlanar(work_, planar, run);
            for (const QRect& part : planarAreas(run, canvas)) drawn.push_back(part);
            tx = end;
        }
    }
    return drawn;
}

}  // namespace halvane
