#pragma once

#include "HttpRequest.h"

#include <chrono>

class HttpReply;
class QNetworkReply;
class QNetworkRequest;

/// A client for small HTTP documents: a time limit for the first bytes, retries of GET and HEAD
/// after time-outs and server errors, redirects followed. It speaks HTTP and HTTPS alone.
///
/// Deliberately bounded: a body above MaxBodySize ends its request as a failure, since whoever owns
/// the wire could fill the memory with it. No cookie and no login of the user's goes to any server.
///
/// Replies refer to their client, which has to outlive them. Any thread with an event loop may send
/// requests; each has a network access manager of its own.
class Http
{
public:
    /// Bytes of one body, decoded; some 30,000 files of a manifest.
    static constexpr qint64 MaxBodySize = 2LL * 1024 * 1024;

    /// An attempt ends without success when the first bytes of its body take longer than
    /// \a readTimeout, or when the line falls silent for \a silence. A GET or HEAD is sent up to
    /// \a maxRetries times more.
    explicit Http(std::chrono::milliseconds readTimeout = std::chrono::seconds(10),
                  int maxRetries = 3, std::chrono::milliseconds silence = std::chrono::seconds(60));
    virtual ~Http() = default;
    Http(const Http &) = delete;
    Http &operator=(const Http &) = delete;

    /// The client of the whole process, made by the first call and destroyed at process exit.
    static Http &instance();

    /// Asks for \a url. The reply tells the outcome and owns itself, see HttpReply.
    HttpReply *get(const QUrl &url);
    /// Sends a request with the default headers; for \a operation and \a offset see HttpRequest.
    HttpReply *request(const QUrl &url, int operation, const QByteArray &body, uint offset);
    /// Sends \a req at once. Clients that wrap another one do so here.
    virtual HttpReply *request(const HttpRequest &req);

    /// Sends \a req one time, without retry or redirect. The caller owns the result, which is null
    /// when the operation is none that we know or the address is none of the web.
    QNetworkReply *networkReply(const HttpRequest &req);

    /// Has the next request of this thread ask without conditions, whatever was kept of an earlier
    /// answer: when that turned out to be bad, or must not be taken for current.
    static void forgetAnswer();
    /// Keeps a successful answer to \a req, so that it need not be sent again while it is
    /// unchanged.
    void keepAnswer(const HttpRequest &req, const QNetworkReply &reply, const QByteArray &body);

    /// How long each attempt may take until the first bytes of the body are there.
    std::chrono::milliseconds readTimeout() const { return m_readTimeout; }
    int maxRetries() const { return m_maxRetries; }
    /// How long an attempt goes on without a sign of life from the other side.
    std::chrono::milliseconds silence() const { return m_silence; }

private:
    static QNetworkReply *send(const HttpRequest &req, const QNetworkRequest &request);

    QMap<QByteArray, QByteArray> m_requestHeaders;
    std::chrono::milliseconds m_readTimeout;
    int m_maxRetries;
    std::chrono::milliseconds m_silence;
};
