#include "Capture/TextReading/TextNets.h"

#include <dlfcn.h>

#include <cstdlib>
#include <mutex>
#include <stdexcept>
#include <string>
#include <system_error>

namespace halvane {

namespace {

constexpr const char* moduleName = "libhalvane_torch_text.so";

// Next to the running program first (an installed build), then where the build put it.
std::vector<std::filesystem::path> moduleCandidates() {
    std::vector<std::filesystem::path> candidates;
    std::error_code error;
    std::filesystem::path program = std::filesystem::read_symlink("/proc/self/exe", error);
    if (!error) candidates.push_back(program.parent_path() / moduleName);
#ifdef HALVANE_TEXT_NETS_MODULE
    candidates.emplace_back(HALVANE_TEXT_NETS_MODULE);
#endif
    return candidates;
}

using LoadFunction = decltype(&halvaneLoadTextNets);

LoadFunction openModule() {
    // oneDNN keeps 1,024 set-up convolutions by default; the recogniser alone has about 50 per
    // canvas width. Read when the module starts, so set before it is opened.
    setenv("ONEDNN_PRIMITIVE_CACHE_CAPACITY", "8192", 0);
    std::string failures;
    for (const auto& path : moduleCandidates()) {
        if (!std::filesystem::exists(path)) continue;
        // Never closed: libtorch doesn't survive being unloaded, and the process that reads text
        // keeps reading it.
        void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
        if (!handle) {
            failures += std::string(" ") + dlerror();
            continue;
        }
        if (void* entry = dlsym(handle, "halvaneLoadTextNets")) return reinterpret_cast<LoadFunction>(entry);
        failures += " " + path.string() + " has no entry point";
    }
    throw std::runtime_error("The text model runtime (" + std::string(moduleName) + ") couldn't be loaded." + failures);
}

}  // namespace

std::unique_ptr<TextNets> TextNets::load(const std::filesystem::path& detector, const std::filesystem::path& recognizer) {
    // The module is loaded once per process and stays; the lock only orders the first loads.
    static std::mutex mutex;
    static LoadFunction entry = nullptr;
    {
        std::lock_guard lock(mutex);
        if (!entry) entry = openModule();
    }
    char error[512] = {};
    TextNets* nets = entry(detector.c_str(), recognizer.c_str(), error, sizeof error);
    if (!nets) throw ModelError(error);
    return std::unique_ptr<TextNets>(nets);
}

}  // namespace halvane
