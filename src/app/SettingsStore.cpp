#include "app/SettingsStore.h"

#include <QDir>
#include <QFile>
#include <QStringDecoder>

#include "core/Localization.h"

namespace pv::app {

namespace {

// QSettings reads almost anything as an INI file without complaint, so a file that is not
// text at all is caught here, before its bytes are taken for keys.
bool looksLikeText(const QByteArray& bytes) {
    if (bytes.contains('\0')) {
        return false;
    }
    QStringDecoder utf8(QStringDecoder::Utf8);
    [[maybe_unused]] const QString text = utf8(bytes);
    return !utf8.hasError();
}

}  // namespace

SettingsPreferenceStore::SettingsPreferenceStore() {
    settings_.setAtomicSyncRequired(true);  // the default; the rename is what we rely on
    const QString path = settings_.fileName();
    QFile file(path);
    if (!file.exists()) {
        return;
    }
    std::string reason;
    if (!file.open(QIODevice::ReadOnly)) {
        reason = tr("it cannot be read (%1)", {file.errorString().toStdString()});
    } else if (settings_.status() == QSettings::FormatError || !looksLikeText(file.readAll())) {
        // Kept aside, since the next write replaces it.
        const QString kept = path + ".unreadable";
        QFile::remove(kept);
        reason = QFile::copy(path, kept)
                     ? tr("it is not a settings file (kept as %1)", {kept.toStdString()})
                     : tr("it is not a settings file");
    }
    if (!reason.empty()) {
        readStatus_ = Status(Error{path.toStdString(), reason});
    }
}

std::string SettingsPreferenceStore::location() const {
    return settings_.fileName().toStdString();
}

std::optional<std::string> SettingsPreferenceStore::value(const std::string& key) const {
    const QString k = QString::fromStdString(key);
    if (!readStatus_ || !settings_.contains(k)) {
        return std::nullopt;
    }
    const QVariant v = settings_.value(k);
    // Commas unquoted in the file make a list; anything else without a text is named by type.
    if (v.typeId() == QMetaType::QStringList) {
        return v.toStringList().join(", ").toStdString();
    }
    if (v.canConvert<QString>()) {
        return v.toString().toStdString();
    }
    return "<" + std::string(v.isValid() ? v.typeName() : "invalid") + ">";
}

void SettingsPreferenceStore::setValue(const std::string& key, const std::string& text) {
    settings_.setValue(QString::fromStdString(key), QString::fromStdString(text));
}

Status SettingsPreferenceStore::sync() {
    settings_.sync();
    // A format error here is the old file's; the new one has been written over it.
    if (settings_.status() == QSettings::AccessError) {
        return Status(
            Error{location(), tr("the settings file or its folder cannot be written"), true});
    }
    return Status();
}

void restoreUserPreferences(PixmeraVeltroController& controller) {
    controller.registerDefaults(QDir::homePath().toStdString());
    const SettingsPreferenceStore store;
    controller.restoreUserPreferences(store);
}

void saveUserPreferences(PixmeraVeltroController& controller) {
    SettingsPreferenceStore store;
    controller.saveUserPreferences(store);
}

}  // namespace pv::app
