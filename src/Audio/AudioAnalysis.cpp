#include "Audio/AudioAnalysis.h"

#include "Media/AudioDecoder.h"
#include "Support/HalvaneError.h"

#include <algorithm>
#include <cmath>

namespace halvane {

namespace {

constexpr int analysisRate = 48000;

// Adds one bin's figures; a bin is closed when full and, at the end, when it holds anything.
struct BinAccumulator {
    AudioAnalysis& result;
    int binLength;
    float peak = 0;
    float sum = 0;
    int count = 0;

    void add(float x) {
        peak = std::max(peak, std::fabs(x));
        sum += x * x;
        if (++count == binLength) close();
    }
    void close() {
        if (count == 0) return;
        result.peaks.push_back(std::min(peak, 1.0f));
        result.rms.push_back(std::min(std::sqrt(sum / count), 1.0f));
        peak = sum = 0;
        count = 0;
    }
};

std::vector<double> sortedClickTimes(const RecordedEvents& events) {
    std::vector<double> times;
    times.reserve(events.clicks.size());
    for (const auto& c : events.clicks) times.push_back(c.t);
    std::sort(times.begin(), times.end());
    return times;
}

// Times at which the pointer moved more than 0.002 since the previous sample, in sample order.
std::vector<double> movementTimes(const RecordedEvents& events) {
    std::vector<double> times;
    for (size_t i = 1; i < events.samples.size(); ++i) {
        const auto& a = events.samples[i - 1];
        const auto& b = events.samples[i];
        if (std::hypot(b.x - a.x, b.y - a.y) > 0.002) times.push_back(b.t);
    }
    return times;
}

bool isDeadAir(double start, double end, double minLength, const std::vector<double>& clicks,
               const std::vector<double>& movements) {
    if (!(start < end) || end - start < minLength) return false;
    auto firstClick = std::lower_bound(clicks.begin(), clicks.end(), start);
    if (firstClick != clicks.end() && *firstClick <= end) return false;
    auto moves = std::count_if(movements.begin(), movements.end(),
                               [&](double t) { return t >= start && t <= end; });
    return moves / std::max(end - start, 0.001) < 6.0;
}

}  // namespace

std::optional<AudioAnalysis> AudioAnalysis::analyze(const std::filesystem::path& file,
                                                    int binsPerSecond) {
    std::unique_ptr<AudioDecoder> decoder;
    try {
        decoder = AudioDecoder::open(file, analysisRate, 1);
    } catch (const HalvaneError&) {
        return std::nullopt;
    }
    if (!decoder) return std::nullopt;

    AudioAnalysis result;
    result.binsPerSecond = std::max(binsPerSecond, 1);
    BinAccumulator bin{result, std::max(analysisRate / result.binsPerSecond, 1)};
    double overallSum = 0;
    float overallPeak = 0;
    int64_t count = 0;
    std::vector<float> block(8192);
    try {
        while (int n = decoder->read(block.data(), static_cast<int>(block.size()))) {
            for (int i = 0; i < n; ++i) {
                const float x = block[i];
                bin.add(x);
                overallPeak = std::max(overallPeak, std::fabs(x));
                overallSum += static_cast<double>(x) * x;
            }
            count += n;
        }
    } catch (const HalvaneError&) {
        return std::nullopt;
    }
    bin.close();
    if (result.peaks.empty()) return std::nullopt;
    result.overallPeak = std::min(overallPeak, 1.0f);
    result.overallRMS = count > 0 ? static_cast<float>(std::sqrt(overallSum / count)) : 0.0f;
    return result;
}

std::vector<TimeRange> AudioAnalysis::deadAirRanges(const std::vector<float>& rms,
                                                    int binsPerSecond,
                                                    const RecordedEvents& events,
                                                    double minLength, double padding) {
    std::vector<TimeRange> ranges;
    if (rms.empty() || binsPerSecond <= 0) return ranges;
    std::vector<float> sorted = rms;
    std::sort(sorted.begin(), sorted.end());
    const auto tenth = static_cast<long>(std::floor(sorted.size() * 0.1)) - 1;
    const float noiseFloor = sorted[static_cast<size_t>(std::max(tenth, 0L))];
    const float threshold = std::clamp(noiseFloor * 2.5f, 0.008f, 0.02f);
    const auto clicks = sortedClickTimes(events);
    const auto movements = movementTimes(events);

    size_t i = 0;
    while (i < rms.size()) {
        if (rms[i] >= threshold) {
            ++i;
            continue;
        }
        size_t runEnd = i;
        while (runEnd < rms.size() && rms[runEnd] < threshold) ++runEnd;
        const double start = static_cast<double>(i) / binsPerSecond + padding;
        const double end = static_cast<double>(runEnd) / binsPerSecond - padding;
        if (isDeadAir(start, end, minLength, clicks, movements)) ranges.push_back({start, end});
        i = runEnd;
    }
    return ranges;
}

}  // namespace halvane
