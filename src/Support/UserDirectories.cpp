#include "Support/UserDirectories.h"

#include <cstdlib>
#include <fstream>
#include <pwd.h>
#include <string>
#include <unistd.h>

namespace halvane {

namespace fs = std::filesystem;

namespace {

fs::path absoluteFromEnvironment(const char* name) {
    const char* value = std::getenv(name);
    if (!value || value[0] != '/') return {};
    return value;
}

// One entry of user-dirs.dirs, a shell fragment of lines like XDG_VIDEOS_DIR="$HOME/Videos".
fs::path userDirsEntry(const std::string& key) {
    const char* config = std::getenv("XDG_CONFIG_HOME");
    fs::path file = (config && config[0] == '/' ? fs::path(config) : UserDirectories::home() / ".config") / "user-dirs.dirs";
    std::ifstream in(file);
    std::string line;
    const std::string prefix = key + "=\"";
    while (std::getline(in, line)) {
        if (line.rfind(prefix, 0) != 0 || line.back() != '"') continue;
        std::string value = line.substr(prefix.size(), line.size() - prefix.size() - 1);
        if (value.rfind("$HOME/", 0) == 0) return UserDirectories::home() / value.substr(6);
        if (!value.empty() && value[0] == '/') return value;
    }
    return {};
}

}  // namespace

fs::path UserDirectories::home() {
    if (auto home = absoluteFromEnvironment("HOME"); !home.empty()) return home;
    if (const passwd* pw = getpwuid(getuid()); pw && pw->pw_dir) return pw->pw_dir;
    return fs::temp_directory_path();
}

fs::path UserDirectories::data() {
    if (auto data = absoluteFromEnvironment("XDG_DATA_HOME"); !data.empty()) return data;
    return home() / ".local" / "share";
}

fs::path UserDirectories::videos() {
    if (auto videos = absoluteFromEnvironment("XDG_VIDEOS_DIR"); !videos.empty()) return videos;
    if (auto videos = userDirsEntry("XDG_VIDEOS_DIR"); !videos.empty()) return videos;
    return home() / "Videos";
}

}  // namespace halvane
