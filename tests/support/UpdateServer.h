#pragma once

#include "Files.h"
#include "HttpServer.h"
#include "SigningKey.h"
#include "UpdateManifest.h"

#include <functional>
#include <optional>

/// An update server with one plugin package on it; faults are scripted over what it offers.
class UpdateServer : public HttpServer
{
public:
    /// The paths that it answers.
    static constexpr const char *Manifest = "/cms/upgrade";
    static constexpr const char *Package = "/package.zip";

    /// Offers \a tree as \a version, well and whole.
    void publish(const Files::Tree &tree, const QString &version);
    /// Answers with what the members below hold now.
    void serve();
    /// A small plugin with everything that has made trouble: folders, an empty file, a Chinese
    /// name.
    static Files::Tree samplePlugin();

    UpdateManifest offered;
    QByteArray archive; ///< the package
    /// When there is one, what is published gets a serial and each answer its signatures.
    std::optional<SigningKey> key;
    int serial = 1000;
    /// Changes the manifest's "data" on its way out, behind the signature.
    std::function<void(QJsonObject &)> falsify;
};
