#include "TextModelsForTests.h"

#include "Capture/TextReading/PaddleTextReader.h"
#include "Capture/TextReading/TextModelStore.h"
#include "support/TemporaryDirectory.h"

namespace halvane::test {

std::filesystem::path committedTextModelArchive() {
    return std::filesystem::path(HALVANE_SOURCE_DIR) / "resources" / "text-models" /
           (TextModelStore::release.name + TextModelStore::archiveExtension);
}

const std::filesystem::path& installedTextModels() {
    static TemporaryDirectory root;
    static const std::filesystem::path folder = [] {
        TextModelStore::installArchive(committedTextModelArchive(), TextModelStore::release, root.path());
        return root.path() / TextModelStore::release.name;
    }();
    return folder;
}

PaddleTextReader& sharedPaddleTextReader() {
    static std::unique_ptr<PaddleTextReader> reader = PaddleTextReader::load(installedTextModels());
    return *reader;
}

}  // namespace halvane::test
