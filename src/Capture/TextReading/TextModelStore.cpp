#include "Capture/TextReading/TextModelStore.h"

#include "Capture/TextReading/PaddleTextReader.h"
#include "Capture/TextReading/TextReadingStrings.h"

#include <archive.h>
#include <archive_entry.h>

#include <QCryptographicHash>
#include <QFile>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QObject>
#include <QStandardPaths>

#include <fstream>
#include <vector>

namespace halvane {

namespace fs = std::filesystem;

// The archive that scripts/build-text-models makes; resources/text-models holds the same record.
const TextModelStore::Release TextModelStore::release{
    "pp-ocrv4-mobile-v2", 14339884, "6c80b67f1a64cf0a9d8c23005bdc099464bde4b436042bfb0baef3d457d30d12"};

namespace {

constexpr const char* bundleIdentifier = "app.halvane.Halvane";
constexpr size_t hashBlockSize = 1048576;

void removeQuietly(const fs::path& path) {
    std::error_code ignored;
    fs::remove_all(path, ignored);
}

// Frees a libarchive handle with the matching call, in reverse order of opening.
struct ArchiveHandle {
    archive* handle;
    int (*free)(archive*);
    ~ArchiveHandle() {
        if (handle) free(handle);
    }
};

}  // namespace

TextModelStore::InstallError::InstallError(Kind kind, int status, const std::string& description)
    : HalvaneError(description, status), kind_(kind), status_(status) {}

TextModelStore::InstallError TextModelStore::InstallError::badResponse(int status) {
    return {Kind::badResponse, status, textReadingString("text.model.error.server", "The model server answered with status %d.", status)};
}

TextModelStore::InstallError TextModelStore::InstallError::corrupt() {
    return {Kind::corrupt, 0, textReadingString("text.model.error.corrupt", "The downloaded text models are damaged.")};
}

TextModelStore::InstallError TextModelStore::InstallError::unreadableArchive() {
    return {Kind::unreadableArchive, 0, textReadingString("text.model.error.corrupt", "The downloaded text models are damaged.")};
}

TextModelStore::TextModelStore(Defaults& defaults, std::optional<fs::path> root, QUrl archiveUrl)
    : defaults_(defaults), root_(std::move(root)), archiveUrl_(std::move(archiveUrl)),
      context_(std::make_unique<QObject>()) {}

TextModelStore::~TextModelStore() {
    if (reply_) {
        installId_.reset();
        reply_->abort();
    }
    if (installer_.joinable()) installer_.join();
    context_.reset();  // drops results the installer posted but the loop has not delivered
}

std::optional<fs::path> TextModelStore::defaultRoot() {
    QString data = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation);
    if (data.isEmpty()) return std::nullopt;
    return fs::path(data.toStdString()) / bundleIdentifier / "Text Recognition";
}

QUrl TextModelStore::archiveUrlFrom(const char* environmentValue) {
    QUrl base(defaultBaseUrl);
    if (environmentValue && *environmentValue) {
        QUrl candidate(QString::fromUtf8(environmentValue), QUrl::StrictMode);
        QString scheme = candidate.scheme().toLower();
        if (candidate.isValid() && (scheme == "http" || scheme == "https") && !candidate.host().isEmpty())
            base = candidate;
    }
    if (!base.path().endsWith('/')) base.setPath(base.path() + '/');
    return base.resolved(QUrl(QString::fromStdString("models/" + release.name + archiveExtension)));
}

bool TextModelStore::isSelected() const { return defaults_.string(selectionKey) == selectionValue; }

std::optional<fs::path> TextModelStore::installedDirectory() const {
    if (!root_) return std::nullopt;
    return *root_ / release.name;
}

bool TextModelStore::isInstalled() const {
    auto directory = installedDirectory();
    if (!directory) return false;
    std::error_code error;
    for (const char* file : {PaddleTextReader::detectorFile, PaddleTextReader::recognizerFile,
                             PaddleTextReader::charactersFile})
        if (!fs::is_regular_file(*directory / file, error)) return false;
    return true;
}

void TextModelStore::changed() {
    if (onChange) onChange();
}

void TextModelStore::setPhase(Phase phase) {
    if (phase == phase_) return;
    phase_ = std::move(phase);
    changed();
}

void TextModelStore::select() {
    defaults_.setString(selectionKey, selectionValue);
    if (phase_.kind == Phase::Kind::failed) setPhase({});
    install();
    changed();
}

void TextModelStore::deselect() {
    defaults_.remove(selectionKey);
    installId_.reset();
    if (reply_) reply_->abort();
    setPhase({});
    if (onCancelPendingReads) onCancelPendingReads();
    if (root_) removeQuietly(*root_);
    changed();
}

