#include "Model/Transcript.h"

#include "Support/UnicodeText.h"

#include <algorithm>

namespace halvane {

void fromJson(const Json& j, TranscriptWord& out) {
    JsonObjectReader r(j);
    r.required("text", out.text);
    r.required("start", out.start);
    r.required("end", out.end);
}

void fromJson(const Json& j, TranscriptCue& out) {
    JsonObjectReader r(j);
    r.required("id", out.id);
    r.required("text", out.text);
    r.required("start", out.start);
    r.required("end", out.end);
    r.required("words", out.words);
}

void fromJson(const Json& j, Transcript& out) {
    JsonObjectReader r(j);
    Transcript t;
    r.required("locale", t.locale);
    r.required("cues", t.cues);
    out = std::move(t);
}

Json toJson(const TranscriptWord& v) { return Json{{"text", v.text}, {"start", v.start}, {"end", v.end}}; }

Json toJson(const TranscriptCue& v) {
    return Json{{"id", toJson(v.id)}, {"text", v.text}, {"start", v.start}, {"end", v.end}, {"words", toJson(v.words)}};
}

Json toJson(const Transcript& v) { return Json{{"locale", v.locale}, {"cues", toJson(v.cues)}}; }

}  // namespace halvane

// ---- cues, chunking and fillers

namespace halvane {

namespace {

constexpr std::string_view openingPunctuation = "([{<“‘「『【《〈〔〖〘〚";
constexpr double minimumCueLength = 0.2;

TranscriptCue makeCue(std::vector<TranscriptWord> words, const std::string& separator) {
    TranscriptCue cue;
    for (size_t i = 0; i < words.size(); ++i) {
        if (i > 0) cue.text += separator;
        cue.text += words[i].text;
    }
    cue.start = words.front().start;
    cue.end = std::max(words.back().end, cue.start + minimumCueLength);
    cue.words = std::move(words);
    return cue;
}

}  // namespace

const TranscriptCue* Transcript::cue(double t) const {
    auto after = std::upper_bound(cues.begin(), cues.end(), t, [](double v, const TranscriptCue& c) { return v < c.start; });
    if (after == cues.begin()) return nullptr;
    const TranscriptCue& c = *std::prev(after);
    return t > c.end ? nullptr : &c;
}

bool Transcript::isFillerWord(std::string_view text) {
    const std::string normal = UnicodeText::trimmingPunctuationAndWhitespace(UnicodeText::lowercased(text));
    return std::find(fillerWords.begin(), fillerWords.end(), normal) != fillerWords.end();
}

std::vector<TimeRange> Transcript::fillerRanges(double padding) const {
    std::vector<TimeRange> ranges;
    for (const auto& c : cues) {
        for (const auto& w : c.words) {
            if (!isFillerWord(w.text)) continue;
            const double s = std::max(w.start - padding, 0.0);
            const double e = w.end + padding;
            if (!ranges.empty() && s <= ranges.back().upper + 0.15)
                ranges.back().upper = std::max(ranges.back().upper, e);
            else
                ranges.push_back({s, e});
        }
    }
    return ranges;
}

std::string Transcript::wordSeparator(const std::optional<std::string>& localeIdentifier) {
    if (!localeIdentifier) return " ";
    const std::string language = UnicodeText::languageCode(*localeIdentifier);
    if (language == "zh" || language == "yue" || language == "ja") return "";
    return " ";
}

std::vector<TranscriptWord> Transcript::attachingPunctuation(const std::vector<TranscriptWord>& words) {
    std::string pending;
    std::vector<TranscriptWord> result;
    for (const auto& w : words) {
        const bool standalone = UnicodeText::isPunctuation(w.text);
        if (standalone && UnicodeText::consistsOf(w.text, openingPunctuation)) {
            pending += w.text;
        } else if (standalone) {
            if (result.empty()) pending += w.text;
            else result.back().text += w.text;
        } else {
            result.push_back({pending + w.text, w.start, w.end});
            pending.clear();
        }
    }
    if (!pending.empty() && !result.empty()) result.back().text += pending;
    return result;
}

std::vector<TranscriptCue> Transcript::chunk(const std::vector<TranscriptWord>& input, int maxCharacters, double maxGap,
                                             double maxDuration, const std::optional<std::string>& localeIdentifier) {
    const std::string separator = wordSeparator(localeIdentifier);
    const auto separatorLength = UnicodeText::characterCount(separator);
    const auto words = attachingPunctuation(input);
    std::vector<TranscriptCue> cues;
    std::vector<TranscriptWord> current;
    std::size_t currentCharacters = 0;
    for (const auto& w : words) {
        const std::size_t wordCharacters = UnicodeText::characterCount(w.text);
        if (!current.empty()) {
            const std::size_t length = currentCharacters + separatorLength * current.size() + wordCharacters;
            const bool flush = w.start - current.back().end > maxGap ||
                               length > static_cast<std::size_t>(std::max(maxCharacters, 0)) ||
                               w.end - current.front().start > maxDuration;
            if (flush) {
                cues.push_back(makeCue(std::move(current), separator));
                current.clear();
                currentCharacters = 0;
            }
        }
        current.push_back(w);
        currentCharacters += wordCharacters;
    }
    if (!current.empty()) cues.push_back(makeCue(std::move(current), separator));
    return cues;
}

}  // namespace halvane
