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

std::optional<QByteArray> ManifestSignature::signedBytes(const QJsonObject &data, Format format)
{
    QByteArray bytes = format == Format::V1 ? "brekka manifest 1\n" : "brekka manifest 2\n";
    const auto add = [&](const char *name, const QJsonValue &value) {
        const QByteArray text = value.toString().toUtf8();
        bytes += QByteArray(name) + ' ' + QByteArray::number(text.size()) + '\n' + text + '\n';
        return value.isString();
    };
    for (const char *name :
         {"version_name", "md5", "sha256", "updated_at", "upgrade_info", "link", "serial"}) {
        if (!add(name, data.value(QLatin1String(name))))
            return std::nullopt;
    }
    if (format == Format::V1)
        return bytes;
    for (const char *name : {"size", "rollout"}) {
        const QJsonValue value = data.value(QLatin1String(name));
        if (!add(name, value.isUndefined() ? QJsonValue(QString()) : value))
            return std::nullopt;
    }
    return bytes;
}

ManifestSignature::Result ManifestSignature::verify(const QJsonObject &data, Format format,
                                                    const Keys &keys)
{
    const QJsonValue signature = data.value(nameOf(format));
    if (signature.isUndefined())
        return {{}, QStringLiteral("no signature")};
    const auto bytes = signedBytes(data, format);
    const QByteArray raw = fromBase64(signature.toString().toLatin1());
    if (!bytes || raw.size() != int(crypto_sign_BYTES))
        return {{}, QStringLiteral("a signed field or the signature is not as it should be")};
    if (sodium_init() < 0)
        return {{}, QStringLiteral("the signature library can't be used")};
    const auto hasSigned = [&](const QByteArray &key) {
        return crypto_sign_verify_detached(bytesOf(raw), bytesOf(*bytes), quint64(bytes->size()),
                                           bytesOf(key)) == 0;
    };
    const auto signer = std::find_if(keys.begin(), keys.end(), hasSigned);
    if (signer != keys.end())
        return {*signer, {}};
    return {{}, QStringLiteral("signed by none of the known keys")};
}

ManifestSignature::Format ManifestSignature::formatOf(const QJsonObject &data)
{
    return data.contains(nameOf(Format::V2)) ? Format::V2 : Format::V1;
}

QLatin1String ManifestSignature::nameOf(Format format)
{
    return QLatin1String(format == Format::V1 ? "signature" : "signature2");
}
