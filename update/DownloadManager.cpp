#include "DownloadManager.h"

#include "WebAddress.h"

#include <QCoreApplication>
#include <QDebug>
#include <QFileInfo>
#include <QMetaEnum>
#include <QStorageInfo>

#include <cstdio>
#include <limits>

namespace
{
constexpr qint64 ReadBufferSize = 1 << 20; // bytes
/// Bytes that are decoded in one turn of the event loop; they may become a thousand times as many.
constexpr qint64 CodedPart = 8192;

bool isRedirect(int status)
{
    switch (status) {
    case 301:
    case 302:
    case 303:
    case 305:
    case 307:
    case 308:
        return true;
    default:
        return false;
    }
}

/// The system takes what fits and says why no more does only when it is asked again.
bool writeAll(QFile &file, const char *bytes, int size)
{
    qint64 written = 0;
    while (written < size) {
        const qint64 length = file.write(bytes + written, size - written);
        if (length <= 0)
            return false;
        written += length;
    }
    return true;
}

int httpStatus(const QNetworkReply *reply)
{
    return reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
}

bool isCoded(const QNetworkReply *reply)
{
    return reply->hasRawHeader("Content-Encoding");
}

/// The limit of a download to \a path, of \a size bytes if that is known.
DownloadLimit limitFor(const QString &path, std::optional<qint64> size)
{
    const QFileInfo file(path);
    const QStorageInfo volume(file.absolutePath());
    return DownloadLimit::of(size, volume.bytesAvailable(), file.size());
}

/// Deliberately not the network layer's defaults. The package is asked for as it is, since what
/// that layer decodes by itself has no bound. And without asking anybody it would log in with the
/// user's Windows account wherever a server wants it to.
QNetworkRequest requestFor(const QUrl &url)
{
    QNetworkRequest request(url);
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute,
                         QNetworkRequest::ManualRedirectPolicy);
    for (const auto attribute :
         {QNetworkRequest::AuthenticationReuseAttribute,
          QNetworkRequest::CookieLoadControlAttribute, QNetworkRequest::CookieSaveControlAttribute})
        request.setAttribute(attribute, QNetworkRequest::Manual);
    request.setRawHeader("Accept-Encoding", "identity");
    return request;
}
} // namespace

DownloadManager::DownloadManager(QObject *parent, std::chrono::milliseconds window)
    : QObject(parent), m_watch(window)
{
    m_nextPart.setSingleShot(true);
    connect(&m_nextPart, &QTimer::timeout, this, &DownloadManager::downloadReadyRead);
    connect(&m_watch, &TransferWatch::stalled, this,
            [this] { refuse(QStringLiteral("transfer is too slow")); });
    // This object may live until process exit, and the network layer's own thread must not be
    // caught there with a transfer.
    connect(qApp, &QCoreApplication::aboutToQuit, this, &DownloadManager::stop);
}

DownloadManager::~DownloadManager()
{
    // The network access manager deletes the running reply, whose last signals would find this
    // object half gone.
    if (m_reply)
        m_reply->disconnect(this);
}

void DownloadManager::stop()
{
    if (m_reply) {
        m_reply->disconnect(this);
        delete m_reply;
        m_reply = nullptr;
        m_watch.stop();
        m_nextPart.stop();
        m_output.close();
    }
    m_manager.clearConnectionCache(); // which ends its thread
}

void DownloadManager::append(const QUrl &url, QString savePath, std::optional<qint64> size)
{
    {
        QMutexLocker lock(&m_mutex);
        qDebug() << "DownloadManager append " << url << m_succeeded << m_appended;
        m_queue.enqueue({url, savePath, size});
    }
    // There is one output file, so a request that comes during a download waits for its end.
    if (!m_reply)
        startNextDownload();
    ++m_appended;
}

