#include "Capture/TextReading/TesseractTextReader.h"

#include <tesseract/baseapi.h>
#include <tesseract/resultiterator.h>
#include <unicode/uloc.h>

#include <QImage>

#include <algorithm>
#include <cstdlib>
#include <set>

namespace halvane {

namespace {

std::string trimmed(std::string text) {
    const char* blanks = " \t\r\n\f\v";
    size_t first = text.find_first_not_of(blanks);
    if (first == std::string::npos) return {};
    size_t last = text.find_last_not_of(blanks);
    return text.substr(first, last - first + 1);
}

// "zh_TW.UTF-8@euro" -> "zh_TW"; "C" and "POSIX" name no language.
std::optional<std::string> localeLanguage(std::string value) {
    value = value.substr(0, value.find_first_of(".@"));
    if (value.empty() || value == "C" || value == "POSIX") return std::nullopt;
    return value;
}

// Language and script of a locale identifier, the script filled in from likely subtags.
std::pair<std::string, std::string> languageAndScript(const std::string& identifier) {
    UErrorCode status = U_ZERO_ERROR;
    char canonical[ULOC_FULLNAME_CAPACITY] = {};
    uloc_canonicalize(identifier.c_str(), canonical, sizeof canonical, &status);
    if (U_FAILURE(status)) return {identifier, {}};
    char maximized[ULOC_FULLNAME_CAPACITY] = {};
    status = U_ZERO_ERROR;
    uloc_addLikelySubtags(canonical, maximized, sizeof maximized, &status);
    const char* full = U_SUCCESS(status) ? maximized : canonical;
    char language[ULOC_LANG_CAPACITY] = {}, script[ULOC_SCRIPT_CAPACITY] = {};
    status = U_ZERO_ERROR;
    uloc_getLanguage(full, language, sizeof language, &status);
    status = U_ZERO_ERROR;
    uloc_getScript(full, script, sizeof script, &status);
    return {language, script};
}

// Tesseract names most packs by ISO 639-2; the few with a script say so after an underscore.
std::string twoLetterCode(const std::string& threeLetter) {
    if (threeLetter == "chi") return "zh";
    for (const char* const* code = uloc_getISOLanguages(); *code; ++code)
        if (threeLetter == uloc_getISO3Language(*code)) return *code;
    return threeLetter;
}

}  // namespace

TesseractTextReader::TesseractTextReader(std::filesystem::path dataDirectory, std::vector<std::string> userLanguages)
    : dataDirectory_(std::move(dataDirectory)),
      languages_(preferredLanguages(userLanguages, installedLanguages(dataDirectory_))) {}

TesseractTextReader::~TesseractTextReader() {
    if (ready_.valid()) ready_.wait();
}

std::filesystem::path TesseractTextReader::defaultDataDirectory() {
    if (const char* prefix = std::getenv("TESSDATA_PREFIX"); prefix && *prefix) return prefix;
    return "/usr/share/tesseract-ocr/5/tessdata";
}

std::vector<std::string> TesseractTextReader::userPreferredLanguages() {
    std::vector<std::string> result;
    if (const char* list = std::getenv("LANGUAGE"); list && *list) {
        std::string all = list;
        for (size_t start = 0; start <= all.size();) {
            size_t end = all.find(':', start);
            if (end == std::string::npos) end = all.size();
            if (auto language = localeLanguage(all.substr(start, end - start))) result.push_back(*language);
            start = end + 1;
        }
    }
    for (const char* variable : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        const char* value = std::getenv(variable);
        if (!value || !*value) continue;
        if (auto language = localeLanguage(value)) result.push_back(*language);
        break;
    }
    if (result.empty()) result.push_back("en");
    return result;
}

TesseractTextReader::Language TesseractTextReader::describe(const std::string& name) {
    size_t underscore = name.find('_');
    std::string base = name.substr(0, underscore);
    std::string suffix = underscore == std::string::npos ? "" : name.substr(underscore + 1);
    std::string code = twoLetterCode(base);
    std::string script;
    if (suffix == "sim") script = "Hans";
    else if (suffix == "tra") script = "Hant";
    else if (suffix == "cyrl") script = "Cyrl";
    else if (suffix == "latn") script = "Latn";
    else script = languageAndScript(code).second;
    return {name, code, script};
}

std::vector<TesseractTextReader::Language> TesseractTextReader::installedLanguages(const std::filesystem::path& dir) {
    std::vector<Language> result;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(dir, error)) {
        if (entry.path().extension() != ".traineddata") continue;
        std::string name = entry.path().stem().string();
        // Orientation, equations and vertical-only packs read no ordinary screen text.
        if (name == "osd" || name == "equ" || name.ends_with("_vert")) continue;
        result.push_back(describe(name));
    }
    std::sort(result.begin(), result.end(), [](const auto& a, const auto& b) { return a.name < b.name; });
    return result;
}

