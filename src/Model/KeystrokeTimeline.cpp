#include "Model/KeystrokeTimeline.h"

#include "Model/Easing.h"
#include "Model/StableOrder.h"
#include "Support/UnicodeText.h"

#include <algorithm>
#include <limits>

namespace halvane {

namespace {

constexpr double showFor = 1.2;
constexpr double runPause = 0.8;
constexpr std::size_t visibleCharacters = 18;

void linkChains(std::vector<KeystrokeTimeline::Display>& ds) {
    for (size_t i = 0; i + 1 < ds.size(); ++i)
        if (ds[i + 1].start < ds[i].end) ds[i].end = ds[i + 1].start;
    ds.front().chainStart = ds.front().start;
    for (size_t i = 1; i < ds.size(); ++i)
        ds[i].chainStart = ds[i].start > ds[i - 1].end + 0.0001 ? ds[i].start : ds[i - 1].chainStart;
    ds.back().chainEnd = ds.back().end;
    for (size_t i = ds.size() - 1; i-- > 0;)
        ds[i].chainEnd = ds[i + 1].start > ds[i].end + 0.0001 ? ds[i].end : ds[i + 1].chainEnd;
}

}  // namespace

std::string KeystrokeTimeline::chordText(const KeyEvent& key) {
    std::string text;
    if (key.modifiers & modifierControl) text += "⌃";
    if (key.modifiers & modifierOption) text += "⌥";
    if (key.modifiers & modifierShift) text += "⇧";
    if (key.modifiers & modifierCommand) text += "⌘";
    return text + UnicodeText::uppercased(key.label);
}

std::vector<KeystrokeTimeline::Display> KeystrokeTimeline::displays(const std::vector<KeyEvent>& input, KeystrokeMode mode) {
    std::vector<KeyEvent> keys;
    for (const auto& k : input)
        if (mode == KeystrokeMode::allKeys || (k.modifiers & shortcutMask)) keys.push_back(k);
    stableSortBy(keys, &KeyEvent::t);

    std::vector<Display> ds;
    std::string text;
    double last = std::numeric_limits<double>::lowest();
    for (const auto& k : keys) {
        if (k.modifiers & shortcutMask) {
            ds.push_back({chordText(k), k.t, k.t + showFor, 0, 0});
            text.clear();
        } else {
            if (k.t - last > runPause) text.clear();
            if (k.label == "⌫") text = UnicodeText::droppingLastCharacter(text);
            else text += k.label == "Space" ? std::string(" ") : k.label;
            if (!text.empty()) {
                ds.push_back({UnicodeText::suffixCharacters(text, visibleCharacters), k.t, k.t + showFor, 0, 0});
            } else if (!ds.empty() && k.t < ds.back().end) {
                // The overlay clears when the last character is deleted.
                ds.back().end = k.t;
                ds.back().chainEnd = k.t;
            }
        }
        last = k.t;
    }
    if (ds.empty()) return {};
    linkChains(ds);
    return ds;
}

std::optional<KeystrokeTimeline::Shown> KeystrokeTimeline::display(double t, const std::vector<Display>& ds) {
    auto after = std::upper_bound(ds.begin(), ds.end(), t, [](double v, const Display& d) { return v < d.start; });
    if (after == ds.begin()) return std::nullopt;
    const Display& d = *std::prev(after);
    if (t > d.end) return std::nullopt;
    const double fadeIn = smoothstep((t - d.chainStart) / 0.1);
    const double fadeOut = 1 - smoothstep((t - (d.chainEnd - 0.3)) / 0.3);
    const double alpha = std::min(fadeIn, fadeOut);
    if (!(alpha > 0.004)) return std::nullopt;
    return Shown{d.text, alpha};
}

}  // namespace halvane
