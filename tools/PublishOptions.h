#pragma once

#include <QCommandLineOption>
#include <QCommandLineParser>
#include <QString>
#include <QStringList>

/// What one run does and where, as the command line says.
class PublishOptions
{
public:
    enum class Action { Publish, List, RollBack, Pause, NewKey, Help };

    PublishOptions();

    /// Reads \a arguments, the program's name first. False when they are no use; errorString()
    /// then says why in one line.
    bool parse(const QStringList &arguments);

    Action action() const { return m_action; }
    QString helpText() const { return m_parser.helpText(); }
    QString errorString() const { return m_error; }

    QString pluginDir() const { return m_parser.value(m_pluginDir); }
    QString pluginVersion() const { return m_parser.value(m_pluginVersion); }
    QString outDir() const { return m_parser.value(m_out); }
    /// Address under which the output folder is served, encoded, without a slash at its end.
    QString baseUrl() const;
    /// "YYYY-MM-DD HH:MM:SS"; the present moment unless given.
    QString date() const;
    bool isDateGiven() const { return m_parser.isSet(m_date); }
    /// Names, or paths below the plugin's folder, with wildcards.
    QStringList excluded() const { return m_parser.values(m_exclude); }
    bool allowsRemoved() const { return m_parser.isSet(m_allowRemoved); }
    /// How many of the last manifests keep their packages; 0 for all.
    int kept() const { return m_parser.value(m_keep).toInt(); }
    /// MD5 of the package to return to.
    QString rollBackTo() const { return m_parser.value(m_rollBack); }
    QString newKeyFile() const { return m_parser.value(m_newKey); }
    /// The private key's file; empty to publish unsigned.
    QString keyFile() const { return m_parser.value(m_key); }
    /// Further keys that may have signed what was published: Base64, divided by commas.
    QByteArray publicKeys() const { return m_parser.value(m_publicKeys).toLatin1(); }
    /// Whether to sign an earlier package that none of the given keys has signed.
    bool allowsResigning() const { return m_parser.isSet(m_resign); }
    bool allowsUnsigned() const { return m_parser.isSet(m_unsigned); }

private:
    bool findAction();
    bool checkValues();
    bool fail(const QString &text);

    QCommandLineOption m_pluginDir;
    QCommandLineOption m_pluginVersion;
    QCommandLineOption m_baseUrl;
    QCommandLineOption m_out;
    QCommandLineOption m_date;
    QCommandLineOption m_exclude;
    QCommandLineOption m_allowRemoved;
    QCommandLineOption m_keep;
    QCommandLineOption m_key;
    QCommandLineOption m_unsigned;
    QCommandLineOption m_publicKeys;
    QCommandLineOption m_resign;
    QCommandLineOption m_list;
    QCommandLineOption m_rollBack;
    QCommandLineOption m_pause;
    QCommandLineOption m_newKey;
    QCommandLineOption m_help;
    QCommandLineParser m_parser;
    Action m_action = Action::Publish;
    QString m_error;
};
