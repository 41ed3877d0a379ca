#include "DiskCache.h"

#include "Paths.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QDebug>
#include <QDirIterator>
#include <QFile>
#include <QSaveFile>

#include <mutex>

namespace
{
constexpr uint InsertsBetweenChecks = 100;

QDateTime birthTime(const QFileInfo &info)
{
    // Not every file system remembers it; the last change is the nearest thing then.
    const QDateTime born = info.birthTime();
    return born.isValid() ? born : info.lastModified();
}
} // namespace

DiskCache::DiskCache(const QByteArray &name, const QString &directory, qint64 maxSize)
    : m_name(name), m_directory(directory.isEmpty() || directory.endsWith(QLatin1Char('/'))
                                    ? directory
                                    : directory + QLatin1Char('/')),
      m_maxSize(maxSize)
{
}

QString DiskCache::cachePath(const QByteArray &key) const
{
    const QString relative = QString::fromLatin1(key.constData());
    // Without a directory the path would begin wherever the process happens to stand.
    const bool isOurs = !m_directory.isEmpty() && Paths::staysInside(relative);
    return isOurs ? m_directory + relative : QString();
}

QByteArray DiskCache::staleValue(const QByteArray &key)
{
    const QString path = cachePath(key);
    QFile file(path);
    if (path.isEmpty() || !file.open(QIODevice::ReadOnly)) {
        ++m_misses;
        return QByteArray();
    }
    ++m_hits;
    const QByteArray value = file.readAll();
    // An empty file is a value as well, and only a miss is null.
    return value.isNull() ? QByteArray("") : value;
}

void DiskCache::insert(const QByteArray &key, const QByteArray &value)
{
    qDebug() << "Inserting" << key;
    const QString path = cachePath(key);
    if (path.isEmpty()) {
        qWarning() << "Refusing key" << key;
        return;
    }
    const QString folder = path.left(path.lastIndexOf(QLatin1Char('/')));
    if (!QFileInfo::exists(folder))
        QDir().mkpath(folder);
    // Half a value would be served as if it were whole, so until all of it is there the old one
    // stays.
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly)) {
        qWarning() << "Cannot create" << path;
        return;
    }
    // Committing alone would not notice what a full disk swallowed.
    if (file.write(value) != value.size() || !file.flush() || !file.commit()) {
        qWarning() << "Cannot write" << path;
        return;
    }

    if (m_currentSize > 0)
        m_currentSize += value.size();
    if (m_maxSize <= 0)
        return;
    ++m_insertCount;
    if (m_insertCount % InsertsBetweenChecks == 0 &&
        (m_currentSize == 0 || m_currentSize > m_maxSize))
        expire();
}

void DiskCache::expire()
{
    const std::unique_lock<QMutex> guard(m_expireGuard, std::try_to_lock);
    if (!guard.owns_lock())
        return;

    QMultiMap<QDateTime, QString> entries;
    qint64 total = 0;
    QDirIterator it(m_directory, QDir::Files | QDir::Dirs | QDir::Hidden | QDir::NoDotAndDotDot,
                    QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        const QFileInfo info = it.fileInfo();
        entries.insert(birthTime(info), path);
        total += info.size();
        QCoreApplication::processEvents();
    }
    if (entries.isEmpty())
        printStatistics();
    else
        removeOldest(entries, &total);
    m_currentSize = total;
}

void DiskCache::removeOldest(const QMultiMap<QDateTime, QString> &entries, qint64 *total) const
{
    const qint64 goal = m_maxSize * 9 / 10;
    int removed = 0;
    for (const QString &path : entries) {
        if (*total < goal)
            break;
        QFile file(path);
        const qint64 size = file.size();
        // Directories take part in the sum but withstand this, so that no folder vanishes under a
        // value that is just being inserted.
        file.remove();
        *total -= size;
        ++removed;
        QCoreApplication::processEvents();
    }
    printStatistics();
    if (removed > 0)
        qDebug() << "Removed:" << removed << "Kept:" << entries.size() - removed
                 << "New Size:" << *total;
}

void DiskCache::printStatistics() const
{
    const qint64 requests = qint64(m_hits) + m_misses;
    if (requests == 0)
        return;
    qDebug() << "Cache:" << m_name << "\nInserts:" << m_insertCount << "\nRequests:" << requests
             << "\nHits:" << m_hits << m_hits * 100LL / requests << "%\nMisses:" << m_misses
             << m_misses * 100LL / requests << "%";
}
