#include "Publisher.h"
#include "Interruption.h"
#include "PackageWriter.h"
#include "PluginFolder.h"
#include "PublishOptions.h"
#include "UpdateManifest.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QSaveFile>

Publisher::Publisher(const PublishOptions &options) : m_options(options) {}

bool Publisher::run()
{
    if (publish())
        return true;
    takeBack();
    return false;
}

bool Publisher::publish()
{
    PluginFolder plugin(m_options.pluginDir());
    if (!plugin.scan())
        return fail(plugin.errorString());
    // The next run would pack this run's output.
    if (plugin.contains(m_options.outDir()))
        return fail(QStringLiteral("the output folder lies in the plugin folder"));

    const QString packages = m_options.outDir() + QStringLiteral("/packages");
    if (!makeFolder(packages) || !makeFolder(m_options.outDir() + QStringLiteral("/cms")))
        return false;
    PackageWriter package(packages);
    return pack(plugin, package) && writeManifest(package);
}

bool Publisher::pack(const PluginFolder &plugin, PackageWriter &package)
{
    if (!package.open())
        return fail(package.errorString());
    for (const QString &file : plugin.files()) {
        if (Interruption::requested())
            return fail(QStringLiteral("interrupted"));
        if (!package.add(file, plugin.pathOf(file)))
            return fail(package.errorString());
    }
    if (!package.finish())
        return fail(package.errorString());
    if (Interruption::requested())
        return fail(QStringLiteral("interrupted"));
    if (!package.keep())
        return fail(package.errorString());
    if (package.isNew())
        m_newPackage = package.path();
    return true;
}

bool Publisher::writeManifest(const PackageWriter &package)
{
    UpdateManifest manifest;
    manifest.hasData = true;
    manifest.version = m_options.pluginVersion();
    manifest.packageMd5 = package.md5();
    manifest.updatedAt = m_options.date();
    manifest.link = QStringLiteral("%1/packages/%2.zip").arg(m_options.baseUrl(), package.md5());
    manifest.files = package.checksums();
    const QByteArray json = QJsonDocument(manifest.toJson()).toJson();

    QSaveFile file(m_options.outDir() + QStringLiteral("/cms/upgrade"));
    if (!file.open(QIODevice::WriteOnly) || file.write(json) != json.size() || !file.commit())
        return fail(QStringLiteral("cannot write %1: %2").arg(file.fileName(), file.errorString()));
    m_summary = QStringLiteral("published %1 files as version %2: %3 and %4")
                    .arg(QString::number(manifest.files->size()), manifest.version, package.path(),
                         file.fileName());
    return true;
}

bool Publisher::makeFolder(const QString &path)
{
    if (QFileInfo(path).isDir())
        return true;
    const QString parent = QFileInfo(QDir::cleanPath(path)).path();
    if (!makeFolder(parent))
        return false;
    if (!QDir().mkdir(path))
        return fail(QStringLiteral("cannot create the folder %1").arg(path));
    m_madeFolders.prepend(path);
    return true;
}

void Publisher::takeBack()
{
    if (!m_newPackage.isEmpty())
        QFile::remove(m_newPackage);
    for (const QString &folder : qAsConst(m_madeFolders))
        QDir().rmdir(folder);
}

bool Publisher::fail(const QString &text)
{
    m_error = text;
    return false;
}
