#include "ZipCpp.h"

#include "FileReplacement.h"
#include "Paths.h"
#include "WindowsName.h"
#include "ZipDirectory.h"

#include <QDebug>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSet>
#include <QStorageInfo>
#include <QStringList>
#include <QVector>

#include <private/qzipreader_p.h>

namespace
{
using Listing = QVector<QZipReader::FileInfo>;

void makeFolder(const QString &folder)
{
    if (QFileInfo::exists(folder))
        return;
    const bool made = QDir().mkpath(folder);
    qDebug() << "make dir" << folder << made;
}

/// The reader's listing with the directory's own paths: it takes the dot away from names that begin
/// with one. Links, which are skipped, keep what they have.
void restorePaths(Listing &entries, const ZipDirectory &directory)
{
    for (int i = 0; i < entries.size(); ++i) {
        if (entries.at(i).isFile || entries.at(i).isDir)
            entries[i].filePath = directory.entries().at(i).path();
    }
}

/// The folders that the entries lie in, as far as they are below the destination.
QSet<QString> parentsOf(const Listing &entries)
{
    QSet<QString> parents;
    for (const auto &entry : entries) {
        QString path = entry.filePath;
        for (int end = path.lastIndexOf('/'); end > 0; end = path.lastIndexOf('/')) {
            path.truncate(end);
            if (parents.contains(path))
                break;
            parents.insert(path);
        }
    }
    return parents;
}

/// Some archivers mark folders by nothing but their name, and the listing takes them for files.
void recogniseFolders(Listing &entries, const ZipDirectory &directory)
{
    const QSet<QString> parents = parentsOf(entries);
    for (int i = 0; i < entries.size(); ++i) {
        QZipReader::FileInfo &entry = entries[i];
        const bool isNamedSo = directory.entries().at(i).isNamedFolder();
        if (entry.isFile && entry.size == 0 && (isNamedSo || parents.contains(entry.filePath))) {
            entry.isFile = false;
            entry.isDir = true;
        }
    }
}

/// Why nothing can be written to \a entry on every player's machine; empty when it can. An entry
/// for the destination folder itself is harmless.
QString problemOf(const QZipReader::FileInfo &entry)
{
    const QString path = QDir::cleanPath(entry.filePath);
    if (entry.isDir && (path.isEmpty() || path == QLatin1String(".")))
        return {};
    if (!Paths::staysInside(entry.filePath))
        return QStringLiteral("lies outside the destination");
    const QStringList names = path.split(QLatin1Char('/'));
    for (const QString &name : names) {
        const QString problem = WindowsName::problem(name);
        if (!problem.isEmpty())
            return problem;
    }
    return {};
}

bool isAcceptable(const Listing &entries, const ZipDirectory &directory)
{
    for (int i = 0; i < entries.size(); ++i) {
        const QZipReader::FileInfo &entry = entries.at(i);
        const QString problem = entry.isDir || entry.isFile ? problemOf(entry) : QString();
        if (!problem.isEmpty()) {
            qDebug() << "entry refused:" << directory.entries().at(i).name << problem;
            return false;
        }
    }
    return true;
}

/// Space for more data, in bytes; 0 or less when the volume of \a folder doesn't tell.
qint64 freeSpace(const QString &folder)
{
    QFileInfo existing(folder);
    while (!existing.exists() && existing.filePath() != existing.path())
        existing.setFile(existing.path());
    return QStorageInfo(existing.filePath()).bytesAvailable();
}

bool hasSpace(const Listing &entries, const QString &destination)
{
    const qint64 free = freeSpace(destination);
    qint64 announced = 0, present = 0;
    for (const QZipReader::FileInfo &entry : entries) {
        if (!entry.isFile)
            continue;
        announced += entry.size;
        present += QFileInfo(Paths::inFolder(destination, entry.filePath)).size();
    }
    if (ZipCpp::fits(free, announced, present))
        return true;
    qDebug() << "archive has" << announced << "bytes, free are" << free << "and replaced"
             << present;
    return false;
}

void removeLeftovers(const Listing &entries, const QString &destination)
{
    for (const QZipReader::FileInfo &entry : entries) {
        if (entry.isFile)
            FileReplacement::removeLeftover(Paths::inFolder(destination, entry.filePath));
    }
}

void unpackFolder(const QString &path, const QString &destination)
{
    makeFolder(QDir::cleanPath(Paths::inFolder(destination, path)));
}

bool unpackFile(ZipDirectory &directory, const ZipDirectory::Entry &entry, const QString &target)
{
    qDebug() << "extract file:" << target;
    const QString folder = QFileInfo(target).path();
    qDebug() << "extract file path:" << folder;
    makeFolder(folder);

    // The reader's own call for the data writes behind its buffer when there are more of them than
    // the entry announces, so it is not used.
    const auto data = directory.data(entry);
    if (!data) {
        qDebug() << "extract file damaged:" << target;
        return false;
    }
    // Deliberately not truncated: a full disk or a kill must leave no half file for the game.
    QString error;
    switch (FileReplacement::replace(target, *data, {FileReplacement::Sync::Batch, true}, &error)) {
    case FileReplacement::Result::Replaced:
        return true;
    case FileReplacement::Result::NotOpened:
        qDebug() << "open file failed!:" << target;
        return false;
    case FileReplacement::Result::NotWritten:
        qDebug() << "write file failed!:" << target << error;
        return false;
    }
    return false;
}

/// What is said to be installed has to outlive a power cut.
bool syncAll(const QString &destination)
{
    QString error;
    if (FileReplacement::syncBatch(destination, &error))
        return true;
    qDebug() << "sync failed!:" << destination << error;
    return false;
}
} // namespace

