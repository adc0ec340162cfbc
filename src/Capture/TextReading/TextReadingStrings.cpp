#include "Capture/TextReading/TextReadingStrings.h"

#include "Support/Localization.h"

namespace halvane {

std::string textReadingString(std::string_view key, std::string_view english) {
    std::string localized = Localization::string(key);
    return localized == key ? std::string(english) : localized;
}

std::string textReadingString(std::string_view key, std::string_view english, long long number) {
    std::string text = textReadingString(key, english);
    for (std::string_view placeholder : {"%d", "%@", "%lld"}) {
        if (size_t at = text.find(placeholder); at != std::string::npos) {
            text.replace(at, placeholder.size(), std::to_string(number));
            break;
        }
    }
    return text;
}

}  // namespace halvane
