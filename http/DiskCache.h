#pragma once

#include <QByteArray>
#include <QMultiMap>
#include <QMutex>
#include <QString>

class QDateTime;

/// Values kept as one file each below a directory of their own.
///
/// A key is the file's path relative to that directory, sub-directories included, read as Latin-1
/// up to its first zero byte. A key that leads out of the directory is refused, and so is every key
/// when the directory has no name. Errors of the file system go to the log. Belongs to one thread.
class DiskCache
{
public:
    /// \a name appears in statistics. When \a maxSize, in bytes, is above 0, the oldest files are
    /// removed from time to time so that the directory stays near that size; whatever else lies in
    /// it counts and goes too.
    DiskCache(const QByteArray &name, const QString &directory, qint64 maxSize);

    /// The value of \a key, however old; null when there is none.
    QByteArray staleValue(const QByteArray &key);
    /// Stores \a value, replacing an older one, which stays when the new one can't be written. May
    /// run pending events while it makes room.
    void insert(const QByteArray &key, const QByteArray &value);

private:
    QString cachePath(const QByteArray &key) const;
    void expire();
    void removeOldest(const QMultiMap<QDateTime, QString> &entries, qint64 *total) const;
    void printStatistics() const;

    const QByteArray m_name;
    const QString m_directory; ///< with a slash at the end, or empty
    const qint64 m_maxSize;
    qint64 m_currentSize = 0; ///< bytes; 0 until measured
    QMutex m_expireGuard;     ///< only ever tried, since events that expiry runs may insert
    uint m_insertCount = 0;
    int m_hits = 0;
    int m_misses = 0;
};