void DownloadManager::startNextDownload()
{
    Item item;
    {
        QMutexLocker lock(&m_mutex);
        if (m_queue.isEmpty()) {
            lock.unlock();
            qDebug() << "files downloaded successfully\n" << m_succeeded << m_appended;
            emit finished(m_savePath);
            return;
        }
        item = m_queue.dequeue();
    }
    m_savePath = item.savePath;
    if (!openOutput(item))
        return startNextDownload();
    QString problem;
    if (!isWebAddress(item.url))
        problem = QStringLiteral("Not an address of the web: ") + item.url.toDisplayString();
    else if (item.size)
        problem = m_limit.problem(*item.size);
    if (problem.isEmpty())
        return send(item.url);
    drop(problem);
    startNextDownload();
}

bool DownloadManager::openOutput(const Item &item)
{
    const QString fileName = item.savePath.isEmpty() ? fileNameForUrl(item.url) : item.savePath;
    qDebug() << "save file name " << fileName;
    m_output.setFileName(fileName);
    m_limit = limitFor(fileName, item.size); // while the file that goes is still there
    // The network layer's buffer is enough, and so each write tells at once whether it went well.
    if (m_output.open(QIODevice::WriteOnly | QIODevice::Unbuffered))
        return true;

    const QString reason = m_output.errorString();
    std::fprintf(stderr, "Problem opening save file '%s' for download '%s': %s\n",
                 fileName.toLocal8Bit().constData(), item.url.toEncoded().constData(),
                 reason.toLocal8Bit().constData());
    emit error(reason);
    qDebug() << "save file name Problem!!";
    return false;
}

void DownloadManager::send(const QUrl &url)
{
    m_decoder.reset();
    m_codedBytes = 0;
    m_refusal.clear();
    m_isAllThere = false;
    m_reply = m_manager.get(requestFor(url));
    // Without a bound the network layer takes in faster than the disk takes out, up to the whole
    // package.
    m_reply->setReadBufferSize(ReadBufferSize);
    connect(m_reply, &QNetworkReply::downloadProgress, this, &DownloadManager::downloadProgress);
    connect(m_reply, &QNetworkReply::finished, this, &DownloadManager::downloadFinished);
    connect(m_reply, &QNetworkReply::metaDataChanged, this, &DownloadManager::headArrived);
    connect(m_reply, &QNetworkReply::readyRead, this, &DownloadManager::downloadReadyRead);
    connect(m_reply, &QNetworkReply::errorOccurred, this, &DownloadManager::errorOccurred);
    qDebug() << "Downloading..." << url.toEncoded().constData();
    m_watch.start();
    m_timer.restart();
}

void DownloadManager::headArrived()
{
    if (m_decoder || isRedirect(httpStatus(m_reply)))
        return;
    m_decoder = std::make_unique<ContentDecoder>(
        m_reply->rawHeader("Content-Encoding"), m_limit.size,
        [this](const char *bytes, int size) { return writeAll(m_output, bytes, size); });
    // How long a coded body is tells little of the package.
    const QVariant length = m_reply->header(QNetworkRequest::ContentLengthHeader);
    if (length.isValid() && !isCoded(m_reply))
        refuse(m_limit.problem(length.toLongLong()));
}

void DownloadManager::downloadReadyRead()
{
    if (!m_reply->isOpen() || !m_refusal.isEmpty())
        return;
    const QByteArray bytes = m_reply->read(isCoded(m_reply) ? CodedPart : ReadBufferSize);
    m_watch.add(bytes.size());
    const QString problem = save(bytes);
    if (!problem.isEmpty())
        refuse(problem);
    else if (m_reply->bytesAvailable() > 0)
        m_nextPart.start(0);
    else if (m_isAllThere)
        endDownload();
}

/// Returns why that failed; empty if it went well.
QString DownloadManager::save(const QByteArray &bytes)
{
    m_codedBytes += bytes.size();
    if (m_codedBytes > m_limit.codedSize())
        return m_limit.problem(m_codedBytes);
    if (!m_decoder || m_decoder->add(bytes))
        return {};
    return m_output.error() == QFileDevice::NoError ? m_decoder->errorText()
                                                    : m_output.errorString();
}

