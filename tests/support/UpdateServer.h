#pragma once

#include "Files.h"
#include "HttpServer.h"

/// An update server with one plugin package on it; faults are scripted over what it offers.
class UpdateServer : public HttpServer
{
public:
    /// The paths that it answers.
    static constexpr const char *Manifest = "/cms/upgrade";
    static constexpr const char *Package = "/package.zip";

    /// Offers \a tree as \a version, well and whole.
    void publish(const Files::Tree &tree, const QString &version);
    /// A small plugin with everything that has made trouble: folders, an empty file, a Chinese
    /// name.
    static Files::Tree samplePlugin();

    QByteArray archive;  ///< the package last published
    QByteArray manifest; ///< its manifest
};