void TextModelStore::install() {
    if (installId_ || isInstalled() || !root_) return;
    Uuid id = Uuid::random();
    installId_ = id;
    setPhase({Phase::Kind::downloading, 0, {}});
    startDownload(id);
}

void TextModelStore::startDownload(const Uuid& id) {
    if (!network_) network_ = std::make_unique<QNetworkAccessManager>();
    download_ = fs::temp_directory_path() / (release.name + "-" + id.string() + archiveExtension);
    downloadFile_ = std::make_unique<QFile>(QString::fromStdString(download_.string()));
    if (!downloadFile_->open(QIODevice::WriteOnly | QIODevice::Truncate)) {
        finish(id, std::make_exception_ptr(HalvaneError("Couldn't create " + download_.string())));
        return;
    }
    QNetworkRequest request(archiveUrl_);
    // Every download is fresh and anonymous: no cache, no cookies.
    request.setAttribute(QNetworkRequest::CacheLoadControlAttribute, QNetworkRequest::AlwaysNetwork);
    request.setAttribute(QNetworkRequest::CacheSaveControlAttribute, false);
    request.setAttribute(QNetworkRequest::CookieLoadControlAttribute, QNetworkRequest::Manual);
    request.setAttribute(QNetworkRequest::CookieSaveControlAttribute, QNetworkRequest::Manual);
    reply_ = network_->get(request);
    QNetworkReply* reply = reply_;
    QObject::connect(reply, &QNetworkReply::readyRead, context_.get(), [this, reply] {
        if (downloadFile_) downloadFile_->write(reply->readAll());
    });
    QObject::connect(reply, &QNetworkReply::downloadProgress, context_.get(), [this, id](qint64 received, qint64 expected) {
        reportProgress(id, std::min(1.0, double(received) / double(std::max<qint64>(expected, 1))));
    });
    QObject::connect(reply, &QNetworkReply::finished, context_.get(), [this, id] { downloadFinished(id); });
}

void TextModelStore::reportProgress(const Uuid& id, double fraction) {
    if (installId_ != id || phase_.kind != Phase::Kind::downloading || !(fraction > phase_.fraction)) return;
    setPhase({Phase::Kind::downloading, fraction, {}});
}

void TextModelStore::downloadFinished(const Uuid& id) {
    QNetworkReply* reply = reply_;
    reply_ = nullptr;
    if (!reply) return;
    reply->deleteLater();
    if (downloadFile_) {
        downloadFile_->write(reply->readAll());
        downloadFile_->close();
        downloadFile_.reset();
    }
    fs::path archive = download_;
    QVariant status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
    std::exception_ptr error;
    bool cancelled = reply->error() == QNetworkReply::OperationCanceledError;
    if (cancelled) {
    } else if (status.isValid() && (status.toInt() < 200 || status.toInt() > 299)) {
        error = std::make_exception_ptr(InstallError::badResponse(status.toInt()));
    } else if (!status.isValid()) {
        error = std::make_exception_ptr(reply->error() != QNetworkReply::NoError
                                            ? HalvaneError(reply->errorString().toStdString())
                                            : InstallError::badResponse(0));
    }
    // A success status with a body cut short goes on: the size and digest check calls it corrupt.
    if (cancelled || error || installId_ != id) {
        removeQuietly(archive);
        finish(id, error, cancelled);
        return;
    }
    setPhase({Phase::Kind::installing, 0, {}});
    fs::path root = *root_;
    installer_ = std::jthread([this, id, archive, root] {
        std::exception_ptr failure;
        try {
            installArchive(archive, release, root);
            removeStaleInstalls(root, release.name);
        } catch (...) {
            failure = std::current_exception();
        }
        removeQuietly(archive);
        QMetaObject::invokeMethod(context_.get(), [this, id, failure] { finish(id, failure); }, Qt::QueuedConnection);
    });
}

void TextModelStore::finish(const Uuid& id, std::exception_ptr error, bool cancelled) {
    if (installId_ != id) {
        // The engine was turned off while this install ran: its result goes.
        if (!isSelected() && root_) removeQuietly(*root_ / release.name);
        return;
    }
    installId_.reset();
    if (!error || cancelled) {
        setPhase({});
        changed();
        return;
    }
    std::string message;
    try {
        std::rethrow_exception(error);
    } catch (const std::exception& e) {
        message = e.what();
    }
    defaults_.remove(selectionKey);
    setPhase({Phase::Kind::failed, 0, message});
}

