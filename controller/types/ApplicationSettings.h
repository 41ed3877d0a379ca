#pragma once

#include "PluginFileList.h"

#include <QMetaType>
#include <QString>

/// The program's own state as kept in the settings file.
namespace ApplicationSettings
{
/// The settings file; it has no directory, so it lies in the process's current one.
constexpr char FileName[] = "brekka.ini";

constexpr char KeyGame[] = "game";
constexpr char KeyPluginVersion[] = "pver";
constexpr char KeyUpdateDate[] = "updatedate";
constexpr char KeySupportGameVersion[] = "PluginSupportGameVersion";
constexpr char KeyPackageMd5[] = "packagecheck";
constexpr char KeyLastCheckResult[] = "lastcheckret";
constexpr char KeyAutoRun[] = "autorun";
constexpr char KeyReplayUpload[] = "pluginloaderplayopen";
constexpr char KeyInterval[] = "interval";
/// Only programs that check signatures write these two.
constexpr char KeyManifestSerial[] = "manifestserial";
constexpr char KeyPackageSha256[] = "packagesha256";
/// The name under which the plugin file list is written; in the file it is the group below.
constexpr char KeyFilesMd5[] = "filemd5";
constexpr char GroupPlugins[] = "plugins";

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
    QString manifestserial;            ///< the highest of a signed manifest that was accepted
    QString packagesha256;             ///< SHA-256 of the installed package
};
} // namespace ApplicationSettings

Q_DECLARE_METATYPE(ApplicationSettings::settings)
