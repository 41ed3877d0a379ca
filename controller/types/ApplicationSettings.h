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
/// A serial without its key: only programs before 1.2 write it.
constexpr char KeyManifestSerial[] = "manifestserial";
/// Only programs that check signatures write these; see ManifestTrust::Memory.
constexpr char KeyManifestSerials[] = "manifestserials";
constexpr char KeyNeedsSignature2[] = "needssignature2";
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
    QString manifestserial;            ///< highest serial of any accepted signed manifest
    QString packagesha256;             ///< SHA-256 of the installed package
    QString manifestserials;           ///< the same as manifestserial, for each key
    bool needssignature2 = false;      ///< a signature over the size was seen once
};
} // namespace ApplicationSettings

Q_DECLARE_METATYPE(ApplicationSettings::settings)
