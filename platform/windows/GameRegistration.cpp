#include "GameRegistration.h"

#include <QSettings>

QVariant GameRegistration::installLocation() const
{
    // Qt opens the key that it is given for writing, and makes it if there is none. Below
    // that one it only looks.
    const QSettings user(QStringLiteral("HKEY_CURRENT_USER"), QSettings::NativeFormat);
    return user.value(
        QStringLiteral("SOFTWARE/Microsoft/Windows/CurrentVersion/Uninstall/WOT.CN.PRODUCTION/"
                       "InstallLocation"));
}
