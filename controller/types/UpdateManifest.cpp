#include "UpdateManifest.h"

#include "Paths.h"

#include <QDebug>
#include <QJsonDocument>
#include <QUrl>

#include <cmath>

namespace
{
const char *const ErrorKey = "errno";
const char *const DataKey = "data";
const char *const VersionKey = "version_name";
const char *const Md5Key = "md5";
const char *const DateKey = "updated_at";
const char *const FilesKey = "upgrade_info";
const char *const LinkKey = "link";
const char *const SizeKey = "size";
const char *const Sha256Key = "sha256";
const char *const SerialKey = "serial";
const char *const SignatureKey = "signature";
const char *const Signature2Key = "signature2";

std::optional<QString> text(const QJsonObject &object, const char *key)
{
    const QJsonValue value = object.value(QLatin1String(key));
    if (!value.isString())
        return std::nullopt;
    return value.toString();
}

void insert(QJsonObject &object, const char *key, const std::optional<QString> &text)
{
    if (text)
        object.insert(QLatin1String(key), *text);
}

/// \a json is a JSON document of its own, carried in a string. It is read as Latin-1, so whatever
/// is not must be escaped in it.
PluginFileList filesFromText(const QString &json)
{
    const QJsonObject object = QJsonDocument::fromJson(json.toLatin1()).object();
    PluginFileList files;
    for (auto file = object.begin(); file != object.end(); ++file) {
        if (!Paths::staysInside(file.key())) {
            qDebug() << "file outside the game folder dropped:" << file.key();
            continue;
        }
        files.insert(file.key(), file.value().toString());
    }
    return files;
}

QString textFromFiles(const PluginFileList &files)
{
    QJsonObject object;
    for (auto file = files.begin(); file != files.end(); ++file)
        object.insert(file.key(), file.value());
    const QString json = QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Compact));
    // Anything outside ASCII can only stand in a string, where an escape means the same.
    QString ascii;
    ascii.reserve(json.size());
    for (const QChar c : json) {
        if (c.unicode() < 0x80)
            ascii += c;
        else
            ascii += QStringLiteral("\\u%1").arg(c.unicode(), 4, 16, QLatin1Char('0'));
    }
    return ascii;
}
} // namespace

UpdateManifest UpdateManifest::fromJson(const QJsonObject &body)
{
    UpdateManifest manifest;
    const QJsonValue error = body.value(QLatin1String(ErrorKey));
    manifest.isServerError = error.isDouble() && std::trunc(error.toDouble()) != 0.0;
    const QJsonValue data = body.value(QLatin1String(DataKey));
    manifest.hasData = data.isObject();
    if (manifest.isServerError || !manifest.hasData)
        return manifest;

    const QJsonObject fields = data.toObject();
    manifest.version = fields.value(QLatin1String(VersionKey)).toString();
    manifest.packageMd5 = text(fields, Md5Key);
    manifest.updatedAt = text(fields, DateKey);
    if (const auto files = text(fields, FilesKey))
        manifest.files = filesFromText(*files);
    manifest.link = text(fields, LinkKey);
    manifest.packageSize = text(fields, SizeKey);
    manifest.packageSha256 = text(fields, Sha256Key);
    manifest.serial = text(fields, SerialKey);
    manifest.signature = text(fields, SignatureKey);
    manifest.signature2 = text(fields, Signature2Key);
    return manifest;
}

QJsonObject UpdateManifest::toJson() const
{
    QJsonObject body{{QLatin1String(ErrorKey), isServerError ? 1 : 0}};
    if (!hasData)
        return body;
    QJsonObject data{{QLatin1String(VersionKey), version}};
    insert(data, Md5Key, packageMd5);
    insert(data, DateKey, updatedAt);
    if (files)
        insert(data, FilesKey, textFromFiles(*files));
    insert(data, LinkKey, link);
    insert(data, SizeKey, packageSize);
    insert(data, Sha256Key, packageSha256);
    insert(data, SerialKey, serial);
    insert(data, SignatureKey, signature);
    insert(data, Signature2Key, signature2);
    body.insert(QLatin1String(DataKey), data);
    return body;
}

QString UpdateManifest::date() const
{
    const QString text = updatedAt.value_or(QString());
    return text.left(text.indexOf(QLatin1Char(' ')));
}

QUrl UpdateManifest::url(const QString &host)
{
    return QUrl(QStringLiteral("http://%1//cms/upgrade?platform=102&v=0").arg(host),
                QUrl::TolerantMode);
}
