#include "ApplicationSettings.h"

ApplicationSettings::settings::settings()
{
    // A record is always made before it travels, so this is early enough for queued signals.
    static const bool registered = [] {
        qRegisterMetaType<ApplicationSettings::settings>("ApplicationSettings::settings");
        qRegisterMetaType<ApplicationSettings::settings>("ApplicationSettings::settings&");
        return true;
    }();
    Q_UNUSED(registered)
}
