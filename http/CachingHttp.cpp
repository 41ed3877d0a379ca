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
    HttpReply *const origin = m_inner->request(req);
    // Headers of one's own can ask for a part of the document or for somebody's private view of it.
    if (req.operation != QNetworkAccessManager::GetOperation || req.offset != 0 ||
        !req.headers.isEmpty())
        return origin;
    const QByteArray key = cacheKey(req.url);
    auto *const reply = new WrappedHttpReply(origin, *this, m_cache, key);
    m_underWay.removeAll(nullptr);
    for (const auto &earlier : qAsConst(m_underWay)) {
        if (earlier->key() == key)
            QObject::connect(reply, &WrappedHttpReply::aboutToStore, earlier,
                             &WrappedHttpReply::becomeOutdated);
    }
    m_underWay += reply;
    return reply;
}

void CachingHttp::setValidators(const Validators &validators)
{
    m_validators.clear();
    for (auto it = validators.cbegin(); it != validators.cend(); ++it)
        m_validators[it.key().toLower()] = it.value();
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
