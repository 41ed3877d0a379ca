#pragma once

#include "ContentDecoder.h"
#include "HttpReply.h"
#include "HttpRequest.h"

#include <QNetworkReply>

#include <memory>

class Http;
class QTimer;

/// A request sent over the network, as often as it takes.
///
/// The reply is a child of the network reply in flight and goes with it at the end.
class NetworkHttpReply : public HttpReply
{
    Q_OBJECT
public:
    /// Sends \a req at once. \a client has to outlive the reply.
    NetworkHttpReply(const HttpRequest &req, Http &client);

    QUrl url() const override;
    /// The status of the last attempt; 0 when that one was aborted or its connection broke before
    /// a body announced as good was complete, since half an answer is none.
    int statusCode() const override;
    /// Of the last attempt; when its body was refused, or the time was up, why.
    QString reasonPhrase() const override;
    QList<QPair<QByteArray, QByteArray>> headers() const override;
    QByteArray header(const QByteArray &name) const override;
    QByteArray body() const override;

private slots:
    void replyFinished();
    void replyError(QNetworkReply::NetworkError code);
    void readyRead();
    void downloadProgress(qint64 bytesReceived, qint64 bytesTotal);
    void readTimeout();

private:
    bool send(const HttpRequest &req);
    void setupReply();
    bool isRetriable() const;
    bool take(bool isAtEnd);
    void refuse(const QString &reason);
    void settle();
    void emitError();
    void emitFinished();

    Http &m_client;
    const HttpRequest m_request;
    QNetworkReply *m_networkReply = nullptr; ///< our parent; null if nothing could be sent
    QTimer *m_readTimeoutTimer = nullptr;
    QTimer *m_timeLimitTimer = nullptr; ///< over all attempts
    int m_retryCount = 0;
    std::unique_ptr<ContentDecoder> m_decoder; ///< of the attempt's body, once that begins
    QByteArray m_received;                     ///< decoded so far
    QByteArray m_bytes;
    QString m_problem;     ///< why an attempt was ended from here
    bool m_broken = false; ///< the last attempt brought no complete answer
};