ZipCpp::ZipCpp(QObject *parent) : QObject(parent) {}

bool ZipCpp::fits(qint64 free, qint64 announced, qint64 present)
{
    return free <= 0 || announced - present <= free;
}

void ZipCpp::OnUnzipFile(QString strZipFile, QString strDestPath)
{
    const EC::ErrorCode result = unpack(strZipFile, strDestPath);
    emit OnExtractingResult(strZipFile, result);
}

EC::ErrorCode ZipCpp::unpack(const QString &zipFile, const QString &destination)
{
    // Nothing else would keep an empty path from naming the root of the drive.
    if (destination.isEmpty())
        return EC::FILE_OPEN_FAILED;
    QZipReader archive(zipFile, QIODevice::ReadOnly);
    if (archive.status() != QZipReader::NoError)
        return EC::FILE_OPEN_FAILED;
    // The reader bounds nothing, so it comes second.
    ZipDirectory directory(zipFile);
    Listing entries = directory.read() ? archive.fileInfoList() : Listing();
    if (entries.isEmpty()) {
        qDebug() << "QZipReader read zip file failed";
        return EC::FILE_OPEN_FAILED;
    }
    if (directory.entries().size() != entries.size())
        return EC::FILE_OPEN_FAILED;
    restorePaths(entries, directory);
    recogniseFolders(entries, directory);
    if (!directory.isPlausible() || !isAcceptable(entries, directory))
        return EC::FILE_OPEN_FAILED;
    removeLeftovers(entries, destination);
    if (!hasSpace(entries, destination))
        return EC::FILE_OPEN_FAILED;

    emit OnExtractingRange(100);
    for (int i = 0; i < entries.size(); ++i) {
        const QZipReader::FileInfo &entry = entries.at(i);
        if (entry.isDir) {
            unpackFolder(entry.filePath, destination);
        } else if (entry.isFile) {
            const QString target = Paths::inFolder(destination, entry.filePath);
            if (!unpackFile(directory, directory.entries().at(i), target))
                return EC::FILE_OPEN_FAILED;
            emit OnExtractingFileName(target);
        }
        emit OnExtractCompleteValue(qulonglong(i + 1) * 100 / qulonglong(entries.size()));
    }
    archive.close();
    return syncAll(destination) ? EC::SUCCESS : EC::FILE_OPEN_FAILED;
}
