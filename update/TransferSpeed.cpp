#include "TransferSpeed.h"

TransferSpeed TransferSpeed::of(qint64 bytes, qint64 milliseconds)
{
    constexpr double Kilo = 1024.0;
    constexpr double Mega = 1048576.0;

    // A chunk may come within the first millisecond; a division of floats by zero is undefined.
    const double speed = double(bytes) * 1000.0 / double(qMax<qint64>(milliseconds, 1));
    if (speed < Kilo)
        return {speed, QStringLiteral("bytes/sec")};
    if (speed < Mega)
        return {speed / Kilo, QStringLiteral("kB/s")};
    return {speed / Mega, QStringLiteral("MB/s")};
}

QString TransferSpeed::text() const
{
    return QStringLiteral("%1 %2").arg(value, 3, 'f', 1).arg(unit);
}
