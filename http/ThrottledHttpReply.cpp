#include "ThrottledHttpReply.h"

#include "Http.h"

#include <QDebug>
#include <QElapsedTimer>
#include <QTimer>

ThrottledHttpReply::ThrottledHttpReply(const HttpRequest &req, Http &inner,
                                       std::chrono::milliseconds minInterval, QElapsedTimer &clock)
    : m_inner(inner), m_request(req), m_minInterval(minInterval), m_clock(clock)
{
}

QUrl ThrottledHttpReply::url() const
{
    return origin() ? origin()->url() : m_request.url;
}

void ThrottledHttpReply::checkElapsed()
{
    const std::chrono::milliseconds elapsed(m_clock.isValid() ? m_clock.elapsed()
                                                              : m_minInterval.count());
    if (elapsed >= m_minInterval)
        return send();

    if (!m_timer) {
        m_timer = new QTimer(this);
        m_timer->setSingleShot(true);
        m_timer->setTimerType(Qt::PreciseTimer);
        connect(m_timer, &QTimer::timeout, this, &ThrottledHttpReply::checkElapsed);
    }
    const auto rest = m_minInterval - elapsed;
    qDebug() << "Throttling" << m_request.url << QStringLiteral("%1ms").arg(rest.count());
    m_timer->start(rest);
}

void ThrottledHttpReply::send()
{
    m_clock.start();
    HttpReply *const reply = m_inner.request(m_request);
    connect(reply, &HttpReply::data, this, &HttpReply::data);
    connect(reply, &HttpReply::error, this, &HttpReply::error);
    connect(reply, &HttpReply::finished, this, &HttpReply::finished);
    setParent(reply);
    emit sent();
}
