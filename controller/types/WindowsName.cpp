#include "WindowsName.h"

#include <QRegularExpression>

namespace
{
bool isDevice(const QString &name)
{
    static const QRegularExpression device(
        QStringLiteral("^(CON|PRN|AUX|NUL|CONIN\\$|CONOUT\\$|(COM|LPT)[1-9\u00B9\u00B2\u00B3])$"),
        QRegularExpression::CaseInsensitiveOption);
    // An extension, or blanks before it, don't make an ordinary file of a device.
    return device.match(name.section(QLatin1Char('.'), 0, 0).trimmed()).hasMatch();
}
} // namespace

QString WindowsName::problem(const QString &name)
{
    const QString forbidden = QStringLiteral("<>:\"/\\|?*");
    for (const QChar c : name) {
        if (c < QLatin1Char(' '))
            return QStringLiteral("has a control character in its name");
        if (forbidden.contains(c))
            return QStringLiteral("has the character %1 in its name").arg(c);
    }
    if (name.endsWith(QLatin1Char('.')) || name.endsWith(QLatin1Char(' ')))
        return QStringLiteral("has a name that ends with a dot or a blank");
    if (isDevice(name))
        return QStringLiteral("has the name of a device");
    return {};
}
