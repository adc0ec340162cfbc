#include "Model/ImageAnnotation.h"

namespace halvane {

namespace {

constexpr const char* styleKeyOrder[] = {"colorHex", "size", "filled", "shadow", "redaction", "arrow"};

// The style's own coding, laid out in the fixed order of an annotation file.
OrderedJson orderedStyle(const AnnotationStyle& style) {
    const Json sorted = toJson(style);
    OrderedJson out = OrderedJson::object();
    for (const char* key : styleKeyOrder) out[key] = sorted.at(key);
    return out;
}

ImageAssetPointer lookUpAsset(const JsonObjectReader& r, const ImageAssetLookup* assets) {
    Uuid assetID;
    r.required("image", assetID);
    if (assets) {
        auto found = assets->find(assetID);
        if (found != assets->end() && found->second) return found->second;
    }
    throw JsonDecodeError("missing image " + assetID.string());
}

}  // namespace

OrderedJson toOrderedJson(const ImageAnnotation& a) {
    OrderedJson j = OrderedJson::object();
    j["id"] = toJson(a.id);
    j["kind"] = toJson(a.kind);
    j["rect"] = toJson(a.rect);
    j["points"] = toJson(a.points);
    j["text"] = a.text;
    j["number"] = a.number;
    j["style"] = orderedStyle(a.style);
    if (a.asset) j["image"] = toJson(a.asset->id());
    if (a.rotation != 0) j["rotation"] = a.rotation;
    return j;
}

OrderedJson toOrderedJson(const std::vector<ImageAnnotation>& list) {
    OrderedJson out = OrderedJson::array();
    for (const auto& a : list) out.push_back(toOrderedJson(a));
    return out;
}

ImageAnnotation decodeImageAnnotation(const Json& j, const ImageAssetLookup* assets) {
    JsonObjectReader r(j);
    ImageAnnotation a;
    r.required("id", a.id);
    r.required("kind", a.kind);
    r.lenient("rect", a.rect);
    r.lenient("points", a.points);
    r.lenient("text", a.text);
    r.lenient("number", a.number);
    r.lenient("style", a.style);
    r.lenient("rotation", a.rotation);
    if (a.kind == ImageAnnotationKind::image) a.asset = lookUpAsset(r, assets);
    return a;
}

std::vector<ImageAnnotation> decodeImageAnnotationList(const Json& j, const ImageAssetLookup* assets) {
    if (!j.is_array()) throw JsonDecodeError("expected an array of annotations");
    std::vector<ImageAnnotation> out;
    out.reserve(j.size());
    for (const Json& element : j) {
        try {
            out.push_back(decodeImageAnnotation(element, assets));
        } catch (const JsonDecodeError&) {
            // One bad mark costs only itself.
        } catch (const nlohmann::json::exception&) {
        }
    }
    return out;
}

}  // namespace halvane
