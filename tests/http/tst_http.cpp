#include "Files.h"
#include "Http.h"
#include "ReplyEvents.h"

#include <QDir>
#include <QNetworkReply>
#include <QStandardPaths>

namespace
{
using Milliseconds = std::chrono::milliseconds;
constexpr int Short = 400;  // ms, a read time-out that a test can wait for
constexpr int Long = 30000; // ms, one that no test runs into

HttpAnswer redirect(const QByteArray &target)
{
    return {302, "", {{"Location", target}}};
}

struct Outcome {
    int timeout, operation;
    QVector<HttpAnswer> script;
    int attempts; ///< 0: not ours to decide
    int status;
    QString log = {};
    QUrl url = {}; ///< asked for when there is no script
    int silence = Long;
};

QString folder()
{
    return QStandardPaths::writableLocation(QStandardPaths::CacheLocation) + "/http";
}

/// Changes \a text in what is kept.
void spoil(const char *text, const char *other)
{
    const Files::Tree kept = Files::readTree(folder());
    QCOMPARE(kept.size(), 1);
    QByteArray content = kept.first();
    QVERIFY(content.contains(text));
    Files::write(folder() + '/' + kept.firstKey(), content.replace(text, other));
}

struct Ask {
    HttpAnswer first; ///< what the server has the first time
    bool conditional; ///< whether the second request names it
    std::function<void()> between = [] {};
    HttpRequest how = {}; ///< the first time
};
} // namespace
Q_DECLARE_METATYPE(Outcome)
Q_DECLARE_METATYPE(Ask)

class tst_Http : public QObject
{
    Q_OBJECT
    QScopedPointer<HttpServer> m_server;
    QNetworkAccessManager *m_manager = nullptr;
    const HttpAnswer m_whole{200, "whole", {{"ETag", "\"1\""}, {"Cache-Control", "max-age=86400"}}};

private slots:
    void init()
    {
        m_server.reset(new HttpServer);
        // Nothing that could arrive at the server later.
        const QScopedPointer<QNetworkReply> reply(Http().networkReply({QUrl(), 2, {}, 0, {}}));
        m_manager = reply->manager();
    }

    void defaults()
    {
        const Http http;
        QCOMPARE(http.readTimeout().count(), 10000);
        QCOMPARE(http.maxRetries(), 3);
        QCOMPARE(http.silence().count(), 60000);
    }

    void outcome_data()
    {
        QTest::addColumn<Outcome>("o");
        const HttpAnswer body{200, "0123456789"}, busy{503, "busy"};
        HttpAnswer silent, cut = body, lateBody = body, lateTail = body;
        silent.silent = true;
        cut.cutAfter = 5;
        lateBody.bodyDelayMs = 5 * Short;
        // Half a time-out, because very early bytes are not reported as progress.
        lateTail.bodyDelayMs = Short / 2;
        lateTail.tailDelayMs = 3 * Short;

        const auto row = [](const char *name, const Outcome &o) { QTest::newRow(name) << o; };
        row("GET", {Long, 2, {body}, 1, 200, "200 %1"});
        row("PUT", {Long, 3, {body}, 1, 200});
        row("DELETE", {Long, 5, {body}, 1, 200});
        row("empty", {Short, 2, {{204}}, 1, 204});
        row("not modified", {Long, 2, {{304}}, 1, 304});
        row("404", {Short, 4, {{404}}, 1, 404, "Http: \"sent\""});
        row("503 HEAD", {Long, 1, {busy}, 5, 503, "Retrying 503 \"1\" %1"});
        row("503 POST", {Long, 4, {busy}, 1, 503});
        row("silent POST", {Short, 4, {silent}, 1, 0, "Timeout %1"});
        row("head only", {Short, 2, {lateBody}, 4, 0, "Timeout %1"});
        row("slow tail", {Short, 2, {lateTail}, 1, 200});
        row("503s, silence", {Short, 2, {busy, busy, busy, silent}, 4, 0});
        row("cut off", {Long, 2, {cut}, 1, 0});
        row("silent tail", {Long, 2, {lateTail}, 1, 0, "", {}, 2 * Short});
        row("to a file", {Long, 2, {redirect("file:///etc/hostname")}, 1, 302, "Not an address"});
        row("refused", {Long, 2, {}, 0, 0, "", HttpServer().url("/")});
        row("empty URL", {Long, 2, {}, 0, 0, "Empty URL"});
        row("unknown operation", {Long, 9, {}, 0, 0, "Unknown operation: 9", QUrl("http://h/")});
    }

