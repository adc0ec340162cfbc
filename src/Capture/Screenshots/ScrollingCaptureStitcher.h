#pragma once

#include "Capture/Screenshots/ScrollingFrame.h"
#include "Support/Bitmap.h"

#include <array>
#include <cstdint>
#include <deque>
#include <optional>
#include <string_view>
#include <vector>

namespace halvane {

// Joins grabs of one fixed region, taken while its content scrolls, into one tall picture:
// rows that never move at the top become the header, rows below the moving band on the last
// frame the footer, and everything that scrolled through the band the body, each row once.
// Not thread-safe: one session calls it from one worker thread.
class ScrollingCaptureStitcher {
public:
    struct Configuration {
        std::int64_t maxBodyBytes = 268'435'456;  // the body alone, header and footer not counted
        int previewWidth = 120;                    // pixels
        friend bool operator==(const Configuration&, const Configuration&) = default;
    };

    struct Chunk {
        std::vector<std::uint8_t> data;  // whole rows, width × 4 bytes each
        int rows = 0;
        std::optional<Bitmap> preview;   // cached scaled copy, previewWidth wide
    };

    struct Outcome {
        enum class Tag {
            matched,    // offset measured (the first frame too, with dy 0 and all its rows added)
            trusted,    // nothing measurable, the expected offset taken as true
            unchanged,  // nothing new in the frame
            lost,       // other size, or movement that can't be aligned
            limit,      // the body would pass maxBodyBytes
        };
        Tag tag = Tag::unchanged;
        int dy = 0;
        int addedRows = 0;
        friend bool operator==(const Outcome&, const Outcome&) = default;
    };

    explicit ScrollingCaptureStitcher(Configuration configuration) : configuration_(configuration) {}

    Outcome ingest(const ScrollingFrame& frame, std::optional<int> expectedOffset = std::nullopt);
    // Header, body and footer in one picture (packed B, G, R, A rows); nothing before the first frame.
    std::optional<Bitmap> compose() const;
    // The bottom of the picture so far, scaled to previewWidth, at most maxRows high.
    std::optional<Bitmap> previewTail(int maxRows);

    const Configuration& configuration() const { return configuration_; }
    int width() const { return width_; }
    int height() const { return height_; }
    int headerRows() const { return headerRows_; }
    bool headerKnown() const { return headerKnown_; }
    int bodyRows() const;
    std::int64_t bodyBytes() const { return bodyBytes_; }
    int bodyOffset() const { return bodyOffset_; }
    std::optional<int> lastBandRows() const { return lastBandRows_; }
    const std::deque<Chunk>& chunks() const { return chunks_; }
    // The first row of the last frame that lies below the body.
    int footerStart() const;
    // Rows of compose()'s picture: header + body + footer.
    int canvasRows() const;

private:
    struct RowRange {
        int lo = 0;
        int hi = 0;
    };
    struct Movement {
        Outcome::Tag tag;
        int dy;
        int bandBottom;
        int bandRows;
        bool isStatic;
        int leading;
    };

    Outcome start(const ScrollingFrame& frame);
    Movement measure(const ScrollingFrame& frame, std::optional<int> expectedOffset) const;
    void establishHeader(int headerEnd, int firstBandBottom);
    void confirmPendingAppend(const ScrollingFrame& frame, int dy);
    void insertChunk(std::vector<std::uint8_t> data, int rows, bool atHead);
    void shortenLastChunk(int rows);
    Bitmap scaled(const std::vector<std::uint8_t>& data, int rows) const;

    Configuration configuration_;
    int width_ = 0;
    int height_ = 0;
    std::optional<ScrollingFrame> reference_;
    std::shared_ptr<const std::vector<std::uint8_t>> firstFrame_;
    std::vector<std::uint8_t> header_;
    std::optional<Bitmap> headerPreview_;
    int headerRows_ = 0;
    bool headerKnown_ = false;
    std::deque<Chunk> chunks_;
    std::int64_t bodyBytes_ = 0;
    int bodyOffset_ = 0;
    std::optional<RowRange> pendingAppend_;
    struct FooterPreview {
        int start = 0;
        Bitmap image;
    };
    std::optional<FooterPreview> footerPreview_;
    std::optional<int> lastBandRows_;
};

constexpr std::array<std::string_view, 5> enumNames(ScrollingCaptureStitcher::Outcome::Tag) {
    return {"matched", "trusted", "unchanged", "lost", "limit"};
}

}  // namespace halvane
