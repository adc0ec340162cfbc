#include "Capture/TextReading/PaddleTextReader.h"

#include "TextModelsForTests.h"
#include "support/GuiApplication.h"
#include "support/TemporaryDirectory.h"
#include "support/TextSamples.h"

#include <gtest/gtest.h>

#include <atomic>
#include <fstream>

using namespace halvane;
using namespace halvane::test;

namespace {

class PaddleTextReaderTest : public ::testing::Test {
protected:
    void SetUp() override { ensureGuiApplication(); }
    PaddleTextReader& reader() { return sharedPaddleTextReader(); }
};

void expectReads(PaddleTextReader& reader, const TextSample& sample, double limit) {
    std::string text = reader.read(sample.image);
    double rate = characterErrorRate(text, sample.expected);
    EXPECT_LE(rate, limit) << sample.name << " " << rate << "\n--- read:\n" << text << "\n--- expected:\n" << sample.expected;
}

void copyFolder(const std::filesystem::path& from, const std::filesystem::path& to) {
    std::filesystem::create_directories(to);
    for (const auto& entry : std::filesystem::directory_iterator(from))
        std::filesystem::copy_file(entry.path(), to / entry.path().filename());
}

}  // namespace

// The limits leave room for the full stops that the stray-mark rule takes off line ends, not for
// lost or added word spaces (about 3% on 12 px prose).
TEST_F(PaddleTextReaderTest, ReadsFormsCodeAndProseInBothThemes) {
    expectReads(reader(), renderForm(560, 240, TextTheme::light, 16, 1), 0.01);
    expectReads(reader(), renderCode(480, 160, TextTheme::dark, 13, 3), 0.01);
    expectReads(reader(), renderParagraph(480, 120, TextTheme::light, 12, 4), 0.02);
}

TEST_F(PaddleTextReaderTest, ReadsLargeTextAndALabelTurnedAQuarter) {
    expectReads(reader(), renderParagraph(700, 150, TextTheme::dark, 32, 5), 0.01);
    TextSample turned = renderTurnedLabel("Vertical label 42", TextTheme::light, 18);
    EXPECT_EQ(reader().read(turned.image), "Vertical label 42");
}

// A prepared worker warms up until its request arrives, then reads at once.
TEST_F(PaddleTextReaderTest, WarmingUpStopsWhenARequestWaitsAndTheReaderStillReads) {
    std::atomic<int> asked = 0;
    EXPECT_NO_THROW(reader().warmUp([&] { return ++asked > 3; }));
    EXPECT_GE(asked, 4);
    EXPECT_LT(asked, 8);  // each line width asks first; there are over twenty
    expectReads(reader(), renderForm(560, 240, TextTheme::light, 16, 1), 0.01);
}

TEST_F(PaddleTextReaderTest, FragmentsAreNormalisedWithTheOriginBottomLeft) {
    QImage image(400, 200, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::white);
    {
        QPainter painter(&image);
        QFont font("DejaVu Sans");
        font.setPixelSize(24);
        painter.setFont(font);
        painter.setPen(Qt::black);
        painter.drawText(QRect(20, 140, 360, 40), Qt::AlignLeft | Qt::AlignVCenter, "Bottom line");
        painter.drawText(QRect(20, 10, 360, 40), Qt::AlignLeft | Qt::AlignVCenter, "Top line");
    }
    auto fragments = reader().readFragments(image);
    ASSERT_EQ(fragments.size(), 2u);
    EXPECT_EQ(fragments[0].text, "Top line");
    EXPECT_GT(fragments[0].rect.minY(), 0.6);  // near the top, so high up in bottom-left terms
    EXPECT_LT(fragments[1].rect.maxY(), 0.4);
    for (const auto& f : fragments) {
        EXPECT_GE(f.rect.minX(), 0.0);
        EXPECT_LE(f.rect.maxX(), 1.0);
    }
}

TEST_F(PaddleTextReaderTest, AnEmptyPictureGivesNoTextAndAZeroSizedOneAnError) {
    QImage blank(300, 120, QImage::Format_ARGB32_Premultiplied);
    blank.fill(QColor("#2C2C2E"));
    EXPECT_EQ(reader().read(blank), "");
    try {
        reader().read(QImage());
        FAIL() << "a null image was read";
    } catch (const PaddleOCR::ReadError& e) {
        EXPECT_EQ(e.kind(), PaddleOCR::ReadError::Kind::pixelBuffer);
        EXPECT_STREQ(e.what(), "Couldn't prepare the image");
    }
}

TEST_F(PaddleTextReaderTest, DamagedOrMissingModelFilesAreAnInvalidModel) {
    TemporaryDirectory scratch;
    auto expectInvalid = [](const std::filesystem::path& folder) {
        try {
            PaddleTextReader::load(folder);
            ADD_FAILURE() << "loaded " << folder;
        } catch (const PaddleOCR::ReadError& e) {
            EXPECT_EQ(e.kind(), PaddleOCR::ReadError::Kind::invalidModel);
            EXPECT_STREQ(e.what(), "The PP-OCRv6 model is damaged");
        }
    };
    expectInvalid(scratch / "missing");

    auto damaged = scratch / "damaged";
    copyFolder(installedTextModels(), damaged);
    std::filesystem::resize_file(damaged / PaddleTextReader::recognizerFile, 4096);
    expectInvalid(damaged);

    auto noCharacters = scratch / "characters";
    copyFolder(installedTextModels(), noCharacters);
    std::ofstream(noCharacters / PaddleTextReader::charactersFile) << "{\"not\": \"a list\"}";
    expectInvalid(noCharacters);
}
