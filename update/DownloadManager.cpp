#include "DownloadManager.h"

#include "WebAddress.h"

#include <QCoreApplication>
#include <QDebug>
#include <QFileInfo>
#include <QMetaEnum>

#include <cstdio>
#include <limits>

namespace
{
constexpr qint64 ReadBufferSize = 1 << 20; // bytes

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
bool writeAll(QFile &file, const QByteArray &bytes)
{
    qint64 written = 0;
    while (written < bytes.size()) {
        const qint64 length = file.write(bytes.constData() + written, bytes.size() - written);
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
} // namespace

DownloadManager::DownloadManager(QObject *parent, std::chrono::milliseconds silence)
    : QObject(parent), m_silence(silence)
{
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
        m_output.close();
    }
    m_manager.clearConnectionCache(); // which ends its thread
}

void DownloadManager::append(const QUrl &url, QString savePath)
{
    {
        QMutexLocker lock(&m_mutex);
        qDebug() << "DownloadManager append " << url << m_succeeded << m_appended;
        m_queue.enqueue({url, savePath});
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
    if (isWebAddress(item.url))
        return send(item.url);
    drop(QStringLiteral("Not an address of the web: ") + item.url.toDisplayString());
    startNextDownload();
}

bool DownloadManager::openOutput(const Item &item)
{
    const QString fileName = item.savePath.isEmpty() ? fileNameForUrl(item.url) : item.savePath;
    qDebug() << "save file name " << fileName;
    m_output.setFileName(fileName);
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
    QNetworkRequest request(url);
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute,
                         QNetworkRequest::ManualRedirectPolicy);
    request.setTransferTimeout(int(m_silence.count()));
    m_writeError.clear();
    m_reply = m_manager.get(request);
    // Without a bound the network layer takes in faster than the disk takes out, up to the whole
    // package.
    m_reply->setReadBufferSize(ReadBufferSize);
    connect(m_reply, &QNetworkReply::downloadProgress, this, &DownloadManager::downloadProgress);
    connect(m_reply, &QNetworkReply::finished, this, &DownloadManager::downloadFinished);
    connect(m_reply, &QNetworkReply::readyRead, this, &DownloadManager::downloadReadyRead);
    connect(m_reply, &QNetworkReply::errorOccurred, this, &DownloadManager::errorOccurred);
    qDebug() << "Downloading..." << url.toEncoded().constData();
    m_timer.restart();
}

void DownloadManager::downloadReadyRead()
{
    if (!m_writeError.isEmpty() || !m_reply->isOpen())
        return;
    if (writeAll(m_output, m_reply->readAll()))
        return;
    // The rest would only come to be thrown away.
    m_writeError = m_output.errorString();
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
    QNetworkReply *reply = m_reply;
    downloadReadyRead(); // what came with the end
    m_output.close();
    if (!m_writeError.isEmpty()) {
        drop(m_writeError);
    } else if (reply->error() != QNetworkReply::NoError) {
        drop(reply->errorString());
    } else if (isRedirect(httpStatus(reply))) {
        logRedirect();
        m_output.remove();
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
