#pragma once

#include <QMetaType>
#include <QObject>

/// Error codes that result signals carry between the workers and the window.
namespace EC
{
Q_NAMESPACE

enum ErrorCode {
    SUCCESS = 0,
    /// A file that was asked for does not exist.
    FILE_NOT_FOUND = 1,
    /// An archive can't be read, an entry is damaged or would leave its folder, or a target can't
    /// be written (ZipCpp).
    FILE_OPEN_FAILED = 2,
    /// The game is not registered on this machine (GameScanner).
    REGE_KEY_NOTFOUND = 3,
    /// The game's registration vanished between two reads (GameScanner).
    REG_READ_FAILED = 4,
    /// Reserved: nothing sends it.
    DOWNLOAD_PLUGIN_FAILED = 5,
    /// The package can't be saved, or its transfer failed (PluginDownloader).
    DOWNLOAD_PLUGIN_NETFAILED = 6,
};
Q_ENUM_NS(ErrorCode)

/// The bare name of \a code, such as "FILE_OPEN_FAILED"; for debug lines.
const char *name(ErrorCode code);
} // namespace EC
