#pragma once

#include <QByteArray>
#include <QCryptographicHash>
#include <QFileDevice>
#include <QString>
#include <QVector>

#include <memory>

struct z_stream_s;

/// Writes a zip archive of which each byte follows from the files in it: no times, no owners, and
/// the same order of fields everywhere. Of a file no more than a piece is in memory at a time.
class ZipWriter
{
public:
    /// Writes to \a archive, which is open, empty and can seek.
    explicit ZipWriter(QFileDevice &archive);
    ~ZipWriter();

    // Each of the steps is false on failure, and errorString() says why in one line.

    /// Adds what \a source holds under \a name, with forward slashes. The MD5 of the very bytes
    /// that were packed comes out in \a md5, in hexadecimal digits.
    bool add(const QString &name, QIODevice &source, QString *md5);
    /// Completes the archive.
    bool finish();
    /// Unpacks every file anew and compares it with what was packed, and so the list of files.
    bool readBack();

    QString errorString() const { return m_error; }

private:
    struct Entry {
        QByteArray name;
        QByteArray md5;
        quint32 crc = 0;
        quint32 packedSize = 0;
        quint32 size = 0;
        quint32 offset = 0; ///< of its local header
    };
    bool pack(QIODevice &source, Entry &entry, QCryptographicHash &hash);
    bool unpack(const Entry &entry, QCryptographicHash &hash);
    bool write(const QByteArray &bytes);
    bool failToWrite();
    bool fail(const QString &text);
    static QByteArray header(const Entry &entry, bool isCentral);

    QFileDevice &m_archive;
    std::unique_ptr<z_stream_s> m_deflate;
    QVector<Entry> m_entries;
    QByteArray m_directory; ///< what stands after the files
    qint64 m_directoryOffset = 0;
    QString m_error;
};