    void outcome()
    {
        QFETCH(Outcome, o);
        m_server->answer("/x", o.script);
        LogCapture capture;
        Http http(Milliseconds(o.timeout), 3, Milliseconds(o.silence));
        const QUrl url = o.script.isEmpty() ? o.url : m_server->url("//x?a=1&b");
        const QByteArray sent = o.operation == 3 || o.operation == 4 ? "sent" : "";
        const QString reason = o.status ? QString(" %1 Status %1").arg(o.status) : " 0 ";
        QStringList expected = failure(url, o.status, url.toString() + reason);
        if (o.status == 304)
            expected.removeFirst();
        if (o.status / 100 == 2)
            expected = success(url, o.status, o.script.last().body);

        HttpReply *const reply = http.request(url, o.operation, sent, 0);
        const auto events = watch(reply);
        if (o.timeout == Short) { // as a modal message box in a handler would
            connect(reply, &HttpReply::data, [] { QTest::qWait(3 * Short / 2); });
            connect(reply, &HttpReply::error, [] { QTest::qWait(3 * Short / 2); });
        }
        QCOMPARE(*events, QStringList());
        QCOMPARE(end(events), expected);
        QVERIFY2(capture.text.contains(o.log.replace("%1", "QUrl(\"" + url.toString() + "\")")),
                 qPrintable(capture.text));
        const auto requests = m_server->requests("/x");
        QVERIFY(o.attempts == 0 || requests.size() == o.attempts);
        const QByteArray methods[] = {"", "HEAD", "GET", "PUT", "POST", "DELETE"};
        QVERIFY(o.script.isEmpty() || requests.first().method == methods[o.operation]);
        QVERIFY(o.script.isEmpty() || requests.first().body == sent);
        // An attempt that was given up must not hold on to one of the few connections to its
        // server.
        if (o.timeout == Short && o.status == 0)
            QTRY_COMPARE_WITH_TIMEOUT(m_server->connections(), 0, 60000);
    }

    void redirects()
    {
        const QUrl first = m_server->url("/d/first"), last = m_server->url("//e/last");
        m_server->answer("/d/first", {redirect("next?a=1")});
        m_server->answer("/d/next", {redirect(last.toEncoded())});
        // More hops than any limit that could be lurking below.
        QVector<HttpAnswer> script(60, redirect("last"));
        m_server->answer("/e/last", script << HttpAnswer{200, "there"});
        LogCapture capture;
        Http http{Milliseconds(Short)};
        const auto events = watch(http.request({first, 4, "sent", 4000000000, {{"X-Own", "1"}}}));
        QCOMPARE(end(events), success(last, 200, "there"));
        QVERIFY(capture.text.contains("Redirected to QUrl(\"" + last.toString() + "\")"));

        // Headers of one's own go out once, and in place of the standard ones.
        const auto requests = m_server->requests();
        QCOMPARE(requests.size(), 63);
        QMap<QByteArray, QByteArray> wanted{
            {"connection", "Keep-Alive"}, {"range", "bytes=4000000000-"}, {"x-own", "1"}};
        for (const HttpRecord &request : requests.mid(0, 2)) {
            auto headers = request.headers;
            for (const char *platform : {"host", "user-agent", "accept-encoding", "accept-language",
                                         "content-length", "content-type"})
                headers.remove(platform);
            QCOMPARE(headers, wanted);
            QCOMPARE(request.method + ' ' + request.body, "POST sent");
            wanted.remove("x-own");
            wanted["accept-charset"] = "utf-8";
        }
        QCOMPARE(requests[1].target, "/d/next?a=1");

        // Retries begin at the first address again.
        HttpAnswer silent;
        silent.silent = true;
        m_server->answer("/e/last", {silent, {500}, {200}});
        QCOMPARE(end(watch(http.get(first))), success(last, 200, ""));
        QCOMPARE(m_server->count("/d/first"), 1 + 3);
        QCOMPARE(m_server->count("/e/last"), 61 + 3);
        QVERIFY(!m_server->requests().last().headers.contains("range"));
    }

    void cache_data()
    {
        QTest::addColumn<Ask>("ask");
        const auto row = [](const char *name, const Ask &ask) { QTest::newRow(name) << ask; };
        HttpAnswer cut = m_whole, unkept = m_whole;
        cut.cutAfter = 3;
        unkept.headers.last().second = "no-store";
        row("unchanged", {m_whole, true});
        row("cut off", {cut, false});
        row("not to be kept", {unkept, false});
        row("spoilt body", {m_whole, false, [] { spoil("whole", "WHOLE"); }});
        row("spoilt head", {m_whole, false, [] { spoil("86400", "99999"); }});
        row("no folder", {m_whole, false, [] {
                              QDir(folder()).removeRecursively();
                              Files::write(folder(), "in the way");
                          }});
        HttpRequest part, secret;
        part.offset = 3;
        row("part", {m_whole, false, [] {}, part});
        secret.headers["Authorization"] = "secret";
        row("secret", {m_whole, false, [] {}, secret});
    }

    /// An address is asked for twice.
    void cache()
    {
        QFETCH(Ask, ask);
        QDir(folder()).removeRecursively();
        QFile::remove(folder());
        const QUrl url = m_server->url("/x");
        Http http;
        m_server->answer("/x", {ask.first});
        ask.how.url = url;
        end(watch(http.request(ask.how)));
        ask.between();
        m_server->answer("/x", {m_whole});
        LogCapture capture;
        QCOMPARE(end(watch(http.get(url))), success(url, 200, "whole"));
        const HttpRecord request = m_server->requests("/x").constLast();
        QCOMPARE(request.headers.contains("if-none-match"), ask.conditional);
        QCOMPARE(capture.text.contains("CACHE"), ask.conditional);
    }

    void cleanup()
    {
        // Whatever way a request takes, nothing of it stays behind.
        QTRY_COMPARE(m_manager->findChildren<QNetworkReply *>().size(), 0);
    }

    void cleanupTestCase()
    {
        // The program ends with these under way: a leak or a crash shows in its exit code.
        Http::instance().get(m_server->url("/x"));
        QTest::qWait(50);
        Http::instance().get(m_server->url("/x"));
        Http::instance().request(m_server->url("/x"), 9, "", 0);
    }
};

QTEST_GUILESS_MAIN(tst_Http)
#include "tst_http.moc"
