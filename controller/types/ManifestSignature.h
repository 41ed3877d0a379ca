#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QString>
#include <QVector>

#include <optional>

/// The publisher's Ed25519 signature over a manifest; docs/signing.md tells its format.
namespace ManifestSignature
{
/// Public keys of the publishers that are trusted, 32 bytes each. Without any nothing is checked.
using Keys = QVector<QByteArray>;

/// The keys in \a text: Base64, divided by commas. What is no key is left out.
Keys keysFromText(const QByteArray &text);

/// The bytes that are signed, made from the texts of the manifest's object "data"; nothing when one
/// of them is missing or no text.
std::optional<QByteArray> signedBytes(const QJsonObject &data);

/// Why \a data is not to be trusted, in words for a log; empty when one of \a keys has signed it.
QString problem(const QJsonObject &data, const Keys &keys);
} // namespace ManifestSignature
