#include "Hosts.h"

#include <QDebug>
#include <QSettings>
#include <QUrl>

namespace
{
bool isHost(const QString &text)
{
    const QUrl url(QStringLiteral("http://") + text, QUrl::StrictMode);
    const QUrl bare = url.adjusted(QUrl::RemoveUserInfo | QUrl::RemovePath | QUrl::RemoveQuery |
                                   QUrl::RemoveFragment);
    return url.isValid() && !url.host().isEmpty() && url == bare && url.port() != 0;
}

QString host(const QSettings &settings, const QString &key, const char *fallback)
{
    if (!settings.contains(key))
        return QString::fromLatin1(fallback);
    const QString value = settings.value(key).toString();
    if (isHost(value))
        return value;
    qDebug() << "hosts: not a host:" << key << value;
    return QString::fromLatin1(fallback);
}
} // namespace

Hosts Hosts::read(QSettings &settings)
{
    settings.beginGroup(QStringLiteral("hosts"));
    const Hosts hosts{host(settings, QStringLiteral("update"), BREKKA_UPDATE_HOST),
                      host(settings, QStringLiteral("agreement"), BREKKA_AGREEMENT_HOST),
                      host(settings, QStringLiteral("site"), BREKKA_SITE_HOST),
                      host(settings, QStringLiteral("game"), BREKKA_GAME_HOST)};
    settings.endGroup();
    return hosts;
}
