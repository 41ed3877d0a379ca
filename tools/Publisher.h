#pragma once

#include "ManifestSignature.h"
#include "ReleaseFolder.h"
#include "SigningKey.h"

#include <QString>
#include <QStringList>

#include <optional>

class PackageWriter;
class PluginFolder;
class PublishOptions;

/// Puts a plugin where a web server can serve it to players, or takes an earlier one back there.
///
/// A failed or interrupted run takes back whatever it had created.
class Publisher
{
public:
    explicit Publisher(const PublishOptions &options);

    /// Runs once. False on failure, and errorString() says why in one line.
    bool run();

    /// What the run has done or noticed, or was asked for, in lines.
    QStringList report() const { return m_report; }
    QString errorString() const { return m_error; }

private:
    bool makeKey();
    bool publish();
    bool rollBack();
    bool pause();
    bool list();
    bool pack(const PluginFolder &plugin, PackageWriter &package);
    UpdateManifest manifestFor(const PackageWriter &package) const;
    QString linkTo(const QString &md5) const;
    bool checkKeyIsOutside(const PluginFolder &folder);
    bool isOffered(const UpdateManifest &manifest) const;
    bool checkRemoved(const UpdateManifest &manifest);
    bool isSigned(const Release &release) const;
    bool checkSigner(const Release &release, const QString &packageSha256);
    bool sign(UpdateManifest &manifest, const QString &packageSha256);
    bool offer(UpdateManifest manifest, const QString &packageSha256);
    bool fail(const QString &text);

    const PublishOptions &m_options;
    ReleaseFolder m_folder;
    std::optional<SigningKey> m_key;
    ManifestSignature::Keys m_trusted; ///< whoever has signed by one of these is the publisher
    QStringList m_report;
    QString m_error;
};
