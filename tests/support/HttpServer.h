#pragma once

#include <QByteArray>
#include <QMap>
#include <QObject>
#include <QPair>
#include <QTcpServer>
#include <QTcpSocket>
#include <QUrl>
#include <QVector>

/// One answer of the scripted server; by default a well-behaved empty 200.
struct HttpAnswer {
    int status = 200;
    QByteArray body = {};
    QVector<QPair<QByteArray, QByteArray>> headers = {}; ///< with an "ETag", a 304 to who has it
    int bodyDelayMs = 0;                                 ///< between head and body
    int cutAfter = -1;        ///< announce the whole body, send so many bytes of it, then close
    bool silent = false;      ///< never answer, keep the connection
    int tailDelayMs = 0;      ///< between the first half of the body and the rest
    int dripMs = 0;           ///< this long between its bytes, without which all of them go at once
    QByteArray repeated = {}; ///< if any, goes out behind the body until the client hangs up
    QByteArray raw = {};      ///< if any, exactly these bytes in place of all that, then close
};

/// One request as it came over the wire.
struct HttpRecord {
    QByteArray method;
    QByteArray target;                    ///< the raw request target, query included
    QMap<QByteArray, QByteArray> headers; ///< names in lower case
    QByteArray body;
};

/// An HTTP/1.1 server on 127.0.0.1 and a free port that answers from scripts.
///
/// Runs on the event loop of the thread that made it and never blocks it, so the code under test
/// may share that thread. Connections are kept alive. A client that finds a kept-alive connection
/// closed or reset without an answer may ask once more of its own accord; count with care then.
class HttpServer : public QObject
{
    Q_OBJECT
public:
    /// Listens at once.
    explicit HttpServer(QObject *parent = nullptr);

    /// "127.0.0.1:PORT".
    QString authority() const { return QString("127.0.0.1:%1").arg(m_server.serverPort()); }
    QUrl url(const QString &target) const { return QUrl("http://" + authority() + target); }

    /// Replaces the script of \a path: its answers go out in order, the last one repeats. Paths are
    /// compared without query and with runs of slashes collapsed to one, because a client may put
    /// one slash on the wire where the URL has two. A path without a script gets a 404.
    void answer(const QString &path, const QVector<HttpAnswer> &script);

    /// The requests so far, in order of arrival; those of \a path only when one is given.
    QVector<HttpRecord> requests(const QString &path = QString()) const;
    int count(const QString &path) const { return requests(path).size(); }
    /// Connections that are open right now.
    int connections() const { return m_server.findChildren<QTcpSocket *>().size(); }

private:
    void accept();
    HttpAnswer take(const HttpRecord &record);

    QTcpServer m_server;
    QMap<QString, QVector<HttpAnswer>> m_scripts;
    QVector<HttpRecord> m_requests;
};

Q_DECLARE_METATYPE(HttpAnswer)
