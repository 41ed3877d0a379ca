#include "PublishOptions.h"

#include "ManifestSignature.h"
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
      m_out(QStringLiteral("out"), QStringLiteral("The folder that the web server serves."),
            QStringLiteral("folder")),
      m_date(QStringLiteral("date"), QStringLiteral("Date of the plugin; the present by default."),
             QStringLiteral("YYYY-MM-DD HH:MM:SS")),
      m_exclude(QStringLiteral("exclude"),
                QStringLiteral("Leaves out files and folders of this name or path; * and ? stand "
                               "for any characters. May be given more than once."),
                QStringLiteral("pattern")),
      m_allowRemoved(QStringLiteral("allow-removed"),
                     QStringLiteral("Publishes although files of the last version are missing.")),
      m_keep(QStringLiteral("keep"),
             QStringLiteral("Removes packages that the last so many manifests don't name."),
             QStringLiteral("number")),
      m_key(QStringLiteral("key"), QStringLiteral("Signs with this private key."),
            QStringLiteral("file")),
      m_unsigned(QStringLiteral("unsigned"),
                 QStringLiteral("Publishes unsigned where the last manifest was signed.")),
      m_publicKeys(QStringLiteral("public-keys"),
                   QStringLiteral("Takes earlier manifests for signed by one of these, too."),
                   QStringLiteral("key,...")),
      m_resign(QStringLiteral("resign"),
               QStringLiteral("Signs an earlier package although none of the given keys has signed "
                              "it, and prints what is in it.")),
      m_list(QStringLiteral("list"), QStringLiteral("Lists what was published.")),
      m_rollBack(
          QStringLiteral("rollback"),
          QStringLiteral("Offers the earlier package with this checksum again, under the same "
                         "address unless --base-url is given."),
          QStringLiteral("MD5")),
      m_pause(QStringLiteral("pause"),
              QStringLiteral("Offers nothing until something is published again.")),
      m_newKey(QStringLiteral("new-key"),
               QStringLiteral("Makes a private key and prints the public one."),
               QStringLiteral("file")),
      m_help({QStringLiteral("h"), QStringLiteral("help")}, QStringLiteral("Shows this help."))
{
    m_parser.setApplicationDescription(QStringLiteral(
        "Packs a plugin and writes the manifest that announces it, ready for a web server."));
    m_parser.addOptions({m_pluginDir, m_pluginVersion, m_baseUrl, m_out, m_date, m_exclude,
                         m_allowRemoved, m_keep, m_key, m_unsigned, m_publicKeys, m_resign, m_list,
                         m_rollBack, m_pause, m_newKey, m_help});
}

bool PublishOptions::parse(const QStringList &arguments)
{
    if (!m_parser.parse(arguments))
        return fail(m_parser.errorText());
    return findAction() && checkValues();
}

bool PublishOptions::findAction()
{
    if (m_parser.isSet(m_help)) {
        m_action = Action::Help;
        return true;
    }
    if (!m_parser.positionalArguments().isEmpty())
        return fail(QStringLiteral("Unexpected argument '%1'.")
                        .arg(m_parser.positionalArguments().constFirst()));
    const std::pair<const QCommandLineOption &, Action> actions[] = {{m_list, Action::List},
                                                                     {m_rollBack, Action::RollBack},
                                                                     {m_pause, Action::Pause},
                                                                     {m_newKey, Action::NewKey}};
    for (const auto &[option, action] : actions) {
        if (!m_parser.isSet(option))
            continue;
        if (m_action != Action::Publish)
            return fail(QStringLiteral("One thing at a time, please."));
        m_action = action;
    }
    return true;
}

bool PublishOptions::checkValues()
{
    QVector<QCommandLineOption> needed{m_out};
    if (m_action == Action::Help)
        return true;
    if (m_action == Action::NewKey)
        needed = {m_newKey};
    else if (m_action == Action::Publish)
        needed = {m_pluginDir, m_pluginVersion, m_baseUrl, m_out};
    // An empty one is a variable that a script has not set, and must not leave updates unsigned.
    for (const auto *option : {&m_key, &m_publicKeys}) {
        if (m_parser.isSet(*option))
            needed += *option;
    }
    for (const auto &option : needed) {
        if (m_parser.value(option).trimmed().isEmpty())
            return fail(QStringLiteral("Missing --%1.").arg(option.names().constFirst()));
    }
    if (!ManifestSignature::isKeyList(publicKeys().toStdString()))
        return fail(QStringLiteral("Not public keys divided by commas: '%1'.")
                        .arg(m_parser.value(m_publicKeys)));
    if (m_parser.isSet(m_keep) && kept() < 1)
        return fail(QStringLiteral("Not a number above 0: '%1'.").arg(m_parser.value(m_keep)));
    const bool isAddressUsed =
        m_action == Action::Publish || (m_action == Action::RollBack && m_parser.isSet(m_baseUrl));
    if (isAddressUsed && !isServerAddress(m_parser.value(m_baseUrl)))
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
