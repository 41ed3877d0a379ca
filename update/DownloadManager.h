#pragma once

#include "ContentDecoder.h"
#include "DownloadLimit.h"
#include "TransferSpeed.h"
#include "TransferWatch.h"

#include <QElapsedTimer>
#include <QFile>
#include <QMutex>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QObject>
#include <QQueue>
#include <QTimer>
#include <QUrl>

#include <chrono>
#include <memory>
#include <optional>

/// A queue of downloads: one GET at a time, each body written to its file as it arrives.
///
/// Belongs to the thread that makes it and lives from that thread's event loop; nothing blocks.
/// There is no retry, and redirects are reported but not followed: who asked decides whether to ask
/// again. A download may take as long as it likes, but ends when its line falls silent or drips,
/// and when more comes than may or fits. It has no user: it keeps no cookies and logs in nowhere.
class DownloadManager : public QObject
{
    Q_OBJECT
public:
    /// A transfer fails when it brings too little within \a window, see TransferWatch.
    /// Deliberately bounded: whoever sends a byte now and then would keep it open for ever.
    explicit DownloadManager(QObject *parent = nullptr,
                             std::chrono::milliseconds window = std::chrono::seconds(60));
    ~DownloadManager() override;

    /// Queues \a url, to be saved as \a savePath (replacing a file of that name), and starts it
    /// when nothing is running. With an empty path the name comes from the URL. Answered by
    /// finished() when the queue has run empty, after an error() for each download that failed. It
    /// fails when it brings more than \a size bytes, without one more than 4 GiB, or more than the
    /// volume has room for; nothing is left then.
    void append(const QUrl &url, QString savePath, std::optional<qint64> size = std::nullopt);

signals:
    /// The queue has run empty; \a strFileName is the save path last asked for.
    void finished(QString strFileName);
    /// A file can't be opened or written, a transfer failed or was refused, or the address is none
    /// of the web; in the system's own words where it has some.
    void error(QString errorString);
    /// Progress of the running download, as often as data comes in while its total size is known.
    /// Bytes, or a common fraction of them where bytes would not fit.
    void currentDownProgress(int &currentSize, int &totalSize);
    /// Mean speed of the running download so far; sent with the progress.
    void currentSpeed(double &speed, QString strUnit);

private slots:
    void stop();
    void startNextDownload();
    void downloadProgress(qlonglong bytesReceived, qlonglong bytesTotal);
    void downloadFinished();
    void headArrived();
    void downloadReadyRead();
    void errorOccurred(QNetworkReply::NetworkError error);

private:
    struct Item {
        QUrl url;
        QString savePath;
        std::optional<qint64> size; ///< bytes
    };

    QString fileNameForUrl(const QUrl &url) const;
    void logRedirect() const;
    bool openOutput(const Item &item);
    void send(const QUrl &url);
    QString save(const QByteArray &bytes);
    void refuse(const QString &reason);
    void endDownload();
    void drop(const QString &reason);

    QNetworkAccessManager m_manager;
    QQueue<Item> m_queue;
    QNetworkReply *m_reply = nullptr; ///< the running download, null while idle
    QFile m_output;
    DownloadLimit m_limit;
    std::unique_ptr<ContentDecoder> m_decoder; ///< null before the head, and when it redirects
    qint64 m_codedBytes = 0;                   ///< that came over the wire
    QString m_refusal;         ///< why the running download was ended; empty as long as it was not
    bool m_isAllThere = false; ///< nothing more comes, but some of it may be waiting to be saved
    QTimer m_nextPart;
    TransferWatch m_watch;
    QElapsedTimer m_timer;
    int m_succeeded = 0;
    int m_appended = 0;
    int m_receivedBytes = 0; ///< low 32 bits
    int m_totalBytes = 0;    ///< low 32 bits
    TransferSpeed m_speed;
    QString m_savePath; ///< of the download last taken off the queue
    QMutex m_mutex;     ///< guards the queue
};
