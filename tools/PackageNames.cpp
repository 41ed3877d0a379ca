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
    if (end.size() != EndSize || doubleWord(end, 0) != 0x06054b50 || word(end, 20) != 0)
        return std::nullopt;
    const qint64 size = doubleWord(end, 12), offset = doubleWord(end, 16);
    if (offset + size + EndSize != file.size() || !file.seek(offset))
        return std::nullopt;
    const QByteArray directory = file.read(size);

    QStringList names;
    int at = 0;
    while (at + HeaderSize <= directory.size() && doubleWord(directory, at) == 0x02014b50) {
        const int length = word(directory, at + 28);
        names += QString::fromUtf8(directory.mid(at + HeaderSize, length));
        at += HeaderSize + length + word(directory, at + 30) + word(directory, at + 32);
    }
    if (at != directory.size() || names.size() != word(end, 10))
        return std::nullopt;
    return names;
}
