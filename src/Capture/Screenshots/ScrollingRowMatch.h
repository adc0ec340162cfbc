#pragma once

#include "Capture/Screenshots/ScrollingRowSignature.h"

#include <optional>
#include <vector>

namespace halvane {

// Finds how far content moved between two frames of one region, on their row signatures alone.
// A row at y in the current frame is the row at y + dy of the previous one: dy > 0 means the
// content moved up, which is scrolling down the document. A band lo ..< hi is a range of rows.
struct ScrollingRowMatch {
    struct Match {
        int dy = 0;
        double score = 0;  // mean block difference over the kept overlap rows, lower is better
        friend bool operator==(const Match&, const Match&) = default;
    };

    // Two rows differ by less than this (mean block difference) to count as the same row.
    static constexpr int sameRowLimit = 3;
    // Below this mean change between neighbouring rows there is nothing to align on.
    static constexpr double flatActivity = 1.0;
    // The worst an accepted overlap may score.
    static constexpr double acceptedScore = 3.0;

    // Mean absolute block difference of row a of one signature and row b of another, rounded down.
    static int rowDifference(const ScrollingRowSignature& sa, int a, const ScrollingRowSignature& sb, int b);

    // Per row, whether it is the same in both; empty when the signatures' shapes differ.
    static std::vector<bool> sameRows(const ScrollingRowSignature& previous, const ScrollingRowSignature& current);

    // Mean change between neighbouring rows of lo ..< hi: how much vertical detail there is.
    static double activity(const ScrollingRowSignature& signature, int lo, int hi);

    // How well the band lines up when shifted by dy, ignoring the worst tenth of its rows;
    // nothing when the overlap is too short to judge.
    static std::optional<double> overlapScore(const ScrollingRowSignature& previous, const ScrollingRowSignature& current,
                                              int lo, int hi, int dy);

    // The offset of the band between the two frames; nothing when it can't be told.
    static std::optional<Match> estimateOffset(const ScrollingRowSignature& previous,
                                               const ScrollingRowSignature& current, int lo, int hi,
                                               std::optional<int> expected);

    // Rows in one anchor window for a band of bandRows rows.
    static int windowRows(int bandRows);
};

}  // namespace halvane
