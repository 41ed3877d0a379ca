#pragma once

#include "HttpReply.h"
#include "HttpServer.h"

#include <QtTest>

#include <memory>

/// What a reply did, line by line: its signals with what they brought, and "gone" for its end.
using ReplyEvents = std::shared_ptr<QStringList>;

inline QString finish(const QUrl &url, int status, const QByteArray &body)
{
    return "finished " + url.toString() + ' ' + QString::number(status) + ' ' + body;
}

inline QStringList success(const QUrl &url, int status, const QByteArray &body)
{
    return {"data " + body, finish(url, status, body), "gone"};
}

inline QStringList failure(const QUrl &url, int status, const QString &message)
{
    return {"error " + message, finish(url, status, ""), "gone"};
}

/// Begins to write down what \a reply does.
inline ReplyEvents watch(HttpReply *reply)
{
    auto all = std::make_shared<QStringList>();
    QObject::connect(reply, &HttpReply::data,
                     [all](const auto &bytes) { *all << "data " + bytes; });
    QObject::connect(reply, &HttpReply::error,
                     [all](const auto &text) { *all << "error " + text; });
    QObject::connect(reply, &HttpReply::finished, reply, [all](const HttpReply &result) {
        *all << finish(result.url(), result.statusCode(), result.body());
    });
    QObject::connect(reply, &QObject::destroyed, [all] { *all << "gone"; });
    return all;
}

/// Waits for the end of the reply and returns the whole story.
inline QStringList end(const ReplyEvents &events)
{
    return QTest::qWaitFor([&] { return events->contains("gone"); }, 60000) ? *events
                                                                            : QStringList();
}

/// Collects the log lines while it lives.
struct LogCapture {
    LogCapture()
    {
        text.clear();
        qInstallMessageHandler([](QtMsgType, const QMessageLogContext &, const QString &line) {
            text += line + '\n';
        });
    }
    ~LogCapture() { qInstallMessageHandler(nullptr); }
    static inline QString text;
};
