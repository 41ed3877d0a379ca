#pragma once

#include "ErrorCode.h"

#include <QObject>
#include <QString>

/// Unpacks a zip package into a folder.
///
/// Lives on the worker thread and blocks it until the archive is handled. Every OnUnzipFile is
/// answered by exactly one OnExtractingResult, and that comes last. Nothing is rolled back: after a
/// failure the entries before it stay on disk. Each file is replaced whole or not at all, and after
/// SUCCESS all of them are on the disk itself.
class ZipCpp : public QObject
{
    Q_OBJECT
public:
    explicit ZipCpp(QObject *parent = nullptr);

public slots:
    /// Unpacks the archive at \a strZipFile below \a strDestPath, replacing files that are there.
    /// An archive is refused before anything is written when an entry would land outside or has a
    /// name that Windows can't keep, when entries share their data, or when it announces more than
    /// the disk can take.
    void OnUnzipFile(QString strZipFile, QString strDestPath);

public:
    /// Whether files of \a announced bytes can take the place of \a present bytes where \a free are
    /// left; 0 or less stands for a volume that doesn't tell. Deliberately without a margin: a
    /// plugin may well fill the disk.
    static bool fits(qint64 free, qint64 announced, qint64 present);

signals:
    /// Full path of a file just written: destination, separator and the entry's path, with slashes
    /// and without a leading "./", but otherwise as it stands in the archive.
    void OnExtractingFileName(QString strFileName);
    /// Always 100; sent once, before the first entry.
    void OnExtractingRange(qulonglong uSize);
    /// Progress after each entry, in percent, 0 to 100.
    void OnExtractCompleteValue(qulonglong uSize);
    /// The archive as it was named, and SUCCESS or FILE_OPEN_FAILED.
    void OnExtractingResult(QString archive_filename, EC::ErrorCode ec);

private:
    EC::ErrorCode unpack(const QString &zipFile, const QString &destination);
};
