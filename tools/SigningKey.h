#pragma once

#include <QByteArray>
#include <QString>

#include <optional>

/// A publisher's private Ed25519 key, in a file as "openssl genpkey -algorithm ed25519" writes it.
class SigningKey
{
public:
    /// Makes a key and writes it to \a path, which must not exist yet, for its owner's eyes only.
    /// Nothing on failure, and \a error says why in one line.
    static std::optional<SigningKey> create(const QString &path, QString *error);
    /// Reads the key at \a path. Nothing on failure, as above.
    static std::optional<SigningKey> load(const QString &path, QString *error);

    /// The 32 bytes that programs check signatures with.
    QByteArray publicKey() const;
    /// The signature of \a bytes, 64 bytes.
    QByteArray signatureOf(const QByteArray &bytes) const;

private:
    explicit SigningKey(const QByteArray &seed);

    QByteArray m_secret; ///< the seed and the public key, 64 bytes
};
