#include "Capture/Screenshots/ScrollingRowMatch.h"

#include "Support/ConcurrentPerform.h"

#include <algorithm>
#include <cstdlib>
#include <map>
#include <numeric>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace halvane {

namespace {

// A window whose mean block difference to the anchor stays within this votes for its shift.
constexpr double voteLimit = 4.0;
// At most this many of the best-voted shifts are checked over the whole overlap.
constexpr std::size_t checkedCandidates = 16;
// Scores this close to the best count as equally good; the tie-break then decides.
constexpr double scoreTolerance = 0.5;

// Σ|a[i] − b[i]| over n bytes. Signature rows of a window lie back to back, so a whole window
// is one contiguous run and the comparison is a single pass.
std::uint64_t sumOfAbsoluteDifferences(const std::uint8_t* a, const std::uint8_t* b, std::size_t n) {
    std::uint64_t total = 0;
    std::size_t i = 0;
#if defined(__SSE2__)
    __m128i acc = _mm_setzero_si128();
    for (; i + 16 <= n; i += 16) {
        const __m128i va = _mm_loadu_si128(reinterpret_cast<const __m128i*>(a + i));
        const __m128i vb = _mm_loadu_si128(reinterpret_cast<const __m128i*>(b + i));
        acc = _mm_add_epi64(acc, _mm_sad_epu8(va, vb));
    }
    total = std::uint64_t(_mm_cvtsi128_si64(acc)) + std::uint64_t(_mm_cvtsi128_si64(_mm_unpackhi_epi64(acc, acc)));
#endif
    for (; i < n; ++i) total += std::uint64_t(std::abs(int(a[i]) - int(b[i])));
    return total;
}

bool sameShape(const ScrollingRowSignature& a, const ScrollingRowSignature& b) {
    return a.rows == b.rows && a.blocks == b.blocks;
}

int minimumOverlap(int bandRows) {
    if (bandRows < 102) return 16;
    if (bandRows < 390) return bandRows / 6;
    return 64;
}

struct Candidate {
    int dy = 0;
    int count = 0;
    double score = 0;
};

// Prefix sums of the change between neighbouring rows of the band, for window activities.
class BandActivity {
public:
    BandActivity(const ScrollingRowSignature& signature, int lo, int hi, int window)
        : prefix_(std::size_t(std::max(hi - lo, 1)), 0), window_(window), blocks_(signature.blocks) {
        for (int k = 0; k + 1 < hi - lo; ++k)
            prefix_[std::size_t(k) + 1] = prefix_[std::size_t(k)] +
                sumOfAbsoluteDifferences(signature.row(lo + k), signature.row(lo + k + 1), std::size_t(blocks_));
    }
    double at(int start) const {
        const auto changed = prefix_[std::size_t(start + window_ - 1)] - prefix_[std::size_t(start)];
        return double(changed) / double((window_ - 1) * blocks_);
    }

private:
    std::vector<std::uint64_t> prefix_;
    int window_;
    int blocks_;
};

// Window starts in the current band worth aligning on: both ends if they have detail, and the
// busiest window of each quarter.
std::vector<int> chooseAnchors(const BandActivity& activity, int bandRows, int window) {
    std::vector<int> anchors;
    auto add = [&](int a) {
        if (std::find(anchors.begin(), anchors.end(), a) == anchors.end()) anchors.push_back(a);
    };
    if (activity.at(0) >= ScrollingRowMatch::flatActivity) add(0);
    if (activity.at(bandRows - window) >= ScrollingRowMatch::flatActivity) add(bandRows - window);
    for (int q = 0; q < 4; ++q) {
        const int end = std::min(bandRows * (q + 1) / 4 - window, bandRows - window);
        std::optional<int> busiest;
        double busiestActivity = ScrollingRowMatch::flatActivity;
        for (int a = bandRows * q / 4; a <= end; a += 4) {
            const double value = activity.at(a);
            if (value > busiestActivity) {
                busiest = a;
                busiestActivity = value;
            }
        }
        if (busiest) add(*busiest);
    }
    return anchors;
}

// Every shift of the previous band whose window resembles the anchor's window votes for dy.
std::vector<Candidate> vote(const ScrollingRowSignature& previous, const ScrollingRowSignature& current, int lo,
                            int bandRows, int window, const std::vector<int>& anchors) {
    const std::size_t windowBytes = std::size_t(window) * std::size_t(current.blocks);
    const double windowValues = double(windowBytes);
    // Each anchor fills its own list; merging them in anchor order afterwards keeps the summed
    // scores, and so the ranking, the same from run to run.
    std::vector<std::vector<std::pair<int, double>>> votes(anchors.size());
    concurrentPerform(anchors.size(), [&](std::size_t i) {
        const int a = anchors[i];
        const std::uint8_t* anchor = current.row(lo + a);
        for (int s = 0; s + window <= bandRows; ++s) {
            const double mean = double(sumOfAbsoluteDifferences(previous.row(lo + s), anchor, windowBytes)) / windowValues;
            if (mean <= voteLimit) votes[i].emplace_back(s - a, mean);
        }
    });
    std::map<int, Candidate> tally;
    for (const auto& list : votes)
        for (const auto& [dy, mean] : list) {
            Candidate& c = tally[dy];
            c.dy = dy;
            c.count += 1;
            c.score += mean;
        }
    std::vector<Candidate> ranked;
    ranked.reserve(tally.size());
    for (const auto& [dy, c] : tally) ranked.push_back(c);
    std::stable_sort(ranked.begin(), ranked.end(), [](const Candidate& x, const Candidate& y) {
        if (x.count != y.count) return x.count > y.count;
        if (x.score != y.score) return x.score < y.score;
        return std::abs(x.dy) < std::abs(y.dy);
    });
    if (ranked.size() > checkedCandidates) ranked.resize(checkedCandidates);
    return ranked;
}

}  // namespace

