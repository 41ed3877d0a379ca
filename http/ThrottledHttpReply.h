#pragma once

#include "ForwardingHttpReply.h"
#include "HttpRequest.h"

#include <chrono>

class Http;
class QElapsedTimer;
class QTimer;

/// A request that waits until the last one of its kind is long enough ago.
///
/// Nothing happens before the first checkElapsed(). Once sent it belongs to the real reply and goes
/// with it; its signals are that reply's, and finished() carries the real reply. Deleting it while
/// it waits drops the request.
class ThrottledHttpReply : public ForwardingHttpReply
{
    Q_OBJECT
public:
    /// Takes \a req for \a inner. \a inner and \a clock have to outlive the reply.
    ThrottledHttpReply(const HttpRequest &req, Http &inner, std::chrono::milliseconds minInterval,
                       QElapsedTimer &clock);

    QUrl url() const override;

public slots:
    /// Sends the request when the clock was started \a minInterval ago or never, else comes back to
    /// it by itself.
    void checkElapsed();

signals:
    /// The request is on its way.
    void sent();

private:
    void send();

    Http &m_inner;
    const HttpRequest m_request;
    const std::chrono::milliseconds m_minInterval;
    QElapsedTimer &m_clock; ///< shared by all replies of a client; started with each request
    QTimer *m_timer = nullptr;
};
