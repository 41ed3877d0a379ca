#include "Http.h"

#include "LastAnswerCache.h"
#include "NetworkHttpReply.h"
#include "WebAddress.h"

#include <QCoreApplication>
#include <QDebug>
#include <QDir>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QStandardPaths>
#include <QThread>

namespace
{
const QMap<QByteArray, QByteArray> &defaultRequestHeaders()
{
    static const QMap<QByteArray, QByteArray> headers{{"Accept-Charset", "utf-8"},
                                                      {"Connection", "Keep-Alive"}};
    return headers;
}

// At most so much waits in the network layer, per reply.
constexpr qint64 ReadBufferSize = 64LL * 1024; // bytes
QNetworkAccessManager *managerOfMainThread = nullptr;

QNetworkAccessManager *makeManager()
{
    auto *manager = new QNetworkAccessManager;
    if (qApp && QThread::currentThread() == qApp->thread()) {
        managerOfMainThread = manager;
        manager->setCache(new LastAnswerCache);
        // Earlier versions kept answers there, which are not to be believed any more.
        const QString caches = QStandardPaths::writableLocation(QStandardPaths::CacheLocation);
        QDir(caches + QLatin1String("/http")).removeRecursively();
        // Ends the manager's own thread, which must not be caught with a transfer while the process
        // takes its globals down.
        qAddPostRoutine([] { managerOfMainThread->clearConnectionCache(); });
    }
    return manager;
}

/// One for each thread, and never deleted: requests may be under way until its very end.
QNetworkAccessManager &accessManager()
{
    thread_local QNetworkAccessManager *const manager = makeManager();
    return *manager;
}
} // namespace

Http::Http(std::chrono::milliseconds readTimeout, int maxRetries, std::chrono::milliseconds silence)
    : m_requestHeaders(defaultRequestHeaders()), m_readTimeout(readTimeout),
      m_maxRetries(maxRetries), m_silence(silence)
{
}

Http &Http::instance()
{
    static Http http;
    return http;
}

HttpReply *Http::get(const QUrl &url)
{
    return request(url, QNetworkAccessManager::GetOperation, QByteArray(), 0);
}

HttpReply *Http::request(const QUrl &url, int operation, const QByteArray &body, uint offset)
{
    return request(HttpRequest{url, operation, body, offset, {}});
}

HttpReply *Http::request(const HttpRequest &req)
{
    return new NetworkHttpReply(req, *this);
}

QNetworkReply *Http::networkReply(const HttpRequest &req)
{
    // Without any scheme the request fails by itself.
    if (!req.url.scheme().isEmpty() && !isWebAddress(req.url)) {
        qWarning() << "Not an address of the web:" << req.url;
        return nullptr;
    }
    QNetworkRequest request(req.url);
    // The network layer reports no end at all after some broken answers, and none of a line on
    // which nothing moves.
    request.setTransferTimeout(int(m_silence.count()));
    // The network layer would collect the coded bytes, without a bound; see keepAnswer().
    request.setAttribute(QNetworkRequest::CacheSaveControlAttribute, false);
    // On Windows any server could otherwise ask for the user's own login, and get it.
    request.setAttribute(QNetworkRequest::AuthenticationReuseAttribute, QNetworkRequest::Manual);
    request.setAttribute(QNetworkRequest::CookieLoadControlAttribute, QNetworkRequest::Manual);
    request.setAttribute(QNetworkRequest::CookieSaveControlAttribute, QNetworkRequest::Manual);
    const QMap<QByteArray, QByteArray> &headers =
        req.headers.isEmpty() ? m_requestHeaders : req.headers;
    for (auto it = headers.cbegin(); it != headers.cend(); ++it)
        request.setRawHeader(it.key(), it.value());
    if (req.offset != 0)
        request.setRawHeader("Range", QStringLiteral("bytes=%1-").arg(req.offset).toLatin1());

    // What the network layer asks for anyhow; but who asks for it gets the body as it came, and can
    // inflate it within bounds.
    if (!request.hasRawHeader("Accept-Encoding"))
        request.setRawHeader("Accept-Encoding", "gzip, deflate");

    QNetworkReply *const reply = send(req, request);
    if (reply)
        reply->setReadBufferSize(ReadBufferSize);
    return reply;
}

QNetworkReply *Http::send(const HttpRequest &req, const QNetworkRequest &request)
{
    QNetworkAccessManager &manager = accessManager();
    switch (req.operation) {
    case QNetworkAccessManager::HeadOperation:
        return manager.head(request);
    case QNetworkAccessManager::GetOperation:
        return manager.get(request);
    case QNetworkAccessManager::PutOperation:
        return manager.put(request, req.body);
    case QNetworkAccessManager::PostOperation:
        return manager.post(request, req.body);
    case QNetworkAccessManager::DeleteOperation:
        return manager.deleteResource(request);
    default:
        qWarning() << "Unknown operation:" << req.operation;
        return nullptr;
    }
}

void Http::forgetAnswer()
{
    if (QAbstractNetworkCache *const cache = accessManager().cache())
        cache->clear();
}

void Http::keepAnswer(const HttpRequest &req, const QNetworkReply &reply, const QByteArray &body)
{
    auto *const cache = qobject_cast<LastAnswerCache *>(accessManager().cache());
    const int status = reply.attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    // Half an answer, or one to a secret, is not for later.
    const bool isPlain = req.operation == QNetworkAccessManager::GetOperation &&
                         req.headers.isEmpty() && req.offset == 0 && status == 200;
    if (cache && isPlain && !reply.attribute(QNetworkRequest::SourceIsFromCacheAttribute).toBool())
        cache->keep(reply.url(), reply.rawHeaderPairs(), body);
}
