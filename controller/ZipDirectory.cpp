#include "ZipDirectory.h"

#include <QtEndian>

#include <limits>
#include <new>

#include <zlib.h>

namespace
{
constexpr int EndSize = 22; // bytes of the record behind the directory
constexpr int LongestComment = 65535;
constexpr int EntrySize = 46;  // bytes of an entry, without its name and what follows that
constexpr int HeaderSize = 30; // the same of the header before an entry's data
constexpr quint16 Stored = 0;
constexpr quint16 Deflated = 8;
constexpr qint64 HighestRatio = 1032; // that deflating can reach
constexpr int ChunkSize = 65536;
// Reading the directory takes several times its size in memory. The most entries that a zip can
// count, 65,535, have some 190 bytes each in this, where ordinary ones take 100 to 150.
constexpr qint64 LargestDirectory = 12 << 20;

quint16 number16(const QByteArray &bytes, int offset)
{
    return qFromLittleEndian<quint16>(bytes.constData() + offset);
}

quint32 number32(const QByteArray &bytes, int offset)
{
    return qFromLittleEndian<quint32>(bytes.constData() + offset);
}

bool isRight(const QByteArray &data, quint32 crc)
{
    return crc32(0, reinterpret_cast<const Bytef *>(data.constData()), uInt(data.size())) == crc;
}
} // namespace

QString ZipDirectory::Entry::path() const
{
    const QString text = isNameUtf8 ? QString::fromUtf8(name) : QString::fromLocal8Bit(name);
    QString path = QString(text).replace(QLatin1Char('\\'), QLatin1Char('/'));
    while (path.startsWith(QLatin1String("./"))) {
        int start = 2;
        while (start < path.size() && path.at(start) == QLatin1Char('/'))
            ++start;
        path.remove(0, start);
    }
    while (path.endsWith(QLatin1Char('/')))
        path.chop(1);
    return path;
}

ZipDirectory::ZipDirectory(const QString &path) : m_file(path) {}

bool ZipDirectory::read()
{
    int count = 0;
    if (!m_file.open(QIODevice::ReadOnly) || !seekEntries(&count))
        return false;
    while (m_entries.size() < count && readEntry()) {
    }
    return true;
}

bool ZipDirectory::isPlausible() const
{
    qint64 packed = 0;
    for (const Entry &entry : m_entries)
        packed += entry.packedSize;
    return packed <= m_file.size();
}

bool ZipDirectory::seekEntries(int *count)
{
    m_file.seek(qMax<qint64>(0, m_file.size() - EndSize - LongestComment));
    const QByteArray tail = m_file.read(EndSize + LongestComment);
    const int end = tail.lastIndexOf("PK\5\6", tail.size() - EndSize);
    if (tail.size() < EndSize || end < 0)
        return false;
    *count = number16(tail, end + 10);
    const qint64 start = number32(tail, end + 16);
    // Its announced size is not asked: whoever reads entry by entry only stops at the file's end.
    return m_file.size() - start <= LargestDirectory && m_file.seek(start);
}

bool ZipDirectory::readEntry()
{
    const QByteArray head = m_file.read(EntrySize);
    if (head.size() < EntrySize || !head.startsWith("PK\1\2"))
        return false;
    const int nameLength = number16(head, 28);
    const int rest = number16(head, 30) + number16(head, 32);
    const QByteArray name = m_file.read(nameLength);
    if (name.size() < nameLength || m_file.skip(rest) < rest)
        return false;
    const quint16 flags = number16(head, 8);
    m_entries.append({name, (flags & 0x800) != 0, (flags & 1) != 0, number16(head, 10),
                      number32(head, 16), number32(head, 20), number32(head, 24),
                      number32(head, 42)});
    return true;
}

bool ZipDirectory::seekData(const Entry &entry)
{
    if (!m_file.seek(entry.offset))
        return false;
    const QByteArray header = m_file.read(HeaderSize);
    return header.size() == HeaderSize && header.startsWith("PK\3\4") &&
           m_file.seek(entry.offset + HeaderSize + number16(header, 26) + number16(header, 28));
}

std::optional<QByteArray> ZipDirectory::data(const Entry &entry)
{
    if (entry.isEncrypted || !seekData(entry) || entry.packedSize > m_file.bytesAvailable() ||
        entry.size > entry.packedSize * HighestRatio ||
        entry.size > std::numeric_limits<int>::max())
        return std::nullopt;
    try {
        QByteArray data(int(entry.size), Qt::Uninitialized);
        const bool complete = entry.method == Stored
                                  ? m_file.read(data.data(), data.size()) == entry.packedSize
                              : entry.method == Deflated ? inflateTo(data, entry.packedSize)
                                                         : false;
        if (complete && data.size() == entry.size && isRight(data, entry.crc))
            return data;
    } catch (const std::bad_alloc &) {
        // An honest entry may still be too large for this machine.
    }
    return std::nullopt;
}

bool ZipDirectory::inflateTo(QByteArray &data, qint64 packedSize)
{
    z_stream stream = {};
    if (inflateInit2(&stream, -MAX_WBITS) != Z_OK)
        return false;
    stream.next_out = reinterpret_cast<Bytef *>(data.data());
    stream.avail_out = uInt(data.size());
    char chunk[ChunkSize];
    int result = Z_OK;
    // Input that is left over means that there is more in it than was announced.
    while (result == Z_OK && stream.avail_in == 0 && packedSize > 0) {
        const qint64 length = m_file.read(chunk, qMin<qint64>(packedSize, ChunkSize));
        if (length <= 0)
            break;
        packedSize -= length;
        stream.next_in = reinterpret_cast<Bytef *>(chunk);
        stream.avail_in = uInt(length);
        result = inflate(&stream, Z_NO_FLUSH);
    }
    inflateEnd(&stream);
    return result == Z_STREAM_END && stream.avail_out == 0;
}