/// Ends the running download if there is a reason: the rest would only come to be thrown away.
void DownloadManager::refuse(const QString &reason)
{
    if (reason.isEmpty() || !m_refusal.isEmpty())
        return;
    m_refusal = reason;
    if (m_isAllThere)
        endDownload();
    else
        m_reply->abort();
}

void DownloadManager::downloadProgress(qlonglong bytesReceived, qlonglong bytesTotal)
{
    const qint64 elapsed = m_timer.elapsed();
    qDebug() << "downloadProgress downloadTimer.elapsed():" << elapsed;
    m_speed = TransferSpeed::of(bytesReceived, elapsed);
    qDebug() << "download speed:" << m_speed.value << m_speed.unit;
    if (bytesTotal != 0)
        qDebug() << "download present:" << bytesReceived * 100 / bytesTotal << "%";
    m_receivedBytes = int(quint32(bytesReceived));
    m_totalBytes = int(quint32(bytesTotal));

    if (bytesTotal <= 0)
        return;
    // A body in chunks need not keep to the length that its head announced.
    bytesReceived = qMin(bytesReceived, bytesTotal);
    double speed = m_speed.value;
    emit currentSpeed(speed, m_speed.unit);
    // The listeners count in 32 bits; beyond that only the ratio matters to them.
    while (bytesTotal > std::numeric_limits<int>::max()) {
        bytesTotal /= 2;
        bytesReceived /= 2;
    }
    int current = int(bytesReceived);
    int total = int(bytesTotal);
    emit currentDownProgress(current, total);
}

void DownloadManager::downloadFinished()
{
    qDebug() << "downloadFinished";
    m_watch.stop();
    m_isAllThere = true;
    if (m_reply->isOpen() && m_refusal.isEmpty())
        downloadReadyRead(); // what came with the end
    else
        endDownload();
}

void DownloadManager::endDownload()
{
    QNetworkReply *reply = m_reply;
    m_nextPart.stop();
    m_output.close();
    if (!m_refusal.isEmpty()) {
        drop(m_refusal);
    } else if (reply->error() != QNetworkReply::NoError) {
        drop(reply->errorString());
    } else if (isRedirect(httpStatus(reply))) {
        logRedirect();
        m_output.remove();
    } else if (m_decoder && !m_decoder->finish()) {
        drop(m_decoder->errorText());
    } else {
        qDebug() << "download success";
        ++m_succeeded;
    }
    m_reply = nullptr;
    reply->deleteLater();
    startNextDownload();
}

void DownloadManager::drop(const QString &reason)
{
    qDebug() << "download failed" << reason;
    emit error(reason);
    m_output.remove();
}

void DownloadManager::logRedirect() const
{
    const QUrl requested = m_reply->request().url();
    qDebug() << "Request: " << requested.toDisplayString()
             << " was redirected with code: " << httpStatus(m_reply) << '\n';
    const QVariant target = m_reply->attribute(QNetworkRequest::RedirectionTargetAttribute);
    if (!target.isValid())
        return;
    QUrl redirected = target.toUrl();
    if (redirected.isRelative())
        redirected = requested.resolved(redirected);
    qDebug() << "Redirected to: " << redirected.toDisplayString() << '\n';
}

void DownloadManager::errorOccurred(QNetworkReply::NetworkError error)
{
    qDebug() << "downloaderror"
             << QMetaEnum::fromType<QNetworkReply::NetworkError>().valueToKey(error);
}

QString DownloadManager::fileNameForUrl(const QUrl &url) const
{
    QString name = QFileInfo(url.path(QUrl::FullyDecoded)).fileName();
    if (name.isEmpty())
        name = QStringLiteral("download");
    if (!QFileInfo::exists(name))
        return name;
    int number = 0;
    while (QFileInfo::exists(name + QLatin1Char('.') + QString::number(number)))
        ++number;
    return name + QLatin1Char('.') + QString::number(number);
}
