#include "CachedHttpReply.h"

CachedHttpReply::CachedHttpReply(const QByteArray &body, const QUrl &url)
    : m_bytes(body), m_url(url)
{
}

QUrl CachedHttpReply::url() const
{
    return m_url;
}

int CachedHttpReply::statusCode() const
{
    return 200;
}

QByteArray CachedHttpReply::body() const
{
    return m_bytes;
}

void CachedHttpReply::emitSignals()
{
    emit data(m_bytes);
    emit finished(*this);
    deleteLater();
}
