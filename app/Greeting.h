#pragma once

#include <QByteArray>
#include <QString>

#include <optional>

/// Why a process connects to the primary.
enum class ConnectionKind : quint8 {
    ExitingInstance = 1,   ///< it found a primary and ends
    StartingSecondary = 2, ///< it stays as a secondary
    MessageSender = 3      ///< it has a message
};

/// The first bytes on a connection to the primary: a header with the body's length, and the body
/// that names the instance key, so that strangers are turned away.
///
/// All integers are big-endian. Header: length of the body, 8 bytes. Body: key length, 4 bytes;
/// key, Latin-1; kind, 1 byte; sender's instance number, 4 bytes; checksum over the body before it,
/// 2 bytes.
struct Greeting {
    static constexpr int HeaderSize = 8;

    QString key;
    ConnectionKind kind = ConnectionKind::MessageSender;
    quint32 instanceId = 0;

    QByteArray toBody() const;
    /// Nothing when the body is cut short or its checksum is wrong. A key ends at its first zero.
    static std::optional<Greeting> fromBody(const QByteArray &body);

    static QByteArray toHeader(quint64 bodyLength);
    static quint64 fromHeader(const QByteArray &header);

    /// Whether a body of \a length bytes can name \a key. There is a little room above the exact
    /// length because a key may be padded behind its terminating zero; the limit is what keeps a
    /// peer from filling our memory.
    static bool canHaveLength(quint64 length, const QString &key);
};
