#include "Publisher.h"

#include "Interruption.h"
#include "PackageNames.h"
#include "PackageWriter.h"
#include "PluginFolder.h"
#include "PublishOptions.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFileInfo>

#include <algorithm>

namespace
{
using Action = PublishOptions::Action;
using ManifestSignature::Format;
constexpr qint64 ClockTolerance = 60; // seconds
constexpr int MaxNames = 5;           // in a message

QString someOf(const QStringList &names)
{
    QString text = names.mid(0, MaxNames).join(QStringLiteral(", "));
    if (names.size() > MaxNames)
        text += QStringLiteral(" and %1 more").arg(names.size() - MaxNames);
    return text;
}

/// With everything that only a signed manifest has.
void removeSignatures(UpdateManifest &manifest)
{
    manifest.packageSha256.reset();
    manifest.serial.reset();
    manifest.signature.reset();
    manifest.signature2.reset();
}

/// In hexadecimal digits; empty if the file can't be read.
QString sumOf(const QString &path, QCryptographicHash::Algorithm algorithm)
{
    QFile file(path);
    QCryptographicHash hash(algorithm);
    if (!file.open(QIODevice::ReadOnly) || !hash.addData(&file))
        return {};
    return QString::fromLatin1(hash.result().toHex());
}
} // namespace

Publisher::Publisher(const PublishOptions &options) : m_options(options), m_folder(options.outDir())
{
}

bool Publisher::run()
{
    if (m_options.action() == Action::NewKey)
        return makeKey();
    if (!m_options.keyFile().isEmpty() &&
        !(m_key = SigningKey::load(m_options.keyFile(), &m_error)))
        return false;
    m_trusted = ManifestSignature::keysFromText(m_options.publicKeys());
    if (m_key)
        m_trusted += m_key->publicKey();
    bool done = false;
    switch (m_options.action()) {
    case Action::RollBack:
        done = rollBack();
        break;
    case Action::Pause:
        done = pause();
        break;
    case Action::List:
        return list();
    default:
        done = publish();
    }
    if (done)
        m_folder.settle();
    return done;
}

bool Publisher::makeKey()
{
    const auto key = SigningKey::create(m_options.newKeyFile(), &m_error);
    if (key)
        m_report += QString::fromLatin1(key->publicKey().toBase64());
    return key.has_value();
}

bool Publisher::publish()
{
    PluginFolder plugin(m_options.pluginDir(), m_options.excluded());
    if (!plugin.scan())
        return fail(plugin.errorString());
    // The next run would pack this run's output.
    if (plugin.contains(m_options.outDir()))
        return fail(QStringLiteral("the output folder lies in the plugin folder"));
    if (!plugin.leftOut().isEmpty())
        m_report += QStringLiteral("left out: ") + someOf(plugin.leftOut());
    if (!m_folder.open(true))
        return fail(m_folder.errorString());
    if (!checkKeyIsOutside(plugin) || !checkKeyIsOutside(PluginFolder(m_options.outDir())))
        return false;

    PackageWriter package(m_folder.packagesPath());
    if (!pack(plugin, package))
        return false;
    const UpdateManifest manifest = manifestFor(package);
    if (isOffered(manifest) && QFileInfo::exists(m_folder.packagePath(manifest))) {
        m_report += QStringLiteral("already offered: version %1, %2")
                        .arg(manifest.version, m_folder.packagePath(manifest));
        return m_folder.repair() || fail(m_folder.errorString());
    }
    if (!checkRemoved(manifest))
        return false;
    if (!package.keep())
        return fail(package.errorString());
    if (package.isNew())
        m_folder.addNewFile(package.path());
    return offer(manifest, package.sha256());
}

bool Publisher::checkKeyIsOutside(const PluginFolder &folder)
{
    return m_options.keyFile().isEmpty() || !folder.contains(m_options.keyFile()) ||
           fail(QStringLiteral("the private key lies where players could fetch it"));
}

/// Not signed yet.
UpdateManifest Publisher::manifestFor(const PackageWriter &package) const
{
    UpdateManifest manifest;
    manifest.hasData = true;
    manifest.version = m_options.pluginVersion();
    manifest.packageMd5 = package.md5();
    manifest.updatedAt = m_options.date();
    manifest.link = linkTo(package.md5());
    manifest.files = package.checksums();
    manifest.packageSize = QString::number(package.size());
    return manifest;
}

