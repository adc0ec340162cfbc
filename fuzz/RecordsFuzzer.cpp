// libFuzzer target over the readers of the three package records. The first byte picks the
// record, the rest is the file's text. A reader may refuse the text only with JsonDecodeError;
// whatever it accepts must write out as text that reads back to the same value and writes the
// same again (the write is a fixed point after one round).
#include "Model/EditSettings.h"
#include "Model/Project.h"
#include "Model/RecordedEvents.h"
#include "Model/RecordingMeta.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>

using namespace halvane;

namespace {

template <class T>
void checkRecord(std::string_view text) {
    T first;
    try {
        first = Project::decode<T>(text);
    } catch (const JsonDecodeError&) {
        return;
    }
    std::string written = Project::encode(first);
    T second = Project::decode<T>(written);  // must not throw: we wrote it
    std::string rewritten = Project::encode(second);
    if (rewritten != written) {
        std::fprintf(stderr, "not a fixed point:\n%s\n%s\n", written.c_str(), rewritten.c_str());
        std::abort();
    }
    T third = Project::decode<T>(rewritten);
    if (!(third == second)) {
        std::fprintf(stderr, "re-read differs:\n%s\n", rewritten.c_str());
        std::abort();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    std::string_view text(reinterpret_cast<const char*>(data + 1), size - 1);
    switch (data[0] % 3) {
    case 0: checkRecord<RecordingMeta>(text); break;
    case 1: checkRecord<RecordedEvents>(text); break;
    default: checkRecord<EditSettings>(text); break;
    }
    return 0;
}
