#include "Model/Transcript.h"

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
