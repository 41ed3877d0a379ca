#pragma once

#include "Http.h"

#include <QElapsedTimer>
#include <QObject>

#include <memory>

/// A client that keeps a minimum interval between its requests.
///
/// Belongs to one thread and has to outlive the replies that it has sent; those that still wait are
/// deleted with it.
class ThrottlingHttp : public Http
{
public:
    /// Sends through \a inner, at most one request each \a minInterval milliseconds.
    ThrottlingHttp(std::unique_ptr<Http> inner, int minInterval);

    using Http::request;
    HttpReply *request(const HttpRequest &req) override;

private:
    std::unique_ptr<Http> m_inner;
    const int m_minInterval;
    QElapsedTimer m_clock;
    QObject m_waiting; ///< parent of the replies whose turn has not come
};
