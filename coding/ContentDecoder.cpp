#include "ContentDecoder.h"

#include <zlib.h>

#include <array>
#include <utility>

namespace
{
// As inflateInit2() wants them: the largest window, with an offset for the kind of header.
constexpr int RawWindow = -MAX_WBITS;
constexpr int ZlibWindow = MAX_WBITS;
constexpr int GzipWindow = MAX_WBITS + 16;
constexpr int HeaderSize = 2; // bytes that tell zlib's header from the start of raw deflate

bool isZlibHeader(const QByteArray &start)
{
    const int method = uchar(start[0]), flags = uchar(start[1]);
    return (method & 0x0f) == Z_DEFLATED && (method * 256 + flags) % 31 == 0;
}

int windowFor(bool isGzip, const QByteArray &start)
{
    if (isGzip)
        return GzipWindow;
    return isZlibHeader(start) ? ZlibWindow : RawWindow;
}
} // namespace

void ContentDecoder::StreamDeleter::operator()(z_stream_s *stream) const
{
    inflateEnd(stream);
    delete stream;
}

ContentDecoder::ContentDecoder(const QByteArray &coding, qint64 limit, Sink sink)
    : m_name(coding.trimmed().toLower()), m_coding(codingFromName(m_name)), m_limit(limit),
      m_sink(std::move(sink))
{
}

ContentDecoder::~ContentDecoder() = default;

ContentDecoder::Coding ContentDecoder::codingFromName(const QByteArray &name)
{
    if (name.isEmpty() || name == "identity")
        return Coding::Identity;
    if (name == "gzip" || name == "x-gzip")
        return Coding::Gzip;
    return name == "deflate" ? Coding::Deflate : Coding::Unknown;
}

bool ContentDecoder::add(const QByteArray &encoded)
{
    if (!m_error.isEmpty())
        return false;
    if (encoded.isEmpty())
        return true;
    // Blocks and members without content can go on for ever. What does not compress at all takes
    // a little more than its own size.
    m_encodedSize += encoded.size();
    if (m_encodedSize > m_limit + m_limit / 4 + PieceSize)
        return failTooLarge();
    if (m_coding == Coding::Unknown)
        return fail(QStringLiteral("unknown coding ") + QString::fromLatin1(m_name.left(100)));
    if (m_coding == Coding::Identity)
        return deliver(encoded.constData(), encoded.size());
    if (m_stream)
        return inflateAll(encoded);
    m_start += encoded;
    if (m_start.size() < HeaderSize)
        return true;
    const QByteArray start = std::exchange(m_start, {});
    return openStream(start) && inflateAll(start);
}

bool ContentDecoder::finish()
{
    if (!m_error.isEmpty())
        return false;
    const bool isOpen = m_stream || !m_start.isEmpty();
    return !isOpen || m_ended || fail(QStringLiteral("compressed body is cut off"));
}

bool ContentDecoder::openStream(const QByteArray &start)
{
    auto stream = std::make_unique<z_stream>();
    if (inflateInit2(stream.get(), windowFor(m_coding == Coding::Gzip, start)) != Z_OK)
        return fail(QStringLiteral("no memory to inflate"));
    m_stream.reset(stream.release());
    return true;
}

bool ContentDecoder::inflateAll(const QByteArray &encoded)
{
    std::array<char, PieceSize> piece;
    // zlib only reads its input, whatever its declaration says.
    m_stream->next_in = reinterpret_cast<Bytef *>(const_cast<char *>(encoded.constData()));
    m_stream->avail_in = uInt(encoded.size());
    bool isDrained = true;
    // Whoever fills the whole piece may have more to say without further input.
    while (m_stream->avail_in > 0 || !isDrained) {
        if (m_ended) {
            // A gzip body may consist of several members; nothing else goes on after its end.
            if (m_coding != Coding::Gzip || inflateReset(m_stream.get()) != Z_OK)
                return fail(QStringLiteral("bytes behind the compressed body"));
            m_ended = false;
        }
        m_stream->next_out = reinterpret_cast<Bytef *>(piece.data());
        m_stream->avail_out = uInt(piece.size());
        const int result = inflate(m_stream.get(), Z_NO_FLUSH);
        m_ended = result == Z_STREAM_END;
        // Z_BUF_ERROR: there was nothing more to say after all.
        if (result != Z_OK && result != Z_STREAM_END && result != Z_BUF_ERROR)
            return fail(QStringLiteral("compressed body is damaged"));
        isDrained = m_ended || m_stream->avail_out > 0;
        if (!deliver(piece.data(), qint64(piece.size() - m_stream->avail_out)))
            return false;
    }
    return true;
}

bool ContentDecoder::deliver(const char *bytes, qint64 size)
{
    for (qint64 offset = 0; offset < size;) {
        const int part = int(qMin<qint64>(size - offset, PieceSize));
        if (part > m_limit - m_decodedSize)
            return failTooLarge();
        if (!m_sink(bytes + offset, part))
            return fail(QStringLiteral("body is not wanted"));
        m_decodedSize += part;
        offset += part;
    }
    return true;
}

bool ContentDecoder::failTooLarge()
{
    return fail(QStringLiteral("body is larger than %1 bytes").arg(m_limit));
}

bool ContentDecoder::fail(const QString &reason)
{
    m_error = reason;
    m_stream.reset();
    return false;
}