void TextModelStore::verify(const fs::path& archive, const Release& expected) {
    QFile file(QString::fromStdString(archive.string()));
    if (!file.open(QIODevice::ReadOnly)) throw InstallError::corrupt();
    QCryptographicHash hash(QCryptographicHash::Sha256);
    std::uint64_t count = 0;
    while (true) {
        QByteArray block = file.read(hashBlockSize);
        if (block.isEmpty()) break;
        count += static_cast<std::uint64_t>(block.size());
        hash.addData(block);
    }
    bool readFailed = file.error() != QFileDevice::NoError;
    file.close();
    if (readFailed || count != expected.size || hash.result().toHex().toStdString() != expected.sha256)
        throw InstallError::corrupt();
}

void TextModelStore::extract(const fs::path& archivePath, const fs::path& destination) {
    ArchiveHandle reader{archive_read_new(), &archive_read_free};
    ArchiveHandle writer{archive_write_disk_new(), &archive_write_free};
    if (!reader.handle || !writer.handle) throw InstallError::unreadableArchive();
    archive_read_support_filter_all(reader.handle);
    archive_read_support_format_tar(reader.handle);
    archive_write_disk_set_options(writer.handle, ARCHIVE_EXTRACT_SECURE_NODOTDOT | ARCHIVE_EXTRACT_SECURE_SYMLINKS);
    if (archive_read_open_filename(reader.handle, archivePath.c_str(), 1 << 16) != ARCHIVE_OK)
        throw InstallError::unreadableArchive();
    fs::create_directories(destination);
    archive_entry* entry = nullptr;
    while (true) {
        int status = archive_read_next_header(reader.handle, &entry);
        if (status == ARCHIVE_EOF) break;
        if (status != ARCHIVE_OK) throw InstallError::unreadableArchive();
        auto type = archive_entry_filetype(entry);
        if (type != AE_IFREG && type != AE_IFDIR) continue;  // links and devices have no place here
        // Entries are placed below the destination by absolute path, so names that could leave it
        // are refused here.
        fs::path name = fs::path(archive_entry_pathname(entry)).lexically_normal();
        if (name.is_absolute() || name.empty() || *name.begin() == "..") throw InstallError::unreadableArchive();
        fs::path target = destination / name;
        archive_entry_set_pathname(entry, target.c_str());
        if (archive_write_header(writer.handle, entry) != ARCHIVE_OK) throw InstallError::unreadableArchive();
        const void* block;
        size_t size;
        la_int64_t offset;
        while ((status = archive_read_data_block(reader.handle, &block, &size, &offset)) == ARCHIVE_OK)
            if (archive_write_data_block(writer.handle, block, size, offset) != ARCHIVE_OK)
                throw InstallError::unreadableArchive();
        if (status != ARCHIVE_EOF || archive_write_finish_entry(writer.handle) != ARCHIVE_OK)
            throw InstallError::unreadableArchive();
    }
    archive_write_close(writer.handle);
    archive_read_close(reader.handle);
}

void TextModelStore::installArchive(const fs::path& archive, const Release& expected, const fs::path& root) {
    verify(archive, expected);
    fs::create_directories(root);
    fs::path staging = root / (".staging-" + Uuid::random().string());
    struct Cleanup {
        fs::path path;
        ~Cleanup() { removeQuietly(path); }
    } cleanup{staging};
    fs::create_directories(staging);
    fs::path unpacked = staging / "archive";
    extract(archive, unpacked);
    fs::path folder = staging / expected.name;
    fs::create_directory(folder);
    for (const char* file : {PaddleTextReader::detectorFile, PaddleTextReader::recognizerFile,
                             PaddleTextReader::charactersFile})
        if (!fs::is_regular_file(unpacked / file)) throw InstallError::corrupt();
    // The models must load here, not at the first read.
    try {
        PaddleTextReader::load(unpacked);
    } catch (const PaddleOCR::ReadError&) {
        throw InstallError::corrupt();
    }
    for (const char* file : {PaddleTextReader::detectorFile, PaddleTextReader::recognizerFile,
                             PaddleTextReader::charactersFile, "LICENSE.txt", "README.md"})
        if (fs::exists(unpacked / file)) fs::rename(unpacked / file, folder / file);
    fs::path installed = root / expected.name;
    fs::remove_all(installed);
    fs::rename(folder, installed);
}

void TextModelStore::removeStaleInstalls(const fs::path& root, const std::string& keeping) {
    std::error_code error;
    std::vector<fs::path> stale;
    for (const auto& entry : fs::directory_iterator(root, error))
        if (entry.path().filename() != keeping) stale.push_back(entry.path());
    for (const auto& path : stale) removeQuietly(path);
}

}  // namespace halvane
