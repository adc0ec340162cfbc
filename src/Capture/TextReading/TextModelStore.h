#pragma once

#include "Support/HalvaneError.h"
#include "Support/Uuid.h"

#include <QUrl>

#include <cstdint>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>

class QFile;
class QNetworkAccessManager;
class QNetworkReply;
class QObject;

namespace halvane {

// Makes the optional PP-OCR text models available: one release, downloaded on demand as a single
// archive, checked, unpacked, proven loadable and moved into place, so that nothing half-installed
// is ever visible. Lives on the thread that runs the Qt event loop; hashing, unpacking and loading
// run on a thread of their own.
class TextModelStore {
public:
    struct Release {
        std::string name;
        std::uint64_t size = 0;
        std::string sha256;  // lower-case hexadecimal
        friend bool operator==(const Release&, const Release&) = default;
    };
    static const Release release;
    static constexpr const char* selectionKey = "textRecognitionEngine";
    static constexpr const char* selectionValue = "pp-ocrv6";
    static constexpr const char* archiveExtension = ".tar.zst";
    static constexpr const char* defaultBaseUrl = "https://downloads.halvane.app/";

    struct Phase {
        enum class Kind { idle, downloading, installing, failed };
        Kind kind = Kind::idle;
        double fraction = 0;  // downloading
        std::string message;  // failed
        friend bool operator==(const Phase&, const Phase&) = default;
    };

    class InstallError : public HalvaneError {
    public:
        enum class Kind { badResponse, corrupt, unreadableArchive };
        static InstallError badResponse(int status);
        static InstallError corrupt();
        static InstallError unreadableArchive();
        Kind kind() const { return kind_; }
        int status() const { return status_; }

    private:
        InstallError(Kind kind, int status, const std::string& description);
        Kind kind_;
        int status_;
    };

    // Where the selection is kept; the application backs it with its settings store.
    class Defaults {
    public:
        virtual ~Defaults() = default;
        virtual std::optional<std::string> string(const std::string& key) const = 0;
        virtual void setString(const std::string& key, const std::string& value) = 0;
        virtual void remove(const std::string& key) = 0;
    };

    // `root` is the folder of all installed models; without one nothing can be installed.
    TextModelStore(Defaults& defaults, std::optional<std::filesystem::path> root = defaultRoot(),
                   QUrl archiveUrl = archiveUrlFrom(std::getenv("HALVANE_TEXT_MODEL_URL")));
    ~TextModelStore();
    TextModelStore(const TextModelStore&) = delete;
    TextModelStore& operator=(const TextModelStore&) = delete;

    bool isSelected() const;
    // Both models and the character list are there as files; they are not opened.
    bool isInstalled() const;
    bool isRunning() const { return installId_.has_value(); }
    const Phase& phase() const { return phase_; }
    const std::optional<std::filesystem::path>& root() const { return root_; }
    const QUrl& archiveUrl() const { return archiveUrl_; }
    // The installed release's folder, the reader's model directory.
    std::optional<std::filesystem::path> installedDirectory() const;

    void select();
    void deselect();
    void install();

    // Each change of phase, selection or installed models.
    std::function<void()> onChange;
    // Asked to stop any read under way before the models are deleted.
    std::function<void()> onCancelPendingReads;

    // The parts of an install, usable on their own.
    static void verify(const std::filesystem::path& archive, const Release& release);
    static void extract(const std::filesystem::path& archive, const std::filesystem::path& destination);
    static void installArchive(const std::filesystem::path& archive, const Release& release,
                               const std::filesystem::path& root);
    static void removeStaleInstalls(const std::filesystem::path& root, const std::string& keeping);

    static std::optional<std::filesystem::path> defaultRoot();
    // The archive's address below the base in HALVANE_TEXT_MODEL_URL when that is an http(s) URL
    // with a host, else below the default base.
    static QUrl archiveUrlFrom(const char* environmentValue);

private:
    void setPhase(Phase phase);
    void startDownload(const Uuid& id);
    void downloadFinished(const Uuid& id);
    void reportProgress(const Uuid& id, double fraction);
    void finish(const Uuid& id, std::exception_ptr error, bool cancelled = false);
    void changed();

    Defaults& defaults_;
    std::optional<std::filesystem::path> root_;
    QUrl archiveUrl_;
    Phase phase_;
    std::optional<Uuid> installId_;
    std::unique_ptr<QObject> context_;
    std::unique_ptr<QNetworkAccessManager> network_;
    QNetworkReply* reply_ = nullptr;
    std::filesystem::path download_;
    std::unique_ptr<QFile> downloadFile_;
    std::jthread installer_;
};

}  // namespace halvane