int ScrollingRowMatch::rowDifference(const ScrollingRowSignature& sa, int a, const ScrollingRowSignature& sb, int b) {
    const auto blocks = std::size_t(std::max(sa.blocks, 1));
    return int(sumOfAbsoluteDifferences(sa.row(a), sb.row(b), blocks) / blocks);
}

int ScrollingRowMatch::windowRows(int bandRows) {
    return bandRows < 102 ? 16 : std::min(bandRows / 6, 64);
}

std::vector<bool> ScrollingRowMatch::sameRows(const ScrollingRowSignature& previous,
                                              const ScrollingRowSignature& current) {
    if (!sameShape(previous, current)) return {};
    std::vector<bool> same(std::size_t(current.rows));
    for (int r = 0; r < current.rows; ++r) same[std::size_t(r)] = rowDifference(previous, r, current, r) < sameRowLimit;
    return same;
}

double ScrollingRowMatch::activity(const ScrollingRowSignature& signature, int lo, int hi) {
    lo = std::clamp(lo, 0, signature.rows);
    hi = std::clamp(hi, 0, signature.rows);
    if (hi - lo < 2 || signature.blocks < 1) return 0;
    std::uint64_t changed = 0;
    for (int r = lo; r + 1 < hi; ++r)
        changed += sumOfAbsoluteDifferences(signature.row(r), signature.row(r + 1), std::size_t(signature.blocks));
    return double(changed) / (double(hi - lo - 1) * signature.blocks);
}

std::optional<double> ScrollingRowMatch::overlapScore(const ScrollingRowSignature& previous,
                                                      const ScrollingRowSignature& current, int lo, int hi, int dy) {
    if (!sameShape(previous, current)) return std::nullopt;
    lo = std::clamp(lo, 0, current.rows);
    hi = std::clamp(hi, 0, current.rows);
    const int bandRows = hi - lo;
    const int begin = std::max(-dy, 0);
    const int end = std::min(bandRows - dy, bandRows);
    const int n = end - begin;
    if (n < minimumOverlap(bandRows)) return std::nullopt;

    std::vector<int> differences(static_cast<std::size_t>(n));
    for (int i = begin; i < end; ++i)
        differences[std::size_t(i - begin)] = rowDifference(current, lo + i, previous, lo + i + dy);
    // Drop the worst tenth (moving content, a blinking caret): keep the smallest `keep` values.
    const int keep = std::max(n - n / 10, 1);
    std::nth_element(differences.begin(), differences.begin() + (keep - 1), differences.end());
    const auto kept = std::accumulate(differences.begin(), differences.begin() + keep, std::int64_t(0));
    return double(kept) / double(keep);
}

std::optional<ScrollingRowMatch::Match> ScrollingRowMatch::estimateOffset(const ScrollingRowSignature& previous,
                                                                          const ScrollingRowSignature& current, int lo,
                                                                          int hi, std::optional<int> expected) {
    if (!sameShape(previous, current)) return std::nullopt;
    lo = std::clamp(lo, 0, current.rows);
    hi = std::clamp(hi, 0, current.rows);
    const int bandRows = hi - lo;
    if (bandRows < 32) return std::nullopt;
    const int window = windowRows(bandRows);

    const BandActivity activity(current, lo, hi, window);
    const auto anchors = chooseAnchors(activity, bandRows, window);
    if (anchors.empty()) return std::nullopt;
    const auto candidates = vote(previous, current, lo, bandRows, window, anchors);

    std::vector<Match> checked;
    for (const Candidate& c : candidates) {
        const auto score = overlapScore(previous, current, lo, hi, c.dy);
        if (score && *score <= acceptedScore) checked.push_back({c.dy, *score});
    }
    if (checked.empty()) return std::nullopt;

    double best = checked.front().score;
    for (const Match& m : checked) best = std::min(best, m.score);
    std::optional<Match> chosen;
    for (const Match& m : checked) {
        if (m.score > best + scoreTolerance) continue;
        const int target = expected.value_or(0);
        if (!chosen || std::abs(m.dy - target) < std::abs(chosen->dy - target)) chosen = m;
    }
    return chosen;
}

}  // namespace halvane
