#pragma once

#include <filesystem>

namespace halvane {

// The user's standard folders, as the XDG conventions place them.
struct UserDirectories {
    // $HOME, else the password database's entry.
    static std::filesystem::path home();
    // $XDG_DATA_HOME, else ~/.local/share: where Application Support data lives here.
    static std::filesystem::path data();
    // XDG_VIDEOS_DIR from the environment or ~/.config/user-dirs.dirs, else ~/Videos.
    static std::filesystem::path videos();
};

}  // namespace halvane
