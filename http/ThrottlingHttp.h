#pragma once

#include "Http.h"

#include <QElapsedTimer>
#include <QObject>
#include <QPointer>

#include <chrono>
#include <memory>

/// A client that keeps a minimum interval between its requests and sends them in the order in which
/// they were made.
///
/// Belongs to one thread and has to outlive the replies that it has sent; those that still wait are
/// deleted with it.
class ThrottlingHttp : public Http
{
public:
    /// Sends through \a inner, at most one request each \a minInterval.
    ThrottlingHttp(std::unique_ptr<Http> inner, std::chrono::milliseconds minInterval);

    using Http::request;
    HttpReply *request(const HttpRequest &req) override;

private:
    void startNext();

    std::unique_ptr<Http> m_inner;
    const std::chrono::milliseconds m_minInterval;
    QElapsedTimer m_clock;
    QPointer<QObject> m_next; ///< the one of those that wait that looks at the clock
    QObject m_waiting;        ///< parent of the replies that are not sent yet, in their order
};
