#include "Support/Json.h"

namespace halvane {

Json parseJson(std::string_view text) {
    try {
        return Json::parse(text.begin(), text.end());
    } catch (const nlohmann::json::exception& e) {
        throw JsonDecodeError(std::string("The data isn't valid JSON: ") + e.what());
    }
}

Json parseJsonObject(std::string_view text) {
    Json j = parseJson(text);
    if (!j.is_object()) throw JsonDecodeError("The data isn't a JSON object.");
    return j;
}

std::string dumpJson(const Json& value) {
    return value.dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::string dumpJson(const OrderedJson& value) {
    return value.dump(-1, ' ', false, OrderedJson::error_handler_t::replace);
}

namespace {
const Json& element(const Json& j, size_t i) { return j[i]; }

void expectArray(const Json& j, size_t n) {
    if (!j.is_array() || j.size() != n) throw JsonDecodeError("expected an array of " + std::to_string(n));
}
}  // namespace

void fromJson(const Json& j, double& out) {
    if (!j.is_number()) throw JsonDecodeError("expected a number");
    out = j.get<double>();
}

void fromJson(const Json& j, float& out) {
    double d;
    fromJson(j, d);
    out = static_cast<float>(d);
}

void fromJson(const Json& j, long long& out) {
    if (j.is_number_integer()) {
        out = j.get<long long>();
        return;
    }
    if (j.is_number_float()) {
        double d = j.get<double>();
        // A whole number written with a fraction still reads as an integer.
        if (std::isfinite(d) && d == std::trunc(d) && std::fabs(d) < 9.0e18) {
            out = static_cast<long long>(d);
            return;
        }
    }
    throw JsonDecodeError("expected an integer");
}

void fromJson(const Json& j, int& out) {
    long long v;
    fromJson(j, v);
    if (v < INT32_MIN || v > INT32_MAX) throw JsonDecodeError("integer out of range");
    out = static_cast<int>(v);
}

void fromJson(const Json& j, bool& out) {
    if (!j.is_boolean()) throw JsonDecodeError("expected a Boolean");
    out = j.get<bool>();
}

void fromJson(const Json& j, std::string& out) {
    if (!j.is_string()) throw JsonDecodeError("expected a string");
    out = j.get<std::string>();
}

void fromJson(const Json& j, Point& out) {
    expectArray(j, 2);
    fromJson(element(j, 0), out.x);
    fromJson(element(j, 1), out.y);
}

void fromJson(const Json& j, Size& out) {
    expectArray(j, 2);
    fromJson(element(j, 0), out.width);
    fromJson(element(j, 1), out.height);
}

void fromJson(const Json& j, Rect& out) {
    expectArray(j, 2);
    fromJson(element(j, 0), out.origin);
    fromJson(element(j, 1), out.size);
}

void fromJson(const Json& j, Uuid& out) {
    if (!j.is_string()) throw JsonDecodeError("expected a UUID string");
    auto u = Uuid::parse(j.get_ref<const std::string&>());
    if (!u) throw JsonDecodeError("invalid UUID");
    out = *u;
}

void fromJson(const Json& j, Date& out) {
    if (!j.is_string()) throw JsonDecodeError("expected a date string");
    auto d = parseIso8601(j.get_ref<const std::string&>());
    if (!d) throw JsonDecodeError("Expected date string to be ISO8601-formatted.");
    out = *d;
}

Json toJson(Point p) { return Json::array({p.x, p.y}); }
Json toJson(Size s) { return Json::array({s.width, s.height}); }
Json toJson(const Rect& r) { return Json::array({toJson(r.origin), toJson(r.size)}); }
Json toJson(const Uuid& u) { return u.string(); }
Json toJson(Date d) { return iso8601String(d); }

TaggedValue decodeTagged(const Json& j) {
    if (!j.is_object() || j.size() != 1) throw JsonDecodeError("Invalid number of keys found, expected one.");
    auto it = j.begin();
    const Json& body = it.value();
    if (!body.is_object()) throw JsonDecodeError("expected an object holding \"_0\"");
    auto payload = body.find("_0");
    if (payload == body.end()) throw JsonDecodeError("missing key \"_0\"");
    return {it.key(), &*payload};
}

Json encodeTagged(std::string_view caseName, Json payload) {
    Json body = Json::object();
    body["_0"] = std::move(payload);
    Json j = Json::object();
    j[std::string(caseName)] = std::move(body);
    return j;
}

JsonObjectReader::JsonObjectReader(const Json& j) : object_(j) {
    if (!j.is_object()) throw JsonDecodeError("expected an object");
}

const Json* JsonObjectReader::find(std::string_view key) const {
    auto it = object_.find(key);
    return it == object_.end() ? nullptr : &*it;
}

}  // namespace halvane
