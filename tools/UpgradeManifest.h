#pragma once

#include "PluginFileList.h"

#include <QByteArray>
#include <QString>

/// The document that tells players which plugin there is and where its package lies.
struct UpgradeManifest {
    QString version;
    QString packageMd5;
    QString updatedAt; ///< "YYYY-MM-DD HH:MM:SS"
    QString link;      ///< address of the package
    PluginFileList files;

    /// The document as it is served. The file list is a JSON text of its own inside it, in plain
    /// ASCII, because players read that text one byte a character.
    QByteArray toJson() const;
};
