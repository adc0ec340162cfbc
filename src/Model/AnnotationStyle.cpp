#include "Model/AnnotationStyle.h"

namespace halvane {

void fromJson(const Json& j, AnnotationSize& out) {
    int raw = -1;
    fromJson(j, raw);
    if (raw < 0 || raw > 2) throw JsonDecodeError("unknown annotation size");
    out = static_cast<AnnotationSize>(raw);
}

Json toJson(AnnotationSize v) { return static_cast<int>(v); }

void fromJson(const Json& j, AnnotationStyle& out) {
    JsonObjectReader r(j);
    AnnotationStyle s;
    r.lenient("colorHex", s.colorHex);
    r.lenient("size", s.size);
    r.lenient("filled", s.filled);
    r.lenient("shadow", s.shadow);
    r.lenient("redaction", s.redaction);
    r.lenient("arrow", s.arrow);
    out = std::move(s);
}

Json toJson(const AnnotationStyle& v) {
    return Json{{"colorHex", v.colorHex}, {"size", toJson(v.size)},           {"filled", v.filled},
                {"shadow", v.shadow},     {"redaction", toJson(v.redaction)}, {"arrow", toJson(v.arrow)}};
}

}  // namespace halvane
