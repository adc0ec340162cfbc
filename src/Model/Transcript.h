#pragma once

#include "Support/Json.h"
#include "Support/Uuid.h"

#include <string>
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
    friend bool operator==(const Transcript&, const Transcript&) = default;
};

void fromJson(const Json& j, TranscriptWord& out);
void fromJson(const Json& j, TranscriptCue& out);
void fromJson(const Json& j, Transcript& out);
Json toJson(const TranscriptWord& v);
Json toJson(const TranscriptCue& v);
Json toJson(const Transcript& v);

}  // namespace halvane
