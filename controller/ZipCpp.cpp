#include "ZipCpp.h"

#include "Paths.h"

#include <QDebug>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QVector>

#include <private/qzipreader_p.h>
#include <zlib.h>

namespace
{
using Entry = QZipReader::FileInfo;

void makeFolder(const QString &folder)
{
    if (QFileInfo::exists(folder))
        return;
    const bool made = QDir().mkpath(folder);
    qDebug() << "make dir" << folder << made;
}

/// Whether \a entry would be written outside the destination. An entry for the destination folder
/// itself is harmless.
bool landsOutside(const Entry &entry)
{
    const QString path = QDir::cleanPath(entry.filePath);
    if (entry.isDir && (path.isEmpty() || path == QLatin1String(".")))
        return false;
    return !Paths::staysInside(entry.filePath);
}

void unpackFolder(const Entry &entry, const QString &destination)
{
    makeFolder(QDir::cleanPath(Paths::inFolder(destination, entry.filePath)));
}

bool isWhole(const QByteArray &data, const Entry &entry)
{
    const auto *bytes = reinterpret_cast<const Bytef *>(data.constData());
    return data.size() == entry.size && crc32(0, bytes, uInt(data.size())) == entry.crc;
}

bool unpackFile(QZipReader &archive, const Entry &entry, const QString &target)
{
    qDebug() << "extract file:" << target;
    const QString folder = QFileInfo(target).path();
    qDebug() << "extract file path:" << folder;
    makeFolder(folder);

    // The reader answers an encrypted or unsupported entry, or one whose name it has altered, with
    // fewer bytes than announced, and a damaged one with any bytes at all. That must show before
    // the target is truncated.
    const QByteArray data = archive.fileData(entry.filePath);
    if (!isWhole(data, entry)) {
        qDebug() << "extract file damaged:" << target << data.size() << entry.size;
        return false;
    }
    QFile file(target);
    if (!file.open(QIODevice::WriteOnly)) {
        qDebug() << "open file failed!:" << target;
        return false;
    }
    // A full disk shows here, and small data only as they leave the file object's buffer. The
    // verification that follows would not see it in a file that it skips.
    if (file.write(data) == data.size() && file.flush())
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
    const QVector<Entry> entries = archive.fileInfoList();
    if (entries.isEmpty()) {
        qDebug() << "QZipReader read zip file failed";
        return EC::FILE_OPEN_FAILED;
    }
    for (const Entry &entry : entries) {
        if (landsOutside(entry)) {
            qDebug() << "entry outside the destination:" << entry.filePath;
            return EC::FILE_OPEN_FAILED;
        }
    }

    emit OnExtractingRange(100);
    qulonglong handled = 0;
    for (const Entry &entry : entries) {
        if (entry.isDir) {
            unpackFolder(entry, destination);
        } else if (entry.isFile) {
            const QString target = Paths::inFolder(destination, entry.filePath);
            if (!unpackFile(archive, entry, target))
                return EC::FILE_OPEN_FAILED;
            emit OnExtractingFileName(target);
        }
        ++handled;
        emit OnExtractCompleteValue(handled * 100 / qulonglong(entries.size()));
    }
    archive.close();
    return EC::SUCCESS;
}
