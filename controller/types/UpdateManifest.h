#pragma once

#include "PluginFileList.h"

#include <QJsonObject>
#include <QString>

#include <optional>

class QUrl;

/// What the update server says about the current plugin, and the JSON that says it: the publisher
/// writes it, the program reads it. A field that is absent, or has the wrong JSON type, has no
/// value here.
struct UpdateManifest {
    bool isServerError = false; ///< the server reports an error; nothing else counts
    bool hasData = false;       ///< the fields below were there to be read
    QString version;            ///< empty when it is not a text
    std::optional<QString> packageMd5;
    std::optional<QString> updatedAt;    ///< such as "2021-03-05 10:20:30"
    std::optional<PluginFileList> files; ///< paths with slashes or backslashes
    std::optional<QString> link;         ///< where the package can be fetched
    std::optional<QString> packageSize;  ///< bytes, in decimal digits

    // Only a signed manifest has these.
    std::optional<QString> packageSha256; ///< 64 lowercase hexadecimal digits
    std::optional<QString> serial;        ///< when it was published, in seconds since 1970, UTC
    std::optional<QString> signature;     ///< Base64; see ManifestSignature
    std::optional<QString> signature2;    ///< the same, over the size, too

    /// No program reads more than this many bytes of it.
    static constexpr int MaxSize = 2 << 20;

    /// Reads what a server sent. Files that would leave the game folder are left out.
    static UpdateManifest fromJson(const QJsonObject &body);
    QJsonObject toJson() const;

    /// The part of updatedAt before its first blank.
    QString date() const;

    /// Where the manifest is asked for on the server \a host.
    static QUrl url(const QString &host);
};
