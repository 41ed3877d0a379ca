#include "PluginOptions.h"

#include <algorithm>
#include <limits>

namespace
{
/// The two bits of an option.
quint32 mask(PluginOptions::Option option)
{
    const auto bit = [](int position) { return quint32(1) << (31 - position); };
    switch (option) {
    case PluginOptions::HelloMessage:
        return bit(0) | bit(7);
    case PluginOptions::UploadStandings:
        return bit(1) | bit(6);
    case PluginOptions::UploadReplay:
        return bit(3) | bit(4);
    }
    Q_UNREACHABLE();
}

bool isAllDigits(const QString &text)
{
    return !text.isEmpty() &&
           std::all_of(text.begin(), text.end(), [](QChar c) { return c >= '0' && c <= '9'; });
}
} // namespace

PluginOptions::PluginOptions(const QString &text)
{
    const quint64 number = text.toULongLong(&m_isNumber);
    // More digits than 64 bits hold do not parse, but they are a number all the same.
    m_isTooLarge =
        m_isNumber ? number > std::numeric_limits<quint32>::max() : isAllDigits(text.trimmed());
    if (m_isTooLarge)
        m_isNumber = false;
    if (m_isNumber)
        m_value = quint32(number);
}

bool PluginOptions::isOn(Option option) const
{
    return (m_value & mask(option)) == mask(option);
}

void PluginOptions::set(Option option, bool on)
{
    if (on)
        m_value |= mask(option);
    else
        m_value &= ~mask(option);
}

QString PluginOptions::encodedVersion() const
{
    return QStringLiteral("%1.%2.%3")
        .arg(m_value >> 16 & 0xff)
        .arg(m_value >> 8 & 0xff)
        .arg(m_value & 0xff);
}
