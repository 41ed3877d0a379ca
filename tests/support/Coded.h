#pragma once

#include <QByteArray>

#include <zlib.h>

/// Bodies in a content coding, for servers that send one.
namespace Coded
{
constexpr int Gzip = MAX_WBITS + 16, Zlib = MAX_WBITS, Raw = -MAX_WBITS;

/// \a plain, coded in \a format. With Z_FULL_FLUSH for \a flush the stream stays open, and of a raw
/// one any number of copies may follow each other.
inline QByteArray body(QByteArray plain, int format, int flush = Z_FINISH)
{
    z_stream stream = {};
    deflateInit2(&stream, Z_BEST_COMPRESSION, Z_DEFLATED, format, MAX_MEM_LEVEL,
                 Z_DEFAULT_STRATEGY);
    QByteArray coded(int(deflateBound(&stream, uLong(plain.size()))) + 64, Qt::Uninitialized);
    stream.next_in = reinterpret_cast<Bytef *>(plain.data());
    stream.avail_in = uInt(plain.size());
    stream.next_out = reinterpret_cast<Bytef *>(coded.data());
    stream.avail_out = uInt(coded.size());
    deflate(&stream, flush);
    coded.truncate(int(stream.total_out));
    deflateEnd(&stream);
    return coded;
}
} // namespace Coded
