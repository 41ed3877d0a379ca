#pragma once

#include <QByteArray>
#include <QString>

#include <functional>
#include <memory>

struct z_stream_s;

/// Decodes the body of an HTTP answer as it arrives, in constant memory.
///
/// Knows gzip, deflate (with zlib's header or, as some servers send it, without) and identity. What
/// it takes is bounded in decoded bytes, so a body can't become larger than its reader is prepared
/// for, however small it is on the wire; and, less tightly, in coded ones. Any one thread.
class ContentDecoder
{
public:
    /// Gets decoded bytes in order, at most PieceSize at a time. Returns whether it took them.
    using Sink = std::function<bool(const char *bytes, int size)>;
    static constexpr int PieceSize = 16 * 1024; ///< bytes

    /// \a coding is the value of Content-Encoding, empty when there was none; \a limit the most
    /// bytes that may reach \a sink. An unknown coding fails with the first byte of the body.
    ContentDecoder(const QByteArray &coding, qint64 limit, Sink sink);
    ~ContentDecoder();
    ContentDecoder(const ContentDecoder &) = delete;
    ContentDecoder &operator=(const ContentDecoder &) = delete;

    /// Decodes what has come since the last call. Runs until all of \a encoded is decoded, which
    /// can be a thousand times as much, so a reader that must not block feeds it in small parts.
    /// False once the body is known to be bad, too large or not wanted by the sink; so are all
    /// further calls.
    bool add(const QByteArray &encoded);
    /// There is nothing more to come: whether the body was whole. No body at all is whole in any
    /// coding, since answers without one may name theirs all the same.
    bool finish();

    /// Why add() or finish() failed, in words for a log; empty as long as they have not.
    QString errorText() const { return m_error; }
    /// Bytes that the sink has taken.
    qint64 decodedSize() const { return m_decodedSize; }

private:
    enum class Coding { Identity, Gzip, Deflate, Unknown };
    struct StreamDeleter {
        void operator()(z_stream_s *stream) const;
    };

    static Coding codingFromName(const QByteArray &name);
    bool openStream(const QByteArray &start);
    bool inflateAll(const QByteArray &encoded);
    bool deliver(const char *bytes, qint64 size);
    bool failTooLarge();
    bool fail(const QString &reason);

    const QByteArray m_name;
    const Coding m_coding;
    const qint64 m_limit;
    const Sink m_sink;
    std::unique_ptr<z_stream_s, StreamDeleter> m_stream; ///< null before the first two bytes
    QByteArray m_start;                                  ///< what came before there was a stream
    bool m_ended = false;                                ///< the compressed stream is complete
    qint64 m_encodedSize = 0;
    qint64 m_decodedSize = 0;
    QString m_error;
};
