#include "NetworkHttpReply.h"

#include "Http.h"

#include <QAbstractEventDispatcher>
#include <QDebug>
#include <QTimer>

#include <utility>

namespace
{
// A thousand times as much may come out of it, and the main thread has other things to do.
constexpr qint64 PartSize = 16LL * 1024; // bytes
} // namespace

NetworkHttpReply::NetworkHttpReply(const HttpRequest &req, Http &client)
    : m_client(client), m_request(req), m_readTimeoutTimer(new QTimer(this)),
      m_timeLimitTimer(new QTimer(this))
{
    if (m_request.url.isEmpty())
        qWarning() << "Empty URL";

    m_readTimeoutTimer->setSingleShot(true);
    m_readTimeoutTimer->setInterval(m_client.readTimeout());
    connect(m_readTimeoutTimer, &QTimer::timeout, this, &NetworkHttpReply::readTimeout,
            Qt::UniqueConnection);
    m_timeLimitTimer->setSingleShot(true);
    connect(m_timeLimitTimer, &QTimer::timeout, this,
            [this] { refuse(QStringLiteral("took too long")); });
    if (m_request.timeLimit.count() > 0)
        m_timeLimitTimer->start(m_request.timeLimit);
    if (send(m_request))
        return;
    // With nothing on its way no signal of the network will ever end this request, and a thread
    // that ends before its event loop gets to it has to take it along.
    setParent(QAbstractEventDispatcher::instance());
    QMetaObject::invokeMethod(this, &NetworkHttpReply::emitError, Qt::QueuedConnection);
}

QUrl NetworkHttpReply::url() const
{
    return m_networkReply ? m_networkReply->url() : m_request.url;
}

int NetworkHttpReply::statusCode() const
{
    if (!m_networkReply || m_broken)
        return 0;
    return m_networkReply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
}

QString NetworkHttpReply::reasonPhrase() const
{
    if (!m_networkReply || m_broken)
        return m_problem;
    return m_networkReply->attribute(QNetworkRequest::HttpReasonPhraseAttribute).toString();
}

QList<QPair<QByteArray, QByteArray>> NetworkHttpReply::headers() const
{
    return m_networkReply ? m_networkReply->rawHeaderPairs() : HttpReply::headers();
}

QByteArray NetworkHttpReply::header(const QByteArray &name) const
{
    return m_networkReply ? m_networkReply->rawHeader(name) : HttpReply::header(name);
}

QByteArray NetworkHttpReply::body() const
{
    return m_bytes;
}

bool NetworkHttpReply::send(const HttpRequest &req)
{
    QNetworkReply *const attempt = m_client.networkReply(req);
    if (!attempt)
        return false;
    setParent(attempt);
    m_networkReply = attempt;
    m_decoder.reset();
    m_received.clear();
    setupReply();
    m_readTimeoutTimer->start();
    return true;
}

void NetworkHttpReply::setupReply()
{
    connect(m_networkReply, &QNetworkReply::errorOccurred, this, &NetworkHttpReply::replyError,
            Qt::UniqueConnection);
    connect(m_networkReply, &QNetworkReply::finished, this, &NetworkHttpReply::replyFinished,
            Qt::UniqueConnection);
    connect(m_networkReply, &QNetworkReply::readyRead, this, &NetworkHttpReply::readyRead,
            Qt::UniqueConnection);
    connect(m_networkReply, &QNetworkReply::downloadProgress, this,
            &NetworkHttpReply::downloadProgress, Qt::UniqueConnection);
}

bool NetworkHttpReply::isRetriable() const
{
    const auto operation = m_networkReply->operation();
    return operation == QNetworkAccessManager::GetOperation ||
           operation == QNetworkAccessManager::HeadOperation;
}

bool NetworkHttpReply::take(bool isAtEnd)
{
    const bool isWanted = isSuccessful();
    if (!m_decoder) {
        // What is kept was decoded before, whatever the 304 says. All other bodies are taken only
        // to be dropped, but within the same bound.
        const bool isCoded =
            isWanted &&
            !m_networkReply->attribute(QNetworkRequest::SourceIsFromCacheAttribute).toBool();
        const QByteArray coding =
            isCoded ? m_networkReply->rawHeader("Content-Encoding") : QByteArray();
        m_decoder = std::make_unique<ContentDecoder>(coding, Http::MaxBodySize,
                                                     [this, isWanted](const char *bytes, int size) {
                                                         if (isWanted)
                                                             m_received.append(bytes, size);
                                                         return true;
                                                     });
    }
    while (m_networkReply->bytesAvailable() > 0) {
        if (!m_decoder->add(m_networkReply->read(PartSize)))
            return false;
    }
    return !isAtEnd || m_decoder->finish();
}

