#include "ZipWriter.h"

#include "Interruption.h"

#include <QDataStream>
#include <QFileDevice>

#include <zlib.h>

#include <algorithm>
#include <limits>

namespace
{
constexpr int PieceSize = 1 << 16;
constexpr int RawDeflate = -15; // the largest window, without a header of zlib's own
constexpr quint16 Version = 20;
constexpr quint16 MadeByUnix = 3 << 8;
constexpr quint16 NamesAreUtf8 = 0x0800;
constexpr quint16 FirstDay = 0x0021; // 1980-01-01, the least there is
constexpr quint32 OrdinaryFile = 0100644U << 16;
constexpr int LocalHeaderSize = 30;
// The reader in the players' program counts entries in 16 bits, and holds a file in one array and
// offsets in a signed int.
constexpr int MaxFiles = 65535;
constexpr qint64 MaxFileSize = 2000000000;
constexpr qint64 MaxArchiveSize = std::numeric_limits<int>::max();

Bytef *zlibBytes(QByteArray &array)
{
    return reinterpret_cast<Bytef *>(array.data());
}
} // namespace

ZipWriter::ZipWriter(QFileDevice &archive)
    : m_archive(archive), m_deflate(std::make_unique<z_stream>())
{
    deflateInit2(m_deflate.get(), Z_DEFAULT_COMPRESSION, Z_DEFLATED, RawDeflate, 8,
                 Z_DEFAULT_STRATEGY);
}

ZipWriter::~ZipWriter()
{
    deflateEnd(m_deflate.get());
}

bool ZipWriter::add(const QString &name, QIODevice &source, QString *md5)
{
    if (m_entries.size() == MaxFiles)
        return fail(QStringLiteral("more than %1 files do not fit a package").arg(MaxFiles));
    if (source.size() > MaxFileSize)
        return fail(QStringLiteral("%1 is larger than %2 bytes").arg(name).arg(MaxFileSize));
    Entry entry;
    entry.name = name.toUtf8();
    entry.offset = quint32(m_archive.pos());
    QCryptographicHash hash(QCryptographicHash::Md5);
    // Sizes and sum are known afterwards.
    if (!write(header(entry, false)) || !pack(source, entry, hash))
        return false;
    const qint64 end = m_archive.pos();
    if (end > MaxArchiveSize)
        return fail(QStringLiteral("the package does not stay below 2 GiB"));
    if (!m_archive.seek(entry.offset) || !write(header(entry, false)) || !m_archive.seek(end))
        return failToWrite();
    entry.md5 = hash.result();
    *md5 = QString::fromLatin1(entry.md5.toHex());
    m_entries += entry;
    return true;
}

bool ZipWriter::pack(QIODevice &source, Entry &entry, QCryptographicHash &hash)
{
    QByteArray in(PieceSize, '\0'), out(PieceSize, '\0');
    z_stream &stream = *m_deflate;
    deflateReset(&stream);
    uLong crc = crc32(0, nullptr, 0);
    for (bool atEnd = false; !atEnd;) {
        if (Interruption::requested())
            return fail(QStringLiteral("interrupted"));
        const qint64 count = source.read(in.data(), in.size());
        if (count < 0)
            return fail(QStringLiteral("cannot read %1: %2")
                            .arg(QString::fromUtf8(entry.name), source.errorString()));
        atEnd = count == 0;
        if (count > MaxFileSize - entry.size)
            return fail(
                QStringLiteral("%1 grows while it is read").arg(QString::fromUtf8(entry.name)));
        entry.size += quint32(count);
        hash.addData(in.constData(), int(count));
        crc = crc32(crc, zlibBytes(in), uInt(count));
        stream.next_in = zlibBytes(in);
        stream.avail_in = uInt(count);
        do {
            stream.next_out = zlibBytes(out);
            stream.avail_out = PieceSize;
            deflate(&stream, atEnd ? Z_FINISH : Z_NO_FLUSH);
            const int packed = PieceSize - int(stream.avail_out);
            if (!write(QByteArray::fromRawData(out.constData(), packed)))
                return false;
            entry.packedSize += quint32(packed);
        } while (stream.avail_out == 0);
    }
    entry.crc = quint32(crc);
    return true;
}

