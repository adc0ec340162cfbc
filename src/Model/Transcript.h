#pragma once

#include "Model/TimeRange.h"
#include "Support/Json.h"
#include "Support/Uuid.h"

#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace halvane {

struct TranscriptWord {
    std::string text;  // with its punctuation attached
    double start = 0;
    double end = 0;
    friend bool operator==(const TranscriptWord&, const TranscriptWord&) = default;
};

struct TranscriptCue {
    Uuid id = Uuid::random();
    std::string text;
    double start = 0;
    double end = 0;
    std::vector<TranscriptWord> words;
    friend bool operator==(const TranscriptCue&, const TranscriptCue&) = default;
};

// "transcript.json": timed caption cues, ascending in start. Every key is required.
struct Transcript {
    std::string locale;
    std::vector<TranscriptCue> cues;

    // English fillers, whatever the locale.
    static constexpr std::array<std::string_view, 12> fillerWords{"um",  "uh", "uhm", "erm", "hmm", "hm",
                                                                  "mhm", "uhh", "umm", "er", "ah",  "eh"};

    // The cue whose span holds t (both ends inside), or none.
    const TranscriptCue* cue(double t) const;
    // Spans of filler words widened by `padding`, joined when they lie within 0.15 s.
    std::vector<TimeRange> fillerRanges(double padding) const;

    // Caption lines from timed words: a line breaks at a pause, at a length in characters or
    // when it would run too long.
    static std::vector<TranscriptCue> chunk(const std::vector<TranscriptWord>& words, int maxCharacters, double maxGap,
                                            double maxDuration, const std::optional<std::string>& localeIdentifier);
    // Empty for Chinese, Cantonese and Japanese, else one blank.
    static std::string wordSeparator(const std::optional<std::string>& localeIdentifier);
    // Folds words that are only punctuation into their neighbours.
    static std::vector<TranscriptWord> attachingPunctuation(const std::vector<TranscriptWord>& words);
    static bool isFillerWord(std::string_view text);

    friend bool operator==(const Transcript&, const Transcript&) = default;
};

void fromJson(const Json& j, TranscriptWord& out);
void fromJson(const Json& j, TranscriptCue& out);
void fromJson(const Json& j, Transcript& out);
Json toJson(const TranscriptWord& v);
Json toJson(const TranscriptCue& v);
Json toJson(const Transcript& v);

}  // namespace halvane
