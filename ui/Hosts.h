#pragma once

#include <QString>

class QSettings;

/// The servers that the program talks of, each as "host" or "host:port".
struct Hosts {
    QString update;    ///< answers with the manifest
    QString agreement; ///< shows the user agreement
    QString site;      ///< shows the privacy statement
    QString game;      ///< offers the game for download

    /// The build's defaults, overridden by the group "hosts" of \a settings. A value that is no
    /// host is reported in a debug line and not used.
    static Hosts read(QSettings &settings);
};
