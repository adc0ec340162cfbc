#include "Cli/TextDefaults.h"

#include <QSettings>

namespace halvane::cli {

std::optional<std::string> TextDefaults::string(const std::string& key) const {
    QSettings store(QSettings::IniFormat, QSettings::UserScope, "Halvane", "Halvane");
    QVariant value = store.value(QString::fromStdString(key));
    if (!value.isValid()) return std::nullopt;
    return value.toString().toStdString();
}

void TextDefaults::setString(const std::string& key, const std::string& value) {
    QSettings store(QSettings::IniFormat, QSettings::UserScope, "Halvane", "Halvane");
    store.setValue(QString::fromStdString(key), QString::fromStdString(value));
    store.sync();
}

void TextDefaults::remove(const std::string& key) {
    QSettings store(QSettings::IniFormat, QSettings::UserScope, "Halvane", "Halvane");
    store.remove(QString::fromStdString(key));
    store.sync();
}

}  // namespace halvane::cli
