#include "Http.h"
#include "ReplyWatch.h"

#include <QEventLoop>
#include <QTest>
#include <QTimer>

namespace
{
constexpr int Patience = 60000; // ms, for things that are bound to come
constexpr int Short = 400;      // ms, a read time-out that a test can wait for
constexpr int Long = 30000;     // ms, one that no test runs into

using Headers = QMap<QByteArray, QByteArray>;

HttpAnswer redirect(const QByteArray &target)
{
    HttpAnswer result = answer(302);
    result.headers.append({"Location", target});
    return result;
}

HttpAnswer silent()
{
    HttpAnswer result;
    result.silent = true;
    return result;
}

std::unique_ptr<Http> client(int readTimeout)
{
    Http::setDefaultReadTimeout(readTimeout);
    return std::make_unique<Http>();
}

/// As a modal message box in a handler would.
void runEventLoop()
{
    QEventLoop loop;
    QTimer::singleShot(3 * Short / 2, &loop, &QEventLoop::quit);
    loop.exec();
}

struct Outcome {
    int timeout;
    int operation;
    Script script;
    int attempts; ///< 0: not ours to decide
    QString story;
    QString result; ///< status and reason
    QString log = {};
};
} // namespace
Q_DECLARE_METATYPE(Outcome)

class tst_Http : public QObject
{
    Q_OBJECT

private slots:
    void outcome_data();
    void outcome();
    void sendsHeaders();
    void followsRedirects();
    void retriesFirstAddressAfterRedirect();
    void failsWithoutServer_data();
    void failsWithoutServer();
    void cleanupTestCase();

private:
    HttpServer m_server;
};

void tst_Http::outcome_data()
{
    QTest::addColumn<Outcome>("outcome");
    const QString good = "data finished gone", bad = "error finished gone";
    const QString ok = "200 OK", unavailable = "503 Service Unavailable";
    const HttpAnswer body = answer(200, "0123456789"), busy = answer(503, "busy");
    HttpAnswer cut = body, reset = body, bare = body, lateBody = body, lateTail = body;
    cut.cutAfter = 5;
    reset.reset = true;
    bare.noLength = true;
    lateBody.bodyDelayMs = 5 * Short;
    // Half a time-out, because very early bytes are not reported as progress.
    lateTail.bodyDelayMs = Short / 2;
    lateTail.tailDelayMs = 3 * Short;

    const auto row = [](const char *name, const Outcome &o) { QTest::newRow(name) << o; };
    row("body", {Long, 2, {body}, 1, good, ok, "200 %1"});
    row("large body", {Long, 2, {answer(200, QByteArray(3000000, 'x'))}, 1, good, ok});
    row("no length", {Long, 2, {bare}, 1, good, ok});
    row("PUT", {Long, 3, {body}, 1, good, ok});
    row("DELETE", {Long, 5, {body}, 1, good, ok});
    row("empty", {Short, 2, {answer(204)}, 1, good, "204 Status 204"});
    row("not modified", {Long, 2, {answer(304)}, 1, "finished gone", "304 Status 304"});
    row("404", {Short, 4, {answer(404)}, 1, bad, "404 Not Found", "Http: \"sent\""});
    row("503 once", {Long, 2, {busy, body}, 2, good, ok, "Retrying 503 \"2\" %1"});
    row("503 four times", {Long, 2, {busy, busy, busy, busy, body}, 5, good, ok});
    row("503 GET", {Long, 2, {busy}, 5, bad, unavailable});
    row("503 HEAD", {Long, 1, {busy}, 5, bad, unavailable, "Retrying 503 \"1\" %1"});
    row("503 POST", {Long, 4, {busy}, 1, bad, unavailable});
    row("silent GET", {Short, 2, {silent()}, 4, bad, "0 ", "Timeout %1"});
    row("silent POST", {Short, 4, {silent()}, 1, bad, "0 ", "Timeout %1"});
    row("silent once", {Short, 2, {silent(), body}, 2, good, ok});
    row("head only", {Short, 2, {lateBody}, 4, bad, "0 ", "Timeout %1"});
    row("slow tail", {Short, 2, {lateTail}, 1, good, ok});
    row("503s, silence", {Short, 2, {busy, busy, busy, silent()}, 4, bad, "0 "});
    row("silence, 503s", {Short, 2, {silent(), silent(), silent(), busy}, 5, bad, unavailable});
    row("cut off", {Long, 2, {cut}, 1, bad, "0 "});
    row("reset", {Long, 2, {reset}, 0, bad, "0 "});
}

void tst_Http::outcome()
{
    QFETCH(Outcome, outcome);
    m_server.clearRequests();
    m_server.answer("/x", outcome.script);
    LogCapture capture;
    const auto http = client(outcome.timeout);
    const QUrl url = m_server.url("//x?a=1&b");
    const QByteArray sent = outcome.operation == 3 || outcome.operation == 4 ? "sent" : "";

    HttpReply *const reply = http->request(url, outcome.operation, sent, 0);
    const auto seen = watch(reply);
    if (outcome.timeout == Short) {
        connect(reply, &HttpReply::data, &runEventLoop);
        connect(reply, &HttpReply::error, &runEventLoop);
    }
    QCOMPARE(seen->story(), QString());
    QTRY_VERIFY_WITH_TIMEOUT(seen->done(), Patience);
    QCOMPARE(seen->story(), outcome.story);
    QCOMPARE(seen->status, outcome.result.section(' ', 0, 0).toInt());
    const bool good = outcome.story.startsWith("data");
    QCOMPARE(seen->data, good ? outcome.script.last().body : QByteArray());
    QCOMPARE(seen->body, seen->data);
    QCOMPARE(seen->url.toString(), url.toString());
    if (outcome.story.startsWith("error"))
        QCOMPARE(seen->message, url.toString() + ' ' + outcome.result);
    const QString line = outcome.log.arg("QUrl(\"" + url.toString() + "\")");
    QVERIFY2(capture.text().contains(line), qPrintable(capture.text()));

    const auto requests = m_server.requests("/x");
    QVERIFY(outcome.attempts == 0 || requests.size() == outcome.attempts);
    const QByteArray methods[] = {"", "HEAD", "GET", "PUT", "POST", "DELETE"};
    QCOMPARE(requests.first().method, methods[outcome.operation]);
    QCOMPARE(requests.first().body, sent);
    // An attempt that was given up must not hold on to one of the few connections to its server.
    if (outcome.timeout == Short && seen->status == 0)
        QTRY_COMPARE_WITH_TIMEOUT(m_server.connections(), 0, Patience);
}

