#include "PublishOptions.h"

#include "WebAddress.h"

#include <QDateTime>
#include <QUrl>

namespace
{
constexpr char DateFormat[] = "yyyy-MM-dd HH:mm:ss";

bool isServerAddress(const QString &text)
{
    const QUrl url(text, QUrl::StrictMode);
    return url.isValid() && isWebAddress(url) && !url.host().isEmpty() && !url.hasQuery() &&
           !url.hasFragment();
}
} // namespace

PublishOptions::PublishOptions()
    : m_pluginDir(QStringLiteral("plugin-dir"),
                  QStringLiteral("The plugin, laid out as in the game folder."),
                  QStringLiteral("folder")),
      m_pluginVersion(QStringLiteral("plugin-version"),
                      QStringLiteral("Version text that players see."), QStringLiteral("text")),
      m_baseUrl(QStringLiteral("base-url"),
                QStringLiteral("Address under which the output folder is served."),
                QStringLiteral("url")),
      m_out(QStringLiteral("out"),
            QStringLiteral("Folder to write the package and the manifest to."),
            QStringLiteral("folder")),
      m_date(QStringLiteral("date"), QStringLiteral("Date of the plugin; the present by default."),
             QStringLiteral("YYYY-MM-DD HH:MM:SS")),
      m_help({QStringLiteral("h"), QStringLiteral("help")}, QStringLiteral("Shows this help."))
{
    m_parser.setApplicationDescription(QStringLiteral(
        "Packs a plugin and writes the manifest that announces it, ready for a web server."));
    m_parser.addOptions({m_pluginDir, m_pluginVersion, m_baseUrl, m_out, m_date, m_help});
}

bool PublishOptions::parse(const QStringList &arguments)
{
    if (!m_parser.parse(arguments))
        return fail(m_parser.errorText());
    if (helpRequested())
        return true;
    if (!m_parser.positionalArguments().isEmpty())
        return fail(QStringLiteral("Unexpected argument '%1'.")
                        .arg(m_parser.positionalArguments().constFirst()));
    for (const auto &option : {m_pluginDir, m_pluginVersion, m_baseUrl, m_out}) {
        if (m_parser.value(option).trimmed().isEmpty())
            return fail(QStringLiteral("Missing --%1.").arg(option.names().constFirst()));
    }
    if (!isServerAddress(m_parser.value(m_baseUrl)))
        return fail(QStringLiteral("Not a web address: '%1'.").arg(m_parser.value(m_baseUrl)));
    if (!QDateTime::fromString(date(), DateFormat).isValid())
        return fail(QStringLiteral("Not a date like '2021-03-05 10:20:30': '%1'.").arg(date()));
    return true;
}

QString PublishOptions::baseUrl() const
{
    const QUrl url(m_parser.value(m_baseUrl), QUrl::StrictMode);
    QString text = QString::fromLatin1(url.toEncoded());
    while (text.endsWith(QLatin1Char('/')))
        text.chop(1);
    return text;
}

QString PublishOptions::date() const
{
    return m_parser.isSet(m_date) ? m_parser.value(m_date)
                                  : QDateTime::currentDateTime().toString(DateFormat);
}

bool PublishOptions::fail(const QString &text)
{
    m_error = text;
    return false;
}
