#include "UpgradeManifest.h"

#include <QJsonDocument>
#include <QJsonObject>

namespace
{
// In a JSON text anything outside ASCII can only stand in a string, where an escape means the same.
QString asciiJson(const QJsonObject &object)
{
    const QString json = QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Compact));
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

QByteArray UpgradeManifest::toJson() const
{
    QJsonObject list;
    for (auto file = files.cbegin(); file != files.cend(); ++file)
        list.insert(file.key(), file.value());

    const QJsonObject data{
        {QStringLiteral("version_name"), version},
        {QStringLiteral("md5"), packageMd5},
        {QStringLiteral("updated_at"), updatedAt},
        {QStringLiteral("upgrade_info"), asciiJson(list)},
        {QStringLiteral("link"), link},
    };
    const QJsonObject document{{QStringLiteral("errno"), 0}, {QStringLiteral("data"), data}};
    return QJsonDocument(document).toJson();
}
