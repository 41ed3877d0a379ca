#include "UpdateManifest.h"

#include "Paths.h"

#include <QDebug>
#include <QJsonDocument>
#include <QJsonObject>
#include <QUrl>

#include <cmath>

namespace
{
std::optional<QString> text(const QJsonObject &object, const char *key)
{
    const QJsonValue value = object.value(QLatin1String(key));
    if (!value.isString())
        return std::nullopt;
    return value.toString();
}

QString beforeBlank(const QString &text)
{
    return text.left(text.indexOf(QLatin1Char(' ')));
}

/// \a json is a JSON document of its own, carried in a string. It is read as Latin-1, so whatever
/// is not must be escaped in it.
PluginFileList fileList(const QString &json)
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
} // namespace

UpdateManifest UpdateManifest::fromJson(const QJsonObject &body)
{
    UpdateManifest manifest;
    const QJsonValue error = body.value(QLatin1String("errno"));
    manifest.isServerError = error.isDouble() && std::trunc(error.toDouble()) != 0.0;
    const QJsonValue data = body.value(QLatin1String("data"));
    manifest.hasData = data.isObject();
    if (manifest.isServerError || !manifest.hasData)
        return manifest;

    const QJsonObject fields = data.toObject();
    manifest.version = fields.value(QLatin1String("version_name")).toString();
    manifest.packageMd5 = text(fields, "md5");
    if (const auto updatedAt = text(fields, "updated_at"))
        manifest.date = beforeBlank(*updatedAt);
    if (const auto upgradeInfo = text(fields, "upgrade_info"))
        manifest.files = fileList(*upgradeInfo);
    manifest.link = text(fields, "link");
    return manifest;
}

QUrl UpdateManifest::url(const QString &host)
{
    return QUrl(QStringLiteral("http://%1//cms/upgrade?platform=102&v=0").arg(host),
                QUrl::TolerantMode);
}