void NetworkHttpReply::readyRead()
{
    if (m_networkReply->isOpen() && !take(false))
        refuse(m_decoder->errorText());
}

void NetworkHttpReply::refuse(const QString &reason)
{
    m_problem = reason;
    m_broken = true;
    m_received.clear();
    QNetworkReply *const attempt = m_networkReply;
    settle();
    if (attempt)
        attempt->abort();
    emitError();
}

void NetworkHttpReply::downloadProgress(qint64 bytesReceived, qint64)
{
    if (bytesReceived <= 0 || !m_readTimeoutTimer->isActive())
        return;
    m_readTimeoutTimer->stop();
    disconnect(m_networkReply, &QNetworkReply::downloadProgress, this, nullptr);
}

void NetworkHttpReply::readTimeout()
{
    qDebug() << "Timeout" << m_request.url;
    if (!m_networkReply)
        return;

    const bool retry = isRetriable() && m_retryCount < m_client.maxRetries();
    QNetworkReply *const attempt = m_networkReply;
    settle();
    attempt->abort();
    if (!retry) {
        m_broken = true;
        return emitError();
    }
    ++m_retryCount;
    send(m_request);
    attempt->deleteLater();
}

void NetworkHttpReply::replyError(QNetworkReply::NetworkError)
{
    const int status = statusCode();
    // One more retry than after time-outs: a server that answers is expected back soon.
    const bool retry =
        m_retryCount <= m_client.maxRetries() && status >= 500 && status <= 599 && isRetriable();
    if (!retry) {
        // The connection broke within a good answer's body. Half a document must not look like a
        // whole one, and the status is all that most callers look at.
        m_broken = isSuccessful();
        return emitError();
    }

    qDebug() << "Retrying" << status << QString::number(m_networkReply->operation())
             << m_request.url;
    QNetworkReply *const attempt = m_networkReply;
    settle();
    send(m_request);
    ++m_retryCount;
    attempt->deleteLater();
}

void NetworkHttpReply::replyFinished()
{
    QNetworkReply *const attempt = m_networkReply;
    if (attempt->isOpen() && !take(true))
        return refuse(m_decoder->errorText());
    const QUrl target = attempt->attribute(QNetworkRequest::RedirectionTargetAttribute).toUrl();
    settle();
    if (target.isValid()) {
        const QUrl next = target.isRelative() ? attempt->url().resolved(target) : target;
        qDebug() << "Redirected to" << next;
        if (!send(HttpRequest{next, m_request.operation, m_request.body, m_request.offset, {}}))
            return emitError();
        attempt->deleteLater();
        return;
    }

    if (isSuccessful()) {
        m_timeLimitTimer->stop();
        m_bytes = std::exchange(m_received, {});
        m_client.keepAnswer(m_request, *attempt, m_bytes);
        emit data(m_bytes);
        if (attempt->attribute(QNetworkRequest::SourceIsFromCacheAttribute).toBool())
            qDebug() << "CACHE" << attempt->url();
        else
            qDebug() << statusCode() << attempt->url();
    }
    emitFinished();
}

void NetworkHttpReply::settle()
{
    m_readTimeoutTimer->stop();
    // Only what leads to us: the network reply's own machinery needs its signals to hang up when
    // it is aborted or deleted.
    if (m_networkReply)
        m_networkReply->disconnect(this);
}

void NetworkHttpReply::emitError()
{
    // A handler may run an event loop of its own, so nothing that could end the request a second
    // time is left running.
    settle();
    m_timeLimitTimer->stop();
    const QString message = url().toString() + QLatin1Char(' ') + QString::number(statusCode()) +
                            QLatin1Char(' ') + reasonPhrase();
    qDebug() << "Http:" << message;
    if (!m_request.body.isEmpty())
        qDebug() << "Http:" << m_request.body;
    emit error(message);
    emitFinished();
}

void NetworkHttpReply::emitFinished()
{
    emit finished(*this);
    if (m_networkReply)
        m_networkReply->deleteLater();
    else
        deleteLater();
}
