#pragma once

#include "HttpReply.h"
#include "HttpServer.h"

#include <QStringList>

#include <memory>

using Script = QVector<HttpAnswer>;

/// What one reply did, written down as it happened.
struct ReplyWatch {
    QStringList events; ///< the signals in order, and "gone" for the end of the object
    QByteArray data;
    QString message;
    int status = -1;
    QUrl url;
    QByteArray body;
    bool done() const { return events.contains(QStringLiteral("gone")); }
    QString story() const { return events.join(QLatin1Char(' ')); }
};

inline std::shared_ptr<ReplyWatch> watch(HttpReply *reply)
{
    auto w = std::make_shared<ReplyWatch>();
    QObject::connect(reply, &HttpReply::data, [w](const QByteArray &bytes) {
        w->events << QStringLiteral("data");
        w->data = bytes;
    });
    QObject::connect(reply, &HttpReply::error, [w](const QString &message) {
        w->events << QStringLiteral("error");
        w->message = message;
    });
    QObject::connect(reply, &HttpReply::finished, [w](const HttpReply &result) {
        w->events << QStringLiteral("finished");
        w->status = result.statusCode();
        w->url = result.url();
        w->body = result.body();
    });
    QObject::connect(reply, &QObject::destroyed, [w] { w->events << QStringLiteral("gone"); });
    return w;
}

/// Collects the log lines while it lives.
struct LogCapture {
    LogCapture()
    {
        text().clear();
        qInstallMessageHandler([](QtMsgType, const QMessageLogContext &, const QString &line) {
            text() += line + '\n';
        });
    }
    ~LogCapture() { qInstallMessageHandler(nullptr); }
    static QString &text()
    {
        static QString all;
        return all;
    }
};

inline HttpAnswer answer(int status, const QByteArray &body = QByteArray())
{
    HttpAnswer result;
    result.status = status;
    result.body = body;
    return result;
}
