#include "Capture/TextReading/TextRecognizer.h"

#include "Capture/TextReading/TesseractTextReader.h"
#include "Capture/TextReading/TextModelStore.h"
#include "Capture/TextReading/TextReadWorker.h"
#include "TextModelsForTests.h"
#include "support/GuiApplication.h"
#include "support/TemporaryDirectory.h"
#include "support/TextSamples.h"

#include <gtest/gtest.h>

#include <fstream>
#include <map>

using namespace halvane;
using namespace halvane::test;
namespace fs = std::filesystem;

namespace {

using Fragment = TextRecognizer::Fragment;

class SelectedDefaults : public TextModelStore::Defaults {
public:
    std::optional<std::string> string(const std::string& key) const override {
        return key == TextModelStore::selectionKey ? std::optional<std::string>(TextModelStore::selectionValue)
                                                   : std::nullopt;
    }
    void setString(const std::string&, const std::string&) override {}
    void remove(const std::string&) override {}
};

}  // namespace

TEST(TextRecognizerAssemble, OrdersLinesFromTheTopAndFragmentsFromTheLeft) {
    std::vector<Fragment> fragments{{"world", Rect(0.5, 0.8, 0.2, 0.1)},
                                    {"second", Rect(0.1, 0.5, 0.3, 0.1)},
                                    {"Hello", Rect(0.1, 0.82, 0.3, 0.1)}};
    EXPECT_EQ(TextRecognizer::assemble(fragments), "Hello world\nsecond");
    EXPECT_EQ(TextRecognizer::assemble({}), "");
    EXPECT_EQ(TextRecognizer::assemble({{"  padded  ", Rect(0, 0, 1, 0.1)}}), "padded");
}

TEST(TextRecognizerAssemble, AnOverlapOfExactlyHalfStartsANewLine) {
    // Heights 0.25 and 0.5; the overlap is 0.125, half of the smaller (all exact in binary).
    std::vector<Fragment> half{{"top", Rect(0.0, 0.5, 0.2, 0.25)}, {"low", Rect(0.3, 0.125, 0.2, 0.5)}};
    EXPECT_EQ(TextRecognizer::assemble(half), "top\nlow");
    std::vector<Fragment> more{{"top", Rect(0.0, 0.5, 0.2, 0.25)}, {"low", Rect(0.3, 0.15, 0.2, 0.5)}};
    EXPECT_EQ(TextRecognizer::assemble(more), "top low");
}

TEST(TextRecognizerEngines, AFailingWorkerFallsBackToTheSystemEngine) {
    ensureGuiApplication();
    TemporaryDirectory scratch;
    fs::path dies = scratch / "dies";
    std::ofstream(dies) << "#!/bin/sh\nread line; kill -9 $$\n";
    fs::permissions(dies, fs::perms::owner_all);

    SelectedDefaults defaults;
    TextModelStore store(defaults, installedTextModels().parent_path(), QUrl());
    ASSERT_TRUE(store.isInstalled());
    TextReadWorker worker(dies, scratch / "jobs");
    TesseractTextReader system;
    TextRecognizer recognizer(store, worker, system);

    TextSample sample = renderParagraph(560, 120, TextTheme::light, 16, 11);
    TextRecognizer::Reading reading = recognizer.recognizeReading(sample.image, TextRecognizer::Engine::automatic);
    EXPECT_EQ(reading.engine, "tesseract");
    EXPECT_LT(characterErrorRate(reading.text, sample.expected), 0.05) << reading.text << "\n---\n" << sample.expected;
    worker.cancelPending();

    EXPECT_THROW(recognizer.recognize(sample.image, TextRecognizer::Engine::liveText), TextRecognizer::RecognizeError);
    try {
        recognizer.recognize(QImage(), TextRecognizer::Engine::system);
        FAIL() << "an empty image was read";
    } catch (const TextRecognizer::RecognizeError& e) {
        EXPECT_STRNE(e.what(), "");
    }
}