QString Publisher::linkTo(const QString &md5) const
{
    return QStringLiteral("%1/packages/%2.zip").arg(m_options.baseUrl(), md5);
}

bool Publisher::pack(const PluginFolder &plugin, PackageWriter &package)
{
    if (!package.open())
        return fail(package.errorString());
    for (const QString &file : plugin.files()) {
        if (!package.add(file, plugin.pathOf(file)))
            return fail(package.errorString());
    }
    if (!package.finish())
        return fail(package.errorString());
    return !Interruption::requested() || fail(QStringLiteral("interrupted"));
}

/// Whether publishing \a manifest, not yet signed, would change nothing but the date of the day.
bool Publisher::isOffered(const UpdateManifest &manifest) const
{
    if (!m_folder.offered())
        return false;
    UpdateManifest there = *m_folder.offered();
    const QJsonObject data = there.toJson().value(QStringLiteral("data")).toObject();
    const auto isSignedAs = [&](Format format) {
        return m_key
                   ? ManifestSignature::verify(data, format, {m_key->publicKey()}).problem.isEmpty()
                   : !data.contains(ManifestSignature::nameOf(format));
    };
    const bool isSigned = isSignedAs(Format::V1) && isSignedAs(Format::V2);
    removeSignatures(there);
    if (!m_options.isDateGiven())
        there.updatedAt = manifest.updatedAt;
    return isSigned && there.toJson() == manifest.toJson();
}

bool Publisher::checkRemoved(const UpdateManifest &manifest)
{
    if (m_folder.history().isEmpty())
        return true;
    QStringList removed;
    const PluginFileList before =
        m_folder.history().constLast().manifest.files.value_or(PluginFileList());
    for (auto file = before.begin(); file != before.end(); ++file) {
        if (!manifest.files->contains(file.key()))
            removed += file.key();
    }
    if (removed.isEmpty())
        return true;
    for (const QString &name : qAsConst(removed))
        m_report += QStringLiteral("no longer there: ") + name;
    const QString text =
        QStringLiteral("files that are no longer there stay on players' disks and in their lists");
    if (m_options.action() == Action::Publish && !m_options.allowsRemoved())
        return fail(text + QStringLiteral("; ship them empty, which costs nothing, or give "
                                          "--allow-removed"));
    m_report += text;
    return true;
}

bool Publisher::sign(UpdateManifest &manifest, const QString &packageSha256)
{
    const auto &history = m_folder.history();
    qint64 last = 0;
    for (const Release &release : history)
        last = std::max(last, release.manifest.serial.value_or(QString()).toLongLong());
    const bool wasSigned = !history.isEmpty() && history.constLast().manifest.signature;
    removeSignatures(manifest);
    if (!m_key) {
        return !wasSigned || m_options.allowsUnsigned() ||
               fail(QStringLiteral("the last manifest was signed, so programs with keys would "
                                   "refuse this one; give --key, or --unsigned if that is meant"));
    }
    const qint64 now = QDateTime::currentSecsSinceEpoch();
    const qint64 serial = std::max(now, last + 1);
    if (serial - now > ClockTolerance)
        return fail(QStringLiteral("the serial would go back from %1 to %2; is the clock right?")
                        .arg(last)
                        .arg(now));
    manifest.packageSha256 = packageSha256;
    manifest.serial = QString::number(serial);
    const QJsonObject data = manifest.toJson().value(QStringLiteral("data")).toObject();
    for (const Format format : {Format::V1, Format::V2}) {
        const auto bytes = ManifestSignature::signedBytes(data, format);
        if (!bytes)
            return fail(QStringLiteral("the manifest lacks a text that has to be signed"));
        (format == Format::V1 ? manifest.signature : manifest.signature2) =
            QString::fromLatin1(m_key->signatureOf(*bytes).toBase64());
    }
    return true;
}

