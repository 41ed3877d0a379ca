#include "DownloadLimit.h"

DownloadLimit DownloadLimit::of(std::optional<qint64> size, qint64 available, qint64 replaced)
{
    DownloadLimit limit;
    limit.size = qMin(size.value_or(LargestPackage), LargestPackage);
    if (available > 0)
        limit.room = available + replaced;
    return limit;
}

QString DownloadLimit::problem(qint64 bytes) const
{
    if (room && bytes > *room)
        return QStringLiteral("no room for %1 bytes").arg(bytes);
    if (bytes > size)
        return QStringLiteral("body is larger than %1 bytes").arg(size);
    return {};
}

qint64 DownloadLimit::codedSize() const
{
    // What can't be compressed grows by far less than a hundredth. A compressed body may also go on
    // for ever without saying anything.
    constexpr qint64 Headers = 65536;
    return size + size / 64 + Headers;
}

std::optional<qint64> DownloadLimit::sizeFromText(const QString &text)
{
    bool isNumber = false;
    const qint64 size = text.toLongLong(&isNumber);
    return isNumber && size >= 0 ? std::optional<qint64>(size) : std::nullopt;
}
