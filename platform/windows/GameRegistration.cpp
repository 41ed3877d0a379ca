#include "GameRegistration.h"

#include <QSettings>

QVariant GameRegistration::installLocation() const
{
    const QSettings registration(
        QStringLiteral(
            "HKEY_CURRENT_USER\\SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\"
            "WOT.CN.PRODUCTION"),
        QSettings::NativeFormat);
    return registration.value(QStringLiteral("InstallLocation"));
}
