#pragma once

#include "PluginFileList.h"

#include <QLatin1String>
#include <QMetaType>
#include <QString>

/// The program's own state as kept in the settings file.
namespace ApplicationSettings
{
/// The settings file; it has no directory, so it lies in the process's current one.
constexpr QLatin1String FileName("brekka.ini");

constexpr QLatin1String KeyGame("game");
constexpr QLatin1String KeyPluginVersion("pver");
constexpr QLatin1String KeyUpdateDate("updatedate");
constexpr QLatin1String KeySupportGameVersion("PluginSupportGameVersion");
constexpr QLatin1String KeyPackageMd5("packagecheck");
constexpr QLatin1String KeyLastCheckResult("lastcheckret");
constexpr QLatin1String KeyAutoRun("autorun");
constexpr QLatin1String KeyReplayUpload("pluginloaderplayopen");
constexpr QLatin1String KeyInterval("interval");
/// The name under which the plugin file list is written; in the file it is the group below.
constexpr QLatin1String KeyFilesMd5("filemd5");
constexpr QLatin1String GroupPlugins("plugins");

/// Seconds between two automatic checks when the file says nothing useful.
constexpr int DefaultInterval = 300;

/// One reading of the settings file: a plain value that travels between threads in a QVariant.
struct settings {
    settings();

    QString game;                      ///< the game folder; empty when none is set
    QString pver;                      ///< version text of the installed plugin
    QString updatedate;                ///< date of the installed plugin
    QString PluginSupportGameVersion;  ///< game version that the plugin supports
    QString packagecheck;              ///< MD5 of the installed package
    PluginFileList plugins;            ///< the installed files and their checksums
    bool autorun = false;              ///< start at logon
    bool lastcheckret = false;         ///< the last verification found every file right
    bool pluginloaderplayopen = false; ///< replay upload
    int interval = 0;                  ///< seconds between two automatic checks
};
} // namespace ApplicationSettings

Q_DECLARE_METATYPE(ApplicationSettings::settings)
