#pragma once

#include <QByteArray>
#include <QFile>
#include <QString>
#include <QVector>

#include <optional>

/// The directory at the end of a zip archive, and the data of the entries that it lists.
///
/// Everything in an archive is what its maker claims. Nothing is read beyond the file's end, and
/// never more memory asked for than the packed data can fill. Used by one thread; blocks it.
class ZipDirectory
{
public:
    /// What the directory says about one entry.
    struct Entry {
        QByteArray name; ///< as it stands there, with its slashes or backslashes
        bool isNameUtf8; ///< otherwise in the local 8-bit encoding
        bool isEncrypted;
        quint16 method; ///< of compression
        quint32 crc;
        qint64 packedSize; ///< bytes
        qint64 size;       ///< bytes
        qint64 offset;     ///< of the header before the data, in the file

        /// The name with slashes, without a leading "./" and the slash of a folder.
        QString path() const;
        bool isNamedFolder() const { return name.endsWith('/') || name.endsWith('\\'); }
    };

    explicit ZipDirectory(const QString &path);

    /// Reads the directory up to its end or its first fault. False when the file can't be opened,
    /// has none, or one of more than 12 MiB.
    bool read();
    const QVector<Entry> &entries() const { return m_entries; }
    /// Whether all entries can have their data in the file, each its own.
    bool isPlausible() const;

    /// The whole data of \a entry, stored or deflated, with its checksum verified; nothing when it
    /// is encrypted, packed in another way, or damaged.
    std::optional<QByteArray> data(const Entry &entry);

private:
    bool seekEntries(int *count);
    bool readEntry();
    bool seekData(const Entry &entry);
    bool inflateTo(QByteArray &data, qint64 packedSize);

    QFile m_file;
    QVector<Entry> m_entries;
};
