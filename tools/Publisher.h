#pragma once

#include <QString>
#include <QStringList>

class PackageWriter;
class PluginFolder;
class PublishOptions;

/// Puts a plugin where a web server can serve it to players.
///
/// In the output folder the package goes to packages/ and the manifest to cms/upgrade. The
/// manifest comes last and replaces the one before it in one step, so that a server never
/// announces a package that it doesn't have. Earlier packages stay, for players who are still
/// downloading them. A failed or interrupted run takes back whatever it had created.
class Publisher
{
public:
    explicit Publisher(const PublishOptions &options);

    /// Runs once. False on failure, and errorString() says why in one line.
    bool run();

    /// What a successful run has done, in one line.
    QString summary() const { return m_summary; }
    QString errorString() const { return m_error; }

private:
    bool publish();
    bool pack(const PluginFolder &plugin, PackageWriter &package);
    bool writeManifest(const PackageWriter &package);
    bool makeFolder(const QString &path);
    void takeBack();
    bool fail(const QString &text);

    const PublishOptions &m_options;
    QString m_newPackage;
    QStringList m_madeFolders;
    QString m_summary;
    QString m_error;
};
