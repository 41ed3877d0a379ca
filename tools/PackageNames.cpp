#include "PackageNames.h"

#include <QFile>
#include <QtEndian>

namespace
{
constexpr int EndSize = 22;
constexpr int HeaderSize = 46;

quint16 word(const QByteArray &bytes, int at)
{
    return qFromLittleEndian<quint16>(bytes.constData() + at);
}

quint32 doubleWord(const QByteArray &bytes, int at)
{
    return qFromLittleEndian<quint32>(bytes.constData() + at);
}
} // namespace

std::optional<QStringList> PackageNames::in(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly) || !file.seek(file.size() - EndSize))
        return std::nullopt;
    const QByteArray end = file.read(EndSize);
    if (end.size() != EndSize || doubleWord(end, 0) != 0x06054b50 ||
        !file.seek(doubleWord(end, 16)))
        return std::nullopt;
    QStringList names;
    for (int left = word(end, 10); left > 0; --left) {
        const QByteArray header = file.read(HeaderSize);
        if (header.size() != HeaderSize || doubleWord(header, 0) != 0x02014b50)
            return std::nullopt;
        names += QString::fromUtf8(file.read(word(header, 28)));
        file.skip(word(header, 30) + word(header, 32));
    }
    return names;
}
