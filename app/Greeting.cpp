#include "Greeting.h"

#include <QDataStream>
#include <QIODevice>

namespace
{
constexpr int BodyOverhead = 4 + 1 + 4 + 2; // everything in a body but the key's bytes
constexpr quint64 LargestBody = 1024;
constexpr QDataStream::Version StreamVersion = QDataStream::Qt_5_6;

quint16 checksumOf(const QByteArray &bytes)
{
    return qChecksum(bytes.constData(), uint(bytes.size()));
}
} // namespace

QByteArray Greeting::toBody() const
{
    QByteArray body;
    QDataStream stream(&body, QIODevice::WriteOnly);
    stream.setVersion(StreamVersion);
    stream << key.toLatin1() << quint8(kind) << instanceId;
    stream << checksumOf(body);
    return body;
}

std::optional<Greeting> Greeting::fromBody(const QByteArray &body)
{
    QByteArray keyBytes;
    quint8 kind = 0;
    quint32 instanceId = 0;
    quint16 checksum = 0;
    QDataStream stream(body);
    stream.setVersion(StreamVersion);
    stream >> keyBytes >> kind >> instanceId >> checksum;
    if (stream.status() != QDataStream::Ok || checksum != checksumOf(body.chopped(2)))
        return std::nullopt;
    return Greeting{QString::fromLatin1(keyBytes.constData()), ConnectionKind(kind), instanceId};
}

QByteArray Greeting::toHeader(quint64 bodyLength)
{
    QByteArray header;
    QDataStream stream(&header, QIODevice::WriteOnly);
    stream.setVersion(StreamVersion);
    stream << bodyLength;
    return header;
}

quint64 Greeting::fromHeader(const QByteArray &header)
{
    quint64 bodyLength = 0;
    QDataStream stream(header);
    stream.setVersion(StreamVersion);
    stream >> bodyLength;
    return bodyLength;
}

bool Greeting::canHaveLength(quint64 length, const QString &key)
{
    return length >= quint64(key.size()) + BodyOverhead && length <= LargestBody;
}
