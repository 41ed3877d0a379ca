#include "WrappedHttpReply.h"

#include "CachedHttpReply.h"
#include "CachingHttp.h"
#include "DiskCache.h"

#include <QDebug>

namespace
{
constexpr int PartialContent = 206;
} // namespace

WrappedHttpReply::WrappedHttpReply(HttpReply *origin, const CachingHttp &client, DiskCache &cache,
                                   const QByteArray &key)
    : m_client(client), m_cache(cache), m_key(key)
{
    setParent(origin);
    connect(origin, &HttpReply::finished, this, &WrappedHttpReply::originFinished);
}

void WrappedHttpReply::becomeOutdated()
{
    m_outdated = true;
}

void WrappedHttpReply::originFinished(const HttpReply &reply)
{
    qDebug() << reply.statusCode() << reply.url();
    if (!reply.isSuccessful() && serveStale(reply))
        return;

    if (mayStore(reply)) {
        // Before, because inserting may run events.
        emit aboutToStore();
        m_cache.insert(m_key, reply.body());
    } else {
        qDebug() << "Not caching" << reply.statusCode() << reply.url();
    }

    if (reply.isSuccessful())
        emit data(reply.body());
    else
        emit error(reply.reasonPhrase());
    emit finished(reply);
}

bool WrappedHttpReply::serveStale(const HttpReply &reply)
{
    const QByteArray value = m_cache.staleValue(m_key);
    if (value.isNull())
        return false;
    qDebug() << "Using stale cache value" << reply.url();
    emit data(value);
    auto *cached = new CachedHttpReply(value, reply.url());
    cached->setParent(this);
    emit finished(*cached);
    cached->deleteLater();
    return true;
}

bool WrappedHttpReply::mayStore(const HttpReply &reply) const
{
    if (!reply.isSuccessful() || reply.statusCode() == PartialContent || m_outdated)
        return false;
    const CachingHttp::Validators &validators = m_client.validators();
    // Parameters such as the character set are no part of the type.
    const QByteArray type = reply.header("Content-Type").split(';').first().trimmed().toLower();
    const CachingHttp::Validator accepts = validators.value(type, validators.value("*"));
    return !accepts || accepts(reply);
}
