#pragma once

#include <QByteArray>
#include <QDomDocument>
#include <QString>

#include <optional>

/// The plugin's configuration file as a document: everything that it holds, apart from its layout,
/// declaration and encoding.
struct PluginConfigDocument {
    /// Nothing when \a xml is not well-formed or nested deeper than 1,000 elements. An encoding
    /// that is not declared is not guessed.
    static std::optional<PluginConfigDocument> parse(const QByteArray &xml);

    /// The first child of the root with that \a name; null without one.
    QDomElement child(const char *name) const;

    /// UTF-8, indented by 4 spaces. Nothing when parsing it again would give something else than
    /// \a original, apart from the text of "setting".
    std::optional<QByteArray> serialized(const QByteArray &original) const;

    QDomDocument document;
    QString docType; ///< as it stands in the file; the document can't keep an internal subset
};
