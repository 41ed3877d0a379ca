#pragma once

#include <QCommandLineOption>
#include <QCommandLineParser>
#include <QString>
#include <QStringList>

/// What one run publishes and where, as the command line says.
class PublishOptions
{
public:
    PublishOptions();

    /// Reads \a arguments, the program's name first. False when they are no use; errorString()
    /// then says why in one line.
    bool parse(const QStringList &arguments);

    bool helpRequested() const { return m_parser.isSet(m_help); }
    QString helpText() const { return m_parser.helpText(); }
    QString errorString() const { return m_error; }

    QString pluginDir() const { return m_parser.value(m_pluginDir); }
    QString pluginVersion() const { return m_parser.value(m_pluginVersion); }
    QString outDir() const { return m_parser.value(m_out); }
    /// Address under which the output folder is served, encoded, without a slash at its end.
    QString baseUrl() const;
    /// "YYYY-MM-DD HH:MM:SS"; the present moment unless given.
    QString date() const;

private:
    bool fail(const QString &text);

    QCommandLineOption m_pluginDir;
    QCommandLineOption m_pluginVersion;
    QCommandLineOption m_baseUrl;
    QCommandLineOption m_out;
    QCommandLineOption m_date;
    QCommandLineOption m_help;
    QCommandLineParser m_parser;
    QString m_error;
};
