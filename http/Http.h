#pragma once

#include "HttpRequest.h"

class HttpReply;
class QNetworkReply;

/// A client for small HTTP documents: a time limit for the first bytes, retries of GET and HEAD
/// after time-outs and server errors, redirects followed.
///
/// Replies refer to their client, which has to outlive them. Any thread with an event loop may send
/// requests; each has a network access manager of its own.
class Http
{
public:
    Http();
    virtual ~Http() = default;
    Http(const Http &) = delete;
    Http &operator=(const Http &) = delete;

    /// The client of the whole process, made by the first call and destroyed at process exit.
    static Http &instance();
    /// Sets the read time-out, in milliseconds, of the clients that are made from now on; has to
    /// come before the first instance() to reach that one. Not meant for use across threads.
    static void setDefaultReadTimeout(int ms);

    /// Asks for \a url. The reply tells the outcome and owns itself, see HttpReply.
    HttpReply *get(const QUrl &url);
    /// Sends a request with the default headers; for \a operation and \a offset see HttpRequest.
    HttpReply *request(const QUrl &url, int operation, const QByteArray &body, uint offset);
    /// Sends \a req at once. Clients that wrap another one do so here.
    virtual HttpReply *request(const HttpRequest &req);

    /// Sends \a req one time, without time limit, retry or redirect. The caller owns the result,
    /// which is null when the operation is none that we know.
    QNetworkReply *networkReply(const HttpRequest &req);

    /// Milliseconds that each attempt may take until the first bytes of the body are there.
    int readTimeout() const { return m_readTimeout; }
    int maxRetries() const { return m_maxRetries; }

private:
    QMap<QByteArray, QByteArray> m_requestHeaders;
    int m_readTimeout;
    int m_maxRetries;
};
