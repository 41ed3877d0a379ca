#include "GameRegistration.h"

#include "WinePrefix.h"

QVariant GameRegistration::installLocation() const
{
    const WinePrefix prefix = WinePrefix::current();
    const QString path = prefix.nativePath(prefix.userString(
        QStringLiteral(
            "Software\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\WOT.CN.PRODUCTION"),
        QStringLiteral("InstallLocation")));
    return path.isNull() ? QVariant() : QVariant(path);
}
