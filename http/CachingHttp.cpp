#include "CachingHttp.h"

#include "WrappedHttpReply.h"

#include <QCryptographicHash>

CachingHttp::CachingHttp(std::unique_ptr<Http> inner, const QByteArray &name,
                         const QString &directory, qint64 maxSize)
    : m_inner(std::move(inner)), m_cache(name, directory, maxSize)
{
}

HttpReply *CachingHttp::request(const HttpRequest &req)
{
    HttpReply *const reply = m_inner->request(req);
    if (req.operation != QNetworkAccessManager::GetOperation || req.offset != 0)
        return reply;
    return new WrappedHttpReply(reply, *this, m_cache, cacheKey(req.url));
}

void CachingHttp::setValidators(const Validators &validators)
{
    m_validators = validators;
}

const CachingHttp::Validators &CachingHttp::validators() const
{
    return m_validators;
}

QByteArray CachingHttp::cacheKey(const QUrl &url)
{
    // A numeric host holds colons, which no file name should.
    const QByteArray host = QUrl::toPercentEncoding(url.host(QUrl::FullyEncoded));
    const QByteArray hash =
        QCryptographicHash::hash(url.toEncoded(), QCryptographicHash::Sha256).toHex();
    return (host.isEmpty() ? QByteArray("_") : host) + '/' + hash;
}
