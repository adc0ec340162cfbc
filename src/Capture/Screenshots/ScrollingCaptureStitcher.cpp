#include "Capture/Screenshots/ScrollingCaptureStitcher.h"

#include "Capture/Screenshots/ScrollingRowMatch.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>

namespace halvane {

namespace {

using Tag = ScrollingCaptureStitcher::Outcome::Tag;

// A frame counts as static when at least this share of its rows is unchanged.
constexpr double staticShare = 0.985;
// Fewer moving rows than this can't be aligned.
constexpr int minimumBandRows = 32;

Bitmap makeBitmap(int width, int height, std::vector<std::uint8_t> pixels) {
    Bitmap image;
    image.width = width;
    image.height = height;
    image.bytesPerRow = width * 4;
    image.pixels = std::make_shared<const std::vector<std::uint8_t>>(std::move(pixels));
    return image;
}

int countLeading(const std::vector<bool>& same) {
    return int(std::find(same.begin(), same.end(), false) - same.begin());
}

int countTrailing(const std::vector<bool>& same) {
    return int(std::find(same.rbegin(), same.rend(), false) - same.rbegin());
}

}  // namespace

int ScrollingCaptureStitcher::bodyRows() const {
    int total = 0;
    for (const Chunk& c : chunks_) total += c.rows;
    return total;
}

int ScrollingCaptureStitcher::footerStart() const {
    return std::min(std::max(bodyRows() - bodyOffset_, headerRows_), height_);
}

int ScrollingCaptureStitcher::canvasRows() const {
    if (!reference_) return 0;
    return headerRows_ + bodyRows() + height_ - footerStart();
}

ScrollingCaptureStitcher::Outcome ScrollingCaptureStitcher::start(const ScrollingFrame& frame) {
    width_ = frame.width;
    height_ = frame.height;
    reference_ = frame;
    firstFrame_ = frame.pixels;
    chunks_.clear();
    bodyBytes_ = 0;
    insertChunk(*frame.pixels, frame.height, false);
    bodyOffset_ = 0;
    return {Tag::matched, 0, frame.height};
}

// Where the content of `frame` sits relative to the reference, or why that can't be told.
ScrollingCaptureStitcher::Movement ScrollingCaptureStitcher::measure(
    const ScrollingFrame& frame, std::optional<int> expectedOffset) const {
    const ScrollingRowSignature& before = reference_->signature;
    const ScrollingRowSignature& now = frame.signature;
    const auto same = ScrollingRowMatch::sameRows(before, now);
    const auto sameCount = std::count(same.begin(), same.end(), true);
    const bool isStatic = height_ * staticShare <= double(sameCount);
    const int leading = countLeading(same);
    const int trailing = countTrailing(same);
    const int floor = headerKnown_ ? headerRows_ : 0;
    const int e = expectedOffset.value_or(0);

    if (isStatic) {
        // A flat page looks the same after a scroll: only the request says that it moved.
        const int bandRows = height_ - floor;
        const bool trust = e != 0 && bandRows >= minimumBandRows &&
                           std::abs(e) <= bandRows - ScrollingRowMatch::windowRows(bandRows) &&
                           ScrollingRowMatch::activity(now, floor, height_) < ScrollingRowMatch::flatActivity;
        if (!trust) return Movement{Tag::unchanged, 0, 0, 0, true, leading};
        return Movement{Tag::trusted, e, height_, bandRows, true, leading};
    }

    const int top = std::max(leading, floor);
    const int bottom = height_ - trailing;
    const int bandRows = bottom - top;
    if (bandRows < minimumBandRows) return Movement{Tag::unchanged, 0, bottom, bandRows, false, leading};

    if (const auto match = ScrollingRowMatch::estimateOffset(before, now, top, bottom, expectedOffset))
        return Movement{Tag::matched, match->dy, bottom, bandRows, false, leading};

    if (e != 0 && std::abs(e) <= bandRows - ScrollingRowMatch::windowRows(bandRows)) {
        // Nothing to align on: take the expected offset if the rows it pairs agree and are flat.
        const auto score = ScrollingRowMatch::overlapScore(before, now, top, bottom, e);
        const int lo = top + std::max(-e, 0);
        const int hi = top + std::min(bandRows, bandRows - e);
        if (score && *score <= ScrollingRowMatch::acceptedScore &&
            ScrollingRowMatch::activity(now, lo, hi) < ScrollingRowMatch::flatActivity &&
            ScrollingRowMatch::activity(before, lo + e, hi + e) < ScrollingRowMatch::flatActivity)
            return Movement{Tag::trusted, e, bottom, bandRows, false, leading};
    }
    return Movement{Tag::lost, 0, bottom, bandRows, false, leading};
}

ScrollingCaptureStitcher::Outcome ScrollingCaptureStitcher::ingest(const ScrollingFrame& frame,
                                                                   std::optional<int> expectedOffset) {
    if (!reference_) return start(frame);
    if (frame.width != width_ || frame.height != height_) return {Tag::lost, 0, 0};

    const auto movement = measure(frame, expectedOffset);
    if (movement.tag != Tag::matched && movement.tag != Tag::trusted) return {movement.tag, 0, 0};
    lastBandRows_ = movement.bandRows;
    const int dy = movement.dy;
    if (dy == 0) return {Tag::unchanged, 0, 0};

    if (!headerKnown_) establishHeader(movement.isStatic ? 0 : movement.leading, movement.bandBottom);
    if (dy > 0) confirmPendingAppend(frame, dy);
    pendingAppend_.reset();

    // Frame row r is body row r + newOffset.
    const int newOffset = bodyOffset_ + dy;
    const int total = bodyRows();
    const int prepend = std::max(-(newOffset + headerRows_), 0);
    const int appendStart = std::max(total - newOffset, headerRows_);
    const int appendEnd = std::max(movement.bandBottom, appendStart);
    const int append = appendEnd - appendStart;
    const std::int64_t growth = std::int64_t(prepend + append) * width_ * 4;
    if (bodyBytes_ + growth > configuration_.maxBodyBytes) return {Tag::limit, 0, 0};

    bodyOffset_ = newOffset;
    if (prepend > 0) {
        insertChunk(frame.rowData(headerRows_, headerRows_ + prepend), prepend, true);
        bodyOffset_ += prepend;
    }
    if (appendStart < movement.bandBottom) {
        insertChunk(frame.rowData(appendStart, appendEnd), append, false);
        pendingAppend_ = RowRange{appendStart, appendEnd};
    }
    reference_ = frame;
    footerPreview_.reset();
    return {movement.tag, dy, prepend + append};
}

// The first real movement tells which rows at the top never move: they become the header, and
// the first frame's body ends where its moving band ended, leaving what lay below to the footer.
void ScrollingCaptureStitcher::establishHeader(int headerEnd, int firstBandBottom) {
    headerKnown_ = true;
    headerRows_ = headerEnd;
    if (chunks_.size() != 1 || !firstFrame_) return;
    const std::size_t rowBytes = std::size_t(width_) * 4;
    const std::uint8_t* first = firstFrame_->data();
    header_.assign(first, first + std::size_t(headerEnd) * rowBytes);
    headerPreview_.reset();

    const int bottom = std::max(firstBandBottom, headerEnd);
    Chunk& body = chunks_.front();
    body.data.assign(first + std::size_t(headerEnd) * rowBytes, first + std::size_t(bottom) * rowBytes);
    body.rows = bottom - headerEnd;
    body.preview.reset();
    bodyBytes_ = std::int64_t(body.data.size());
    bodyOffset_ = -headerEnd;
    pendingAppend_ = RowRange{headerEnd, bottom};
    firstFrame_.reset();
}

// Rows at the bottom of the last appended slice that did not survive this scroll (a footer bar,
// a fading edge) are taken back before new rows are laid below them.
void ScrollingCaptureStitcher::confirmPendingAppend(const ScrollingFrame& frame, int dy) {
    if (!pendingAppend_ || !reference_ || chunks_.empty()) return;
    const auto [p, q] = *pendingAppend_;
    if (chunks_.back().rows < q - p) return;
    int bad = 0;
    for (int r = q - 1; r >= p; --r) {
        if (r - dy < 0) break;
        if (ScrollingRowMatch::rowDifference(reference_->signature, r, frame.signature, r - dy) <
            ScrollingRowMatch::sameRowLimit)
            break;
        ++bad;
    }
    if (bad >= 1) shortenLastChunk(bad);
}

void ScrollingCaptureStitcher::insertChunk(std::vector<std::uint8_t> data, int rows, bool atHead) {
    if (rows < 1 || data.empty()) return;
    Chunk chunk{std::move(data), rows, std::nullopt};
    bodyBytes_ += std::int64_t(chunk.data.size());
    if (atHead)
        chunks_.push_front(std::move(chunk));
    else
        chunks_.push_back(std::move(chunk));
}

void ScrollingCaptureStitcher::shortenLastChunk(int rows) {
    Chunk& last = chunks_.back();
    rows = std::min(rows, last.rows);
    const std::size_t removed = std::size_t(rows) * std::size_t(width_) * 4;
    last.data.resize(last.data.size() - removed);
    last.rows -= rows;
    last.preview.reset();
    bodyBytes_ -= std::int64_t(removed);
    if (last.rows == 0) chunks_.pop_back();
}

std::optional<Bitmap> ScrollingCaptureStitcher::compose() const {
    if (!reference_ || width_ < 1) return std::nullopt;
    const int footer = footerStart();
    std::vector<std::uint8_t> joined;
    joined.reserve(header_.size() + std::size_t(bodyBytes_) + std::size_t(height_ - footer) * width_ * 4);
    joined.insert(joined.end(), header_.begin(), header_.end());
    for (const Chunk& c : chunks_) joined.insert(joined.end(), c.data.begin(), c.data.end());
    const auto tail = reference_->rowData(footer, height_);
    joined.insert(joined.end(), tail.begin(), tail.end());
    if (joined.empty()) return std::nullopt;
    const int rows = int(joined.size() / (std::size_t(width_) * 4));
    return makeBitmap(width_, rows, std::move(joined));
}

// Nearest-neighbour scaling to previewWidth: previews are small and refreshed often, and
// sharp pixels read better than blur at that size.
Bitmap ScrollingCaptureStitcher::scaled(const std::vector<std::uint8_t>& data, int rows) const {
    const double scale = double(configuration_.previewWidth) / width_;
    const int outWidth = configuration_.previewWidth;
    const int outHeight = std::max(int(std::lround(rows * scale)), 1);
    std::vector<std::uint8_t> out(std::size_t(outWidth) * std::size_t(outHeight) * 4);
    std::vector<int> sourceX(static_cast<std::size_t>(outWidth));
    for (int x = 0; x < outWidth; ++x)
        sourceX[std::size_t(x)] = std::min(int((x + 0.5) * width_ / outWidth), width_ - 1);
    auto* target = reinterpret_cast<std::uint32_t*>(out.data());
    for (int y = 0; y < outHeight; ++y) {
        const int sy = std::min(int((y + 0.5) * rows / outHeight), rows - 1);
        const std::uint8_t* source = data.data() + std::size_t(sy) * std::size_t(width_) * 4;
        for (int x = 0; x < outWidth; ++x)
            std::memcpy(target + std::size_t(y) * outWidth + x, source + std::size_t(sourceX[std::size_t(x)]) * 4, 4);
    }
    return makeBitmap(outWidth, outHeight, std::move(out));
}

std::optional<Bitmap> ScrollingCaptureStitcher::previewTail(int maxRows) {
    if (!reference_ || configuration_.previewWidth < 1 || width_ < 1 || maxRows < 1) return std::nullopt;

    std::vector<const Bitmap*> parts;  // bottom first
    int collected = 0;
    auto collect = [&](const Bitmap& part) {
        parts.push_back(&part);
        collected += part.height;
    };

    const int footer = footerStart();
    if (footer < height_) {
        if (!footerPreview_ || footerPreview_->start != footer)
            footerPreview_ = FooterPreview{footer, scaled(reference_->rowData(footer, height_), height_ - footer)};
        collect(footerPreview_->image);
    }
    for (auto c = chunks_.rbegin(); c != chunks_.rend() && collected < maxRows; ++c) {
        if (!c->preview) c->preview = scaled(c->data, c->rows);
        collect(*c->preview);
    }
    if (collected < maxRows && headerRows_ >= 1 && !header_.empty()) {
        if (!headerPreview_) headerPreview_ = scaled(header_, headerRows_);
        collect(*headerPreview_);
    }
    if (collected == 0) return std::nullopt;

    const int outHeight = std::min(collected, maxRows);
    const std::size_t rowBytes = std::size_t(configuration_.previewWidth) * 4;
    std::vector<std::uint8_t> out(rowBytes * std::size_t(outHeight));
    int bottom = outHeight;
    for (const Bitmap* part : parts) {
        if (bottom <= 0) break;
        const int top = bottom - part->height;
        const int skipped = std::max(-top, 0);  // rows of the part above the picture's top edge
        const std::uint8_t* source = part->pixels->data() + std::size_t(skipped) * rowBytes;
        std::memcpy(out.data() + std::size_t(top + skipped) * rowBytes, source,
                    std::size_t(part->height - skipped) * rowBytes);
        bottom = top;
    }
    return makeBitmap(configuration_.previewWidth, outHeight, std::move(out));
}

}  // namespace halvane
