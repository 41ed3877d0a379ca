#include "ZipCpp.h"

#include "Paths.h"
#include "ZipDirectory.h"

#include <QDebug>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSet>
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
        const bool isNamedSo = directory.entries().at(i).name.endsWith('/');
        if (entry.isFile && entry.size == 0 && (isNamedSo || parents.contains(entry.filePath))) {
            entry.isFile = false;
            entry.isDir = true;
        }
    }
}

/// Whether \a entry would be written outside the destination. An entry for the destination folder
/// itself is harmless.
bool landsOutside(const QZipReader::FileInfo &entry)
{
    const QString path = QDir::cleanPath(entry.filePath);
    if (entry.isDir && (path.isEmpty() || path == QLatin1String(".")))
        return false;
    return !Paths::staysInside(entry.filePath);
}

/// The reader strips names of what would lead out of the folder, and of harmless dots, too. What
/// such an entry was meant to be nobody knows.
bool isRenamed(const QZipReader::FileInfo &entry, const ZipDirectory::Entry &original)
{
    const QString name = original.isNameUtf8 ? QString::fromUtf8(original.name)
                                             : QString::fromLocal8Bit(original.name);
    return entry.filePath != name;
}

/// Whether everything that would be written has its place below the destination.
bool isAcceptable(const Listing &entries, const ZipDirectory &directory)
{
    for (int i = 0; i < entries.size(); ++i) {
        const QZipReader::FileInfo &entry = entries.at(i);
        if (!entry.isDir && !entry.isFile)
            continue; // a link, which is skipped
        if (landsOutside(entry) || (entry.isFile && isRenamed(entry, directory.entries().at(i)))) {
            qDebug() << "entry outside the destination:" << directory.entries().at(i).name;
            return false;
        }
    }
    return true;
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

    // Before the target is truncated. The reader's own call for the data writes behind its buffer
    // when there are more of them than the entry announces, so it is not used.
    const auto data = directory.data(entry);
    if (!data) {
        qDebug() << "extract file damaged:" << target;
        return false;
    }
    QFile file(target);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Unbuffered)) {
        qDebug() << "open file failed!:" << target;
        return false;
    }
    // The verification that follows would not see a full disk in a file that it skips.
    if (file.write(*data) == data->size())
        return true;
    qDebug() << "write file failed!:" << target << file.errorString();
    return false;
}
} // namespace

ZipCpp::ZipCpp(QObject *parent) : QObject(parent) {}

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
    Listing entries = archive.fileInfoList();
    if (entries.isEmpty()) {
        qDebug() << "QZipReader read zip file failed";
        return EC::FILE_OPEN_FAILED;
    }
    ZipDirectory directory(zipFile);
    if (!directory.read() || directory.entries().size() != entries.size())
        return EC::FILE_OPEN_FAILED;
    recogniseFolders(entries, directory);
    if (!isAcceptable(entries, directory))
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
    return EC::SUCCESS;
}
