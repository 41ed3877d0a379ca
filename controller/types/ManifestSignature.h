#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QString>
#include <QVector>

#include <optional>
#include <string_view>

/// The publisher's Ed25519 signatures over a manifest; docs/signing.md tells their formats.
namespace ManifestSignature
{
/// Public keys of the publishers that are trusted, 32 bytes each. Without any nothing is checked.
using Keys = QVector<QByteArray>;

/// The keys in \a text: Base64, divided by commas. What is no key is left out.
Keys keysFromText(const QByteArray &text);

/// Whether \a text is empty or keysFromText() finds a key in each of its words. A program built
/// with fewer keys than were meant, or with none, would trust the wrong publishers unnoticed.
constexpr bool isKeyList(std::string_view text)
{
    constexpr std::string_view digits =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    // 32 bytes, of which the last digit holds four bits, and the padding.
    constexpr std::string_view lastDigits = "AEIMQUYcgkosw048";
    constexpr std::size_t length = 44;
    for (; !text.empty(); text.remove_prefix(length + 1)) {
        if (text.substr(0, length).find_first_not_of(digits) != length - 1 ||
            text[length - 1] != '=' || lastDigits.find(text[length - 2]) == lastDigits.npos)
            return false;
        if (text.size() == length)
            return true;
        if (text[length] != ',' || text.size() == length + 1)
            return false;
    }
    return true;
}

/// A manifest carries two signatures. V1 leaves out the package's size; programs before 1.2 know
/// no other.
enum class Format { V1, V2 };

/// The bytes that are signed, made from the texts of the manifest's object "data"; nothing when one
/// that must be there is missing or one is no text.
std::optional<QByteArray> signedBytes(const QJsonObject &data, Format format);

struct Result {
    QByteArray signer; ///< the key that has signed; empty when there is a problem
    QString problem;   ///< why the manifest is not to be trusted, in words for a log
};

/// Checks the signature of one format in \a data against each of \a keys.
Result verify(const QJsonObject &data, Format format, const Keys &keys);

/// The signature that counts: whoever can read the second format must not fall back to the first,
/// which anybody could force by breaking the second.
Format formatOf(const QJsonObject &data);

/// The name in "data" under which the signature stands.
QLatin1String nameOf(Format format);
} // namespace ManifestSignature