void tst_Http::sendsHeaders()
{
    const Headers defaults{{"accept-charset", "utf-8"}, {"connection", "Keep-Alive"}};
    Headers range = defaults, own{{"x-own", "1"}, {"connection", "Keep-Alive"}};
    range["range"] = "bytes=4000000000-";
    const QUrl url = m_server.url("/h");
    const QVector<QPair<HttpRequest, Headers>> cases{
        {{url, 2, "", 0, {}}, defaults},
        {{url, 2, "", 4000000000, {}}, range},
        {{url, 2, "", 0, {{"X-Own", "1"}}}, own},
        {{url, 2, "", 0, {}}, defaults}, // not touched by the one before
    };
    for (const auto &c : cases) {
        const auto seen = watch(Http::instance().request(c.first));
        QTRY_VERIFY_WITH_TIMEOUT(seen->done(), Patience);
        Headers got = m_server.requests("/h").last().headers;
        for (const char *platform : {"host", "user-agent", "accept-encoding", "accept-language"})
            got.remove(platform);
        QCOMPARE(got, c.second);
    }
}

void tst_Http::followsRedirects()
{
    m_server.clearRequests();
    const QUrl last = m_server.url("//e/last");
    m_server.answer("/d/start", {redirect("next?a=1")});
    m_server.answer("/d/next", {redirect("/third")});
    m_server.answer("/third", {redirect(last.toEncoded())});
    // More hops than any limit that could be lurking below.
    m_server.answer("/e/last", Script(60, redirect("last")) << answer(200, "there"));
    LogCapture capture;

    const HttpRequest request{m_server.url("/d/start"), 4, "sent", 7, {{"X-Own", "1"}}};
    const auto seen = watch(Http::instance().request(request));
    QTRY_VERIFY_WITH_TIMEOUT(seen->done(), Patience);
    QCOMPARE(seen->story(), "data finished gone");
    QCOMPARE(seen->data, "there");
    QCOMPARE(seen->url.toString(), last.toString());
    QVERIFY(capture.text().contains("Redirected to QUrl(\"" + last.toString() + "\")"));

    const auto requests = m_server.requests();
    QCOMPARE(requests.size(), 64);
    QCOMPARE(requests[1].target, "/d/next?a=1");
    QCOMPARE(requests[1].method, "POST");
    QCOMPARE(requests[1].body, "sent");
    QCOMPARE(requests[1].headers.value("range"), "bytes=7-");
    QCOMPARE(requests[1].headers.value("accept-charset"), "utf-8");
    QVERIFY(!requests[1].headers.contains("x-own"));
}

void tst_Http::retriesFirstAddressAfterRedirect()
{
    m_server.clearRequests();
    m_server.answer("/first", {redirect("/second")});
    m_server.answer("/second", {silent(), answer(500), answer(200)});

    const auto http = client(Short);
    const auto seen = watch(http->get(m_server.url("/first")));
    QTRY_VERIFY_WITH_TIMEOUT(seen->done(), Patience);
    QCOMPARE(seen->story(), "data finished gone");
    QCOMPARE(m_server.count("/first"), 3);
    QCOMPARE(m_server.count("/second"), 3);
}

void tst_Http::failsWithoutServer_data()
{
    QTest::addColumn<QUrl>("url");
    QTest::addColumn<int>("operation");
    QTest::addColumn<QString>("log");
    QTest::newRow("refused") << HttpServer().url("/") << 2 << "";
    QTest::newRow("empty URL") << QUrl() << 2 << "Empty URL";
    QTest::newRow("unknown operation") << m_server.url("/x") << 9 << "Unknown operation: 9";
}

void tst_Http::failsWithoutServer()
{
    QFETCH(QUrl, url);
    QFETCH(int, operation);
    QFETCH(QString, log);
    LogCapture capture;
    const auto seen = watch(Http::instance().request(url, operation, "", 0));
    QCOMPARE(seen->story(), QString());
    QTRY_VERIFY_WITH_TIMEOUT(seen->done(), Patience);
    QCOMPARE(seen->story(), "error finished gone");
    QCOMPARE(seen->message, url.toString() + " 0 ");
    QCOMPARE(seen->url, url);
    QVERIFY(capture.text().contains(log));
}

void tst_Http::cleanupTestCase()
{
    // The program ends with these under way: a leak or a crash shows in its exit code.
    Http::instance().get(m_server.url("/x"));
    QTest::qWait(50);
    Http::instance().get(m_server.url("/x"));
    Http::instance().request(m_server.url("/x"), 9, "", 0);
}

QTEST_GUILESS_MAIN(tst_Http)
#include "tst_http.moc"
