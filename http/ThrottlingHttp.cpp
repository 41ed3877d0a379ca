#include "ThrottlingHttp.h"

#include "ThrottledHttpReply.h"

ThrottlingHttp::ThrottlingHttp(std::unique_ptr<Http> inner, std::chrono::milliseconds minInterval)
    : m_inner(std::move(inner)), m_minInterval(minInterval)
{
}

HttpReply *ThrottlingHttp::request(const HttpRequest &req)
{
    auto *const reply = new ThrottledHttpReply(req, *m_inner, m_minInterval, m_clock);
    reply->setParent(&m_waiting);
    const auto next = [this] { startNext(); };
    QObject::connect(reply, &ThrottledHttpReply::sent, &m_waiting, next, Qt::QueuedConnection);
    QObject::connect(reply, &QObject::destroyed, &m_waiting, next, Qt::QueuedConnection);
    if (m_waiting.children().size() == 1)
        QMetaObject::invokeMethod(&m_waiting, next, Qt::QueuedConnection);
    return reply;
}

void ThrottlingHttp::startNext()
{
    // One at a time: if all looked at the clock, chance would decide which of them finds it due.
    QObject *const next = m_waiting.children().value(0);
    if (next == m_next)
        return;
    m_next = next;
    if (auto *const reply = qobject_cast<ThrottledHttpReply *>(next))
        reply->checkElapsed();
}
