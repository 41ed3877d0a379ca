#pragma once

#include "ForwardingHttpReply.h"
#include "HttpRequest.h"

class Http;
class QElapsedTimer;
class QTimer;

/// A request that waits until the last one of its kind is long enough ago.
///
/// Once sent it belongs to the real reply and goes with it; its signals are that reply's, and
/// finished() carries the real reply. Deleting it while it waits drops the request.
class ThrottledHttpReply : public ForwardingHttpReply
{
    Q_OBJECT
public:
    /// Sends \a req through \a inner, from the event loop at the earliest, when \a clock was
    /// started \a minInterval milliseconds ago or never. \a inner and \a clock have to outlive the
    /// reply.
    ThrottledHttpReply(const HttpRequest &req, Http &inner, int minInterval, QElapsedTimer &clock);

    QUrl url() const override;

private slots:
    void checkElapsed();

private:
    void send();

    Http &m_inner;
    const HttpRequest m_request;
    const int m_minInterval;
    QElapsedTimer &m_clock; ///< shared by all replies of a client; started with each request
    QTimer *m_timer = nullptr;
};
