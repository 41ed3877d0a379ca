#pragma once

#include "PluginFileList.h"

#include <QString>

#include <optional>

class QJsonObject;
class QUrl;

/// What the update server says about the current plugin. A field that is absent, or has the wrong
/// JSON type, has no value here.
struct UpdateManifest {
    bool isServerError = false; ///< the server reports an error; nothing else counts
    bool hasData = false;       ///< the fields below were there to be read
    QString version;            ///< empty when it is not a text
    std::optional<QString> packageMd5;
    std::optional<QString> date; ///< such as "2021-03-05"
    /// Without the entries that would leave the game folder.
    std::optional<PluginFileList> files;
    std::optional<QString> link; ///< where the package can be fetched

    static UpdateManifest fromJson(const QJsonObject &body);

    /// Where the manifest is asked for on the server \a host.
    static QUrl url(const QString &host);
};
