#include "ManifestTrust.h"

#include <QStringList>

#include <algorithm>
#include <optional>

using ManifestSignature::Format;
using ManifestTrust::Memory;
using ManifestTrust::Publishers;
using ManifestTrust::Verdict;

namespace
{
constexpr qint64 ClockTolerance = 24LL * 60 * 60; // seconds
/// Enough for many rotations of keys; a program writes only about keys that it holds.
constexpr int MaxSerials = 16;

/// Nothing unless \a text is made of digits alone.
std::optional<quint64> number(const QString &text)
{
    const auto isDigit = [](QChar c) { return c >= QLatin1Char('0') && c <= QLatin1Char('9'); };
    bool isInRange = false;
    const quint64 value = text.toULongLong(&isInRange);
    if (!isInRange || !std::all_of(text.begin(), text.end(), isDigit))
        return std::nullopt;
    return value;
}

/// "KEY:", as an entry of the serials begins.
QString prefixOf(const QByteArray &key)
{
    return QString::fromLatin1(key.toHex()) + QLatin1Char(':');
}

/// The highest serial of the keys that the program holds. What another key has signed does not
/// count, so that a key that was stolen can't hold back the programs that come without it.
quint64 lowestAllowed(const Publishers &publishers, const Memory &memory, qint64 now)
{
    std::optional<quint64> highest;
    const QStringList entries = memory.serials.split(QLatin1Char(' '));
    for (const QByteArray &key : publishers.keys) {
        const QString prefix = prefixOf(key);
        for (const QString &entry : entries) {
            if (entry.startsWith(prefix))
                highest = std::max(highest, number(entry.mid(prefix.size())));
        }
    }
    // Nobody knows whose it is, but only a stolen key signs far ahead of the clock.
    const auto unkeyed = number(memory.unkeyedSerial);
    if (unkeyed && *unkeyed <= quint64(std::max(qint64(0), now + ClockTolerance)))
        highest = std::max(highest, unkeyed);
    return highest.value_or(publishers.lowestSerial);
}

QString remember(const QString &serials, const QByteArray &signer, quint64 serial)
{
    const QString prefix = prefixOf(signer);
    QStringList entries{prefix + QString::number(serial)};
    const QStringList before = serials.split(QLatin1Char(' '), Qt::SkipEmptyParts);
    for (const QString &entry : before) {
        if (!entry.startsWith(prefix) && entries.size() < MaxSerials)
            entries += entry;
    }
    return entries.join(QLatin1Char(' '));
}

/// Nothing is wrong with a size that is absent or empty: the signer has signed that there is none.
bool isSizeUsable(const QJsonObject &data)
{
    const QString size = data.value(QLatin1String("size")).toString();
    return size.isEmpty() || number(size);
}
} // namespace

Verdict ManifestTrust::judge(const QJsonObject &data, const Publishers &publishers,
                             const Memory &memory, qint64 now)
{
    const auto refuse = [](const QString &reason) {
        return Verdict{Verdict::Outcome::Refused, reason, false, {}};
    };
    const Format format = ManifestSignature::formatOf(data);
    if (format == Format::V1 && memory.needsSignature2)
        return refuse(QStringLiteral("no signature2, which an earlier one had"));
    const auto result = ManifestSignature::verify(data, format, publishers.keys);
    if (!result.problem.isEmpty())
        return refuse(result.problem);
    const auto serial = number(data.value(QLatin1String("serial")).toString());
    if (!serial)
        return refuse(QStringLiteral("the serial is no number"));
    if (format == Format::V2 && !isSizeUsable(data))
        return refuse(QStringLiteral("the size is no number"));

    const quint64 lowest = lowestAllowed(publishers, memory, now);
    if (*serial < lowest)
        return {Verdict::Outcome::Outdated,
                QStringLiteral("%1 is below %2").arg(*serial).arg(lowest), false, memory};
    Memory kept = memory;
    kept.serials = remember(memory.serials, result.signer, *serial);
    kept.needsSignature2 = format == Format::V2;
    return {Verdict::Outcome::Accepted, {}, format == Format::V2, kept};
}