bool ZipWriter::finish()
{
    m_directoryOffset = m_archive.pos();
    for (const Entry &entry : qAsConst(m_entries))
        m_directory += header(entry, true);
    QByteArray end;
    QDataStream stream(&end, QIODevice::WriteOnly);
    stream.setByteOrder(QDataStream::LittleEndian);
    const auto count = quint16(m_entries.size());
    stream << quint32(0x06054b50) << quint16(0) << quint16(0) << count << count
           << quint32(m_directory.size()) << quint32(m_directoryOffset) << quint16(0);
    m_directory += end;
    if (m_directoryOffset + m_directory.size() > MaxArchiveSize)
        return fail(QStringLiteral("the package does not stay below 2 GiB"));
    return write(m_directory) && (m_archive.flush() || failToWrite());
}

bool ZipWriter::readBack()
{
    const auto isWhole = [this](const Entry &entry) {
        QCryptographicHash hash(QCryptographicHash::Md5);
        return unpack(entry, hash) && hash.result() == entry.md5;
    };
    return (std::all_of(m_entries.cbegin(), m_entries.cend(), isWhole) &&
            m_archive.seek(m_directoryOffset) && m_archive.readAll() == m_directory) ||
           fail(QStringLiteral("the package does not hold what was put into it"));
}

bool ZipWriter::unpack(const Entry &entry, QCryptographicHash &hash)
{
    if (!m_archive.seek(entry.offset) ||
        m_archive.read(LocalHeaderSize + entry.name.size()) != header(entry, false))
        return false;
    QByteArray in, out(PieceSize, '\0');
    z_stream stream = {};
    if (inflateInit2(&stream, RawDeflate) != Z_OK)
        return false;
    int status = Z_OK;
    for (qint64 left = entry.packedSize; status == Z_OK && left > 0; left -= in.size()) {
        in = m_archive.read(std::min<qint64>(left, PieceSize));
        if (in.isEmpty())
            break;
        stream.next_in = zlibBytes(in);
        stream.avail_in = uInt(in.size());
        do {
            stream.next_out = zlibBytes(out);
            stream.avail_out = PieceSize;
            status = inflate(&stream, Z_NO_FLUSH);
            hash.addData(out.constData(), PieceSize - int(stream.avail_out));
        } while (status == Z_OK && stream.avail_out == 0);
    }
    inflateEnd(&stream);
    return status == Z_STREAM_END;
}

QByteArray ZipWriter::header(const Entry &entry, bool isCentral)
{
    QByteArray bytes;
    QDataStream stream(&bytes, QIODevice::WriteOnly);
    stream.setByteOrder(QDataStream::LittleEndian);
    if (isCentral)
        stream << quint32(0x02014b50) << quint16(MadeByUnix | Version);
    else
        stream << quint32(0x04034b50);
    stream << Version << NamesAreUtf8 << quint16(Z_DEFLATED) << quint16(0) << FirstDay << entry.crc
           << entry.packedSize << entry.size << quint16(entry.name.size()) << quint16(0);
    if (isCentral)
        stream << quint16(0) << quint16(0) << quint16(0) << OrdinaryFile << entry.offset;
    return bytes + entry.name;
}

bool ZipWriter::write(const QByteArray &bytes)
{
    return m_archive.write(bytes) == bytes.size() || failToWrite();
}

bool ZipWriter::failToWrite()
{
    return fail(QStringLiteral("cannot write to %1: %2")
                    .arg(m_archive.fileName(), m_archive.errorString()));
}

bool ZipWriter::fail(const QString &text)
{
    m_error = text;
    return false;
}
