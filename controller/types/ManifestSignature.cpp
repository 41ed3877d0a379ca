#include "ManifestSignature.h"

#include <sodium.h>

#include <algorithm>

namespace
{
const unsigned char *bytesOf(const QByteArray &array)
{
    return reinterpret_cast<const unsigned char *>(array.constData());
}

QByteArray fromBase64(const QByteArray &text)
{
    return QByteArray::fromBase64Encoding(text, QByteArray::AbortOnBase64DecodingErrors).decoded;
}
} // namespace

ManifestSignature::Keys ManifestSignature::keysFromText(const QByteArray &text)
{
    Keys keys;
    for (const QByteArray &word : text.split(',')) {
        const QByteArray key = fromBase64(word.trimmed());
        if (key.size() == int(crypto_sign_PUBLICKEYBYTES))
            keys.append(key);
    }
    return keys;
}

std::optional<QByteArray> ManifestSignature::signedBytes(const QJsonObject &data)
{
    QByteArray bytes = "brekka manifest 1\n";
    for (const char *name :
         {"version_name", "md5", "sha256", "updated_at", "upgrade_info", "link", "serial"}) {
        const QJsonValue value = data.value(QLatin1String(name));
        if (!value.isString())
            return std::nullopt;
        const QByteArray text = value.toString().toUtf8();
        bytes += QByteArray(name) + ' ' + QByteArray::number(text.size()) + '\n' + text + '\n';
    }
    return bytes;
}

QString ManifestSignature::problem(const QJsonObject &data, const Keys &keys)
{
    const QJsonValue signature = data.value(QLatin1String("signature"));
    if (signature.isUndefined())
        return QStringLiteral("no signature");
    const auto bytes = signedBytes(data);
    const QByteArray raw = fromBase64(signature.toString().toLatin1());
    if (!bytes || raw.size() != int(crypto_sign_BYTES))
        return QStringLiteral("a signed field or the signature is not as it should be");
    if (sodium_init() < 0)
        return QStringLiteral("the signature library can't be used");
    const auto signedBy = [&](const QByteArray &key) {
        return crypto_sign_verify_detached(bytesOf(raw), bytesOf(*bytes), quint64(bytes->size()),
                                           bytesOf(key)) == 0;
    };
    if (std::any_of(keys.begin(), keys.end(), signedBy))
        return {};
    return QStringLiteral("signed by none of the known keys");
}
