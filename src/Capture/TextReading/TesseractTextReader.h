#pragma once

#include "Capture/TextReading/TextRecognizer.h"

#include <filesystem>
#include <future>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

class QImage;

namespace tesseract {
class TessBaseAPI;
}

namespace halvane {

// The system engine: Tesseract 5 through its C++ API, with the languages of the user's locale
// among the installed traineddata files. The engine loads once and is reused; `warmUp` starts the
// load in the background so that it overlaps with whatever the user does first.
class TesseractTextReader {
public:
    // A traineddata name ("eng", "chi_tra") with the language and script it reads.
    struct Language {
        std::string name;
        std::string code;    // ISO 639-1 where there is one ("en", "zh")
        std::string script;  // ISO 15924 ("Latn", "Hant")
        friend bool operator==(const Language&, const Language&) = default;
    };

    explicit TesseractTextReader(std::filesystem::path dataDirectory = defaultDataDirectory(),
                                 std::vector<std::string> userLanguages = userPreferredLanguages());
    ~TesseractTextReader();

    void warmUp();
    // Throws TextRecognizer::RecognizeError when the engine can't start or the image can't be read.
    std::vector<TextRecognizer::Fragment> readFragments(const QImage& image);
    std::string read(const QImage& image);
    // The traineddata names in use, joined as Tesseract takes them ("eng+deu").
    std::string languageSelection() const;

    static std::filesystem::path defaultDataDirectory();
    // From LANGUAGE, LC_ALL, LC_MESSAGES and LANG, as locale identifiers ("zh_TW", "en").
    static std::vector<std::string> userPreferredLanguages();
    static std::vector<Language> installedLanguages(const std::filesystem::path& dataDirectory);
    static Language describe(const std::string& traineddataName);
    // For each user language in order the closest supported one, without repeats; all of them
    // when nothing matches.
    static std::vector<Language> preferredLanguages(const std::vector<std::string>& userLanguages,
                                                    const std::vector<Language>& supported);
    // Same language code; among those the first of the same script, else the first.
    static std::optional<Language> closest(const std::string& userLanguage, const std::vector<Language>& supported);

private:
    void start();

    std::filesystem::path dataDirectory_;
    std::vector<Language> languages_;
    std::unique_ptr<tesseract::TessBaseAPI> api_;
    std::shared_future<void> ready_;
    std::mutex mutex_;
};

}  // namespace halvane
