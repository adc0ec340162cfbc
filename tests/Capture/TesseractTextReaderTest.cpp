#include "Capture/TextReading/TesseractTextReader.h"

#include "support/GuiApplication.h"
#include "support/TextSamples.h"

#include <gtest/gtest.h>

using namespace halvane;
using namespace halvane::test;
using Language = TesseractTextReader::Language;

namespace {

std::vector<std::string> names(const std::vector<Language>& languages) {
    std::vector<std::string> result;
    for (const auto& l : languages) result.push_back(l.name);
    return result;
}

const std::vector<Language> installed{TesseractTextReader::describe("chi_sim"), TesseractTextReader::describe("chi_tra"),
                                      TesseractTextReader::describe("deu"), TesseractTextReader::describe("eng"),
                                      TesseractTextReader::describe("srp"), TesseractTextReader::describe("srp_latn")};

}  // namespace

TEST(TesseractLanguages, DescribesTraineddataNamesByLanguageAndScript) {
    EXPECT_EQ(TesseractTextReader::describe("deu"), (Language{"deu", "de", "Latn"}));
    EXPECT_EQ(TesseractTextReader::describe("chi_tra"), (Language{"chi_tra", "zh", "Hant"}));
    EXPECT_EQ(TesseractTextReader::describe("srp_latn"), (Language{"srp_latn", "sr", "Latn"}));
    EXPECT_EQ(TesseractTextReader::describe("srp").script, "Cyrl");
}

TEST(TesseractLanguages, PicksTheSameScriptWhenALanguageHasSeveral) {
    EXPECT_EQ(TesseractTextReader::closest("zh_TW", installed)->name, "chi_tra");
    EXPECT_EQ(TesseractTextReader::closest("zh-Hant", installed)->name, "chi_tra");
    EXPECT_EQ(TesseractTextReader::closest("zh_CN", installed)->name, "chi_sim");
    EXPECT_EQ(TesseractTextReader::closest("sr_Latn_RS", installed)->name, "srp_latn");
    EXPECT_FALSE(TesseractTextReader::closest("fr_FR", installed));
}

TEST(TesseractLanguages, PreferredLanguagesKeepTheUsersOrderWithoutRepeats) {
    EXPECT_EQ(names(TesseractTextReader::preferredLanguages({"de_AT", "en_GB", "de_DE"}, installed)),
              (std::vector<std::string>{"deu", "eng"}));
    EXPECT_EQ(TesseractTextReader::preferredLanguages({"fr"}, installed), installed);
}

TEST(TesseractTextReader, ReadsAScreenInTheInstalledLanguage) {
    ensureGuiApplication();
    TesseractTextReader reader(TesseractTextReader::defaultDataDirectory(), {"en_US"});
    EXPECT_EQ(reader.languageSelection(), "eng");
    TextSample sample = renderParagraph(560, 120, TextTheme::light, 16, 11);
    std::string text = reader.read(sample.image);
    EXPECT_LT(characterErrorRate(text, sample.expected), 0.03) << text;
    QImage blank(200, 100, QImage::Format_ARGB32_Premultiplied);
    blank.fill(Qt::white);
    EXPECT_EQ(reader.read(blank), "");
}