bool Publisher::offer(UpdateManifest manifest, const QString &packageSha256)
{
    if (!sign(manifest, packageSha256))
        return false;
    if (!m_folder.offer(manifest))
        return fail(m_folder.errorString());
    m_folder.settle();
    m_report += QStringLiteral("published %1 files as version %2: %3 and %4")
                    .arg(QString::number(manifest.files.value_or(PluginFileList()).size()),
                         manifest.version, m_folder.packagePath(manifest), m_folder.manifestPath());
    if (m_options.kept() > 0) {
        const QStringList removed = m_folder.prune(m_options.kept());
        if (!removed.isEmpty())
            m_report += QStringLiteral("removed: ") + someOf(removed);
    }
    return true;
}

bool Publisher::rollBack()
{
    if (!m_folder.open(false))
        return fail(m_folder.errorString());
    const auto &history = m_folder.history();
    const auto release = std::find_if(history.crbegin(), history.crend(), [this](const Release &r) {
        return r.manifest.packageMd5 == m_options.rollBackTo().toLower();
    });
    if (release == history.crend())
        return fail(QStringLiteral("nothing with the checksum %1 was published; see --list")
                        .arg(m_options.rollBackTo()));
    UpdateManifest manifest = release->manifest;
    if (!m_options.baseUrl().isEmpty())
        manifest.link = linkTo(*manifest.packageMd5);
    const QString package = m_folder.packagePath(manifest);
    const QString sha256 = sumOf(package, QCryptographicHash::Sha256);
    if (sumOf(package, QCryptographicHash::Md5) != manifest.packageMd5 ||
        manifest.packageSha256.value_or(sha256) != sha256)
        return fail(QStringLiteral("%1 is gone or damaged").arg(package));
    manifest.packageSize = QString::number(QFileInfo(package).size());
    return (!m_key || checkSigner(*release, sha256)) && checkRemoved(manifest) &&
           offer(manifest, sha256);
}

/// Of what was read from the history, which others may have written, too.
bool Publisher::isSigned(const Release &release) const
{
    const Format format = ManifestSignature::formatOf(release.data);
    return ManifestSignature::verify(release.data, format, m_trusted).problem.isEmpty();
}

/// Whoever can write to the folder, but has no key, must not get a package of theirs signed.
bool Publisher::checkSigner(const Release &release, const QString &packageSha256)
{
    if (isSigned(release))
        return true;
    if (!m_options.allowsResigning())
        return fail(QStringLiteral("no given key has signed entry %1; give --public-keys with the "
                                   "one that has, or --resign to sign what is there")
                        .arg(release.number));
    const QString package = m_folder.packagePath(release.manifest);
    const auto names = PackageNames::in(package);
    if (!names)
        return fail(QStringLiteral("%1 was not written by this program").arg(package));
    m_report += QStringLiteral("signed although no given key had signed it: %1, SHA-256 %2, with")
                    .arg(package, packageSha256);
    for (const QString &name : *names)
        m_report += QStringLiteral("  ") + name;
    return true;
}

bool Publisher::pause()
{
    if (!m_folder.open(false))
        return fail(m_folder.errorString());
    // Whoever stops a bad release must not believe that it worked.
    if (m_folder.history().isEmpty())
        return fail(QStringLiteral("nothing was published in %1").arg(m_options.outDir()));
    if (!m_folder.pause())
        return fail(m_folder.errorString());
    m_report += QStringLiteral("paused: nothing is offered until something is published again");
    return true;
}

/// Leaves no trace in the folder, which may be a wrong one.
bool Publisher::list()
{
    if (!m_folder.open(false))
        return fail(m_folder.errorString());
    for (const Release &release : m_folder.history()) {
        const UpdateManifest &manifest = release.manifest;
        QStringList words{QString::number(release.number), release.since.toString(Qt::ISODate),
                          manifest.packageMd5.value_or(QString()), manifest.version};
        if (isSigned(release))
            words += QStringLiteral("(signed)");
        else if (manifest.signature || manifest.signature2)
            words += QStringLiteral("(claims a signature)");
        if (!QFileInfo::exists(m_folder.packagePath(manifest)))
            words += QStringLiteral("(package removed)");
        if (&release == &m_folder.history().constLast())
            words += m_folder.offered() ? QStringLiteral("(offered)") : QStringLiteral("(paused)");
        m_report += words.join(QLatin1Char(' '));
    }
    return true;
}

bool Publisher::fail(const QString &text)
{
    m_error = text;
    return false;
}