std::optional<TesseractTextReader::Language> TesseractTextReader::closest(const std::string& userLanguage,
                                                                         const std::vector<Language>& supported) {
    auto [code, script] = languageAndScript(userLanguage);
    std::vector<Language> sameCode;
    for (const auto& language : supported)
        if (language.code == code) sameCode.push_back(language);
    if (sameCode.empty()) return std::nullopt;
    if (!script.empty())
        for (const auto& language : sameCode)
            if (language.script == script) return language;
    return sameCode.front();
}

std::vector<TesseractTextReader::Language> TesseractTextReader::preferredLanguages(
    const std::vector<std::string>& userLanguages, const std::vector<Language>& supported) {
    std::vector<Language> result;
    for (const auto& user : userLanguages) {
        auto match = closest(user, supported);
        if (match && std::find(result.begin(), result.end(), *match) == result.end()) result.push_back(*match);
    }
    return result.empty() ? supported : result;
}

std::string TesseractTextReader::languageSelection() const {
    std::string joined;
    for (const auto& language : languages_) joined += (joined.empty() ? "" : "+") + language.name;
    return joined;
}

void TesseractTextReader::start() {
    std::lock_guard lock(mutex_);
    if (ready_.valid()) return;
    // Tesseract's OpenMP threads cost far more than they give on a screen of text (about 1.8 s
    // against 0.2 s an image); the limit is read when its runtime starts, so it is set first.
    setenv("OMP_THREAD_LIMIT", "1", 0);
    ready_ = std::async(std::launch::async, [this] {
                 if (languages_.empty())
                     throw TextRecognizer::RecognizeError("No Tesseract languages are installed in " +
                                                          dataDirectory_.string());
                 auto api = std::make_unique<tesseract::TessBaseAPI>();
                 if (api->Init(dataDirectory_.c_str(), languageSelection().c_str(), tesseract::OEM_LSTM_ONLY) != 0)
                     throw TextRecognizer::RecognizeError("Tesseract couldn't load " + languageSelection());
                 api->SetPageSegMode(tesseract::PSM_AUTO);
                 api->SetVariable("debug_file", "/dev/null");  // its diagnostics are no user's business
                 api_ = std::move(api);
             }).share();
}

void TesseractTextReader::warmUp() { start(); }

std::vector<TextRecognizer::Fragment> TesseractTextReader::readFragments(const QImage& image) {
    if (image.isNull() || image.width() < 1 || image.height() < 1)
        throw TextRecognizer::RecognizeError("The image is empty");
    start();
    ready_.get();
    QImage rgb = image.convertToFormat(QImage::Format_RGB888);
    std::lock_guard lock(mutex_);
    api_->SetImage(rgb.constBits(), rgb.width(), rgb.height(), 3, static_cast<int>(rgb.bytesPerLine()));
    if (api_->Recognize(nullptr) != 0) throw TextRecognizer::RecognizeError("Tesseract couldn't read the image");

    std::vector<TextRecognizer::Fragment> fragments;
    std::unique_ptr<tesseract::ResultIterator> lines(api_->GetIterator());
    const auto level = tesseract::RIL_TEXTLINE;
    double w = image.width(), h = image.height();
    if (lines) {
        do {
            std::unique_ptr<char[]> text(lines->GetUTF8Text(level));
            int left, top, right, bottom;
            if (!text || !lines->BoundingBox(level, &left, &top, &right, &bottom)) continue;
            std::string line = trimmed(text.get());
            if (line.empty()) continue;
            fragments.push_back({line, Rect(left / w, 1 - bottom / h, (right - left) / w, (bottom - top) / h)});
        } while (lines->Next(level));
    }
    api_->Clear();
    return fragments;
}

std::string TesseractTextReader::read(const QImage& image) { return TextRecognizer::assemble(readFragments(image)); }

}  // namespace halvane
