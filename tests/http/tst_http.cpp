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
} // namespace

class tst_Http : public QObject
{
    Q_OBJECT

private slots:
    void outcome_data();
    void outcome();
    void sendsHeaders_data();
    void sendsHeaders();
    void followsRedirect_data();
    void followsRedirect();
    void retriesFirstAddressAfterRedirect();
    void failsWithoutServer_data();
    void failsWithoutServer();
    void survivesEventLoopInHandler_data();
    void survivesEventLoopInHandler();
    void keepsDoubleSlash();
    void cleanupTestCase();

private:
    HttpServer m_server;
};

void tst_Http::outcome_data()
{
    QTest::addColumn<int>("timeout");
    QTest::addColumn<int>("operation");
    QTest::addColumn<Script>("script");
    QTest::addColumn<int>("attempts"); // 0: not ours to decide
    QTest::addColumn<QString>("story");
    QTest::addColumn<QString>("result"); // status and reason
    QTest::addColumn<QString>("log");

    const QString good = "data finished gone";
    const QString bad = "error finished gone";
    const QString ok = "200 OK";
    const QString unavailable = "503 Service Unavailable";
    const HttpAnswer body = answer(200, "0123456789");
    const HttpAnswer busy = answer(503, "busy");
    HttpAnswer cut = body, reset = body, bare = body, lateBody = body, lateTail = body;
    cut.cutAfter = 5;
    reset.reset = true;
    bare.noLength = true;
    lateBody.bodyDelayMs = 5 * Short;
    // Half a time-out, because very early bytes are not reported as progress.
    lateTail.bodyDelayMs = Short / 2;
    lateTail.tailDelayMs = 3 * Short;

    const auto row = [](const char *name, int timeout, int operation, const Script &script,
                        int attempts, const QString &story, const QString &result,
                        const QString &log) {
        QTest::newRow(name) << timeout << operation << script << attempts << story << result << log;
    };
    row("body", Long, 2, {body}, 1, good, ok, "200 %1");
    row("large body", Long, 2, {answer(200, QByteArray(3000000, 'x'))}, 1, good, ok, "");
    row("no length", Long, 2, {bare}, 1, good, ok, "");
    row("PUT", Long, 3, {body}, 1, good, ok, "");
    row("DELETE", Long, 5, {body}, 1, good, ok, "");
    row("empty", Long, 2, {answer(204)}, 1, good, "204 Status 204", "");
    row("not modified", Long, 2, {answer(304)}, 1, "finished gone", "304 Status 304", "");
    row("404", Long, 4, {answer(404)}, 1, bad, "404 Not Found", "Http: \"sent\"");
    row("503 once", Long, 2, {busy, body}, 2, good, ok, "Retrying 503 \"2\" %1");
    row("503 four times", Long, 2, {busy, busy, busy, busy, body}, 5, good, ok, "");
    row("503 GET", Long, 2, {busy}, 5, bad, unavailable, "");
    row("503 HEAD", Long, 1, {busy}, 5, bad, unavailable, "Retrying 503 \"1\" %1");
    row("503 POST", Long, 4, {busy}, 1, bad, unavailable, "");
    row("silent GET", Short, 2, {silent()}, 4, bad, "0 ", "Timeout %1");
    row("silent POST", Short, 4, {silent()}, 1, bad, "0 ", "Timeout %1");
    row("silent once", Short, 2, {silent(), body}, 2, good, ok, "");
    row("head only", Short, 2, {lateBody}, 4, bad, "0 ", "Timeout %1");
    row("slow tail", Short, 2, {lateTail}, 1, good, ok, "");
    row("503s before silence", Short, 2, {busy, busy, busy, silent()}, 4, bad, "0 ", "");
    row("503s after silence", Short, 2, {silent(), silent(), silent(), busy}, 5, bad, unavailable,
        "");
    row("cut off", Long, 2, {cut}, 1, bad, "0 ", "");
    row("reset", Long, 2, {reset}, 0, bad, "0 ", "");
}

void tst_Http::outcome()
{
    QFETCH(int, timeout);
    QFETCH(int, operation);
    QFETCH(Script, script);
    QFETCH(int, attempts);
    QFETCH(QString, story);
    QFETCH(QString, result);
    QFETCH(QString, log);
    m_server.clearRequests();
    m_server.answer("/x", script);
    LogCapture capture;
    const auto http = client(timeout);
    const QUrl url = m_server.url("/x");
    const QByteArray sent = operation == 3 || operation == 4 ? "sent" : "";

    const auto seen = watch(http->request(url, operation, sent, 0));
    QCOMPARE(seen->story(), QString());
    QTRY_VERIFY_WITH_TIMEOUT(seen->done(), Patience);
    QCOMPARE(seen->story(), story);
    QCOMPARE(seen->status, result.section(' ', 0, 0).toInt());
    QCOMPARE(seen->data, story.startsWith("data") ? script.last().body : QByteArray());
    QCOMPARE(seen->body, seen->data);
    if (story.contains("error"))
        QCOMPARE(seen->message, url.toString() + ' ' + result);
    const QString line = log.arg("QUrl(\"" + url.toString() + "\")");
    QVERIFY2(capture.text().contains(line), qPrintable(capture.text()));

    const auto requests = m_server.requests("/x");
    QVERIFY(attempts == 0 || requests.size() == attempts);
    QCOMPARE(requests.first().body, sent);
    // An attempt that was given up must not hold on to one of the few connections to its server.
    if (timeout == Short && seen->status == 0)
        QTRY_COMPARE_WITH_TIMEOUT(m_server.connections(), 0, Patience);
}

void tst_Http::sendsHeaders_data()
{
    using Headers = QMap<QByteArray, QByteArray>;
    QTest::addColumn<Headers>("own");
    QTest::addColumn<uint>("offset");
    QTest::addColumn<Headers>("sent");

    const Headers defaults{{"accept-charset", "utf-8"}, {"connection", "Keep-Alive"}};
    Headers range = defaults;
    range["range"] = "bytes=4000000000-";
    QTest::newRow("defaults") << Headers{} << 0u << defaults;
    QTest::newRow("offset") << Headers{} << 4000000000u << range;
    QTest::newRow("own") << Headers{{"X-Own", "1"}} << 0u
                         << Headers{{"x-own", "1"}, {"connection", "Keep-Alive"}};
    QTest::newRow("defaults again") << Headers{} << 0u << defaults;
}

void tst_Http::sendsHeaders()
{
    using Headers = QMap<QByteArray, QByteArray>;
    QFETCH(Headers, own);
    QFETCH(uint, offset);
    QFETCH(Headers, sent);
    m_server.clearRequests();
    m_server.answer("/h", {answer(200)});

    const auto seen = watch(Http::instance().request({m_server.url("/h"), 2, "", offset, own}));
    QTRY_VERIFY_WITH_TIMEOUT(seen->done(), Patience);
    Headers got = m_server.requests().first().headers;
    for (const char *platform : {"host", "user-agent", "accept-encoding", "accept-language"})
        got.remove(platform);
    QCOMPARE(got, sent);
}

void tst_Http::followsRedirect_data()
{
    QTest::addColumn<QByteArray>("location");
    QTest::addColumn<QString>("target");
    QTest::newRow("relative") << QByteArray("next?a=1") << "/d/next?a=1";
    QTest::newRow("absolute path") << QByteArray("/next") << "/next";
    QTest::newRow("whole address") << m_server.url("//e/next").toEncoded() << "//e/next";
}

void tst_Http::followsRedirect()
{
    QFETCH(QByteArray, location);
    QFETCH(QString, target);
    m_server.clearRequests();
    m_server.answer("/d/start", {redirect(location)});
    // More hops than any limit that could be lurking below.
    Script hops(60, redirect(m_server.url(target).toEncoded()));
    m_server.answer(target.section('?', 0, 0), hops << answer(200, "there"));
    LogCapture capture;

    const auto seen =
        watch(Http::instance().request({m_server.url("/d/start"), 4, "sent", 7, {{"X-Own", "1"}}}));
    QTRY_VERIFY_WITH_TIMEOUT(seen->done(), Patience);
    QCOMPARE(seen->story(), "data finished gone");
    QCOMPARE(seen->data, "there");
    QCOMPARE(seen->url, m_server.url(target));
    QVERIFY(capture.text().contains("Redirected to QUrl(\"" + seen->url.toString() + "\")"));

    QCOMPARE(m_server.count("/d/start"), 1);
    const HttpRecord last = m_server.requests().last();
    QCOMPARE(last.method, "POST");
    QCOMPARE(last.body, "sent");
    QCOMPARE(last.headers.value("range"), "bytes=7-");
    QCOMPARE(last.headers.value("accept-charset"), "utf-8");
    QVERIFY(!last.headers.contains("x-own"));
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
    quint16 closed = 0;
    {
        closed = HttpServer().port();
    }
    QTest::newRow("refused") << QUrl(QStringLiteral("http://127.0.0.1:%1/").arg(closed)) << 2 << "";
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

void tst_Http::survivesEventLoopInHandler_data()
{
    QTest::addColumn<HttpAnswer>("answer");
    QTest::addColumn<QString>("story");
    QTest::newRow("data") << answer(204) << "data finished gone";
    QTest::newRow("error") << answer(404) << "error finished gone";
    QTest::newRow("time-out") << silent() << "error finished gone";
}

void tst_Http::survivesEventLoopInHandler()
{
    QFETCH(HttpAnswer, answer);
    QFETCH(QString, story);
    m_server.answer("/x", {answer});
    const auto http = client(Short);
    HttpReply *reply = http->request(m_server.url("/x"), 4, "", 0);
    const auto seen = watch(reply);
    // As a modal message box would.
    const auto linger = [] {
        QEventLoop loop;
        QTimer::singleShot(2 * Short, &loop, &QEventLoop::quit);
        loop.exec();
    };
    connect(reply, &HttpReply::data, linger);
    connect(reply, &HttpReply::error, linger);
    connect(reply, &HttpReply::finished, linger);
    connect(reply, &HttpReply::finished, [seen](const HttpReply &r) { seen->url = r.url(); });
    QTRY_VERIFY_WITH_TIMEOUT(seen->done(), Patience);
    QCOMPARE(seen->story(), story);
}

void tst_Http::keepsDoubleSlash()
{
    m_server.clearRequests();
    m_server.answer("/cms/upgrade", {answer(200, "{}")});
    const QUrl url = m_server.url("//cms/upgrade?platform=102&v=0");
    const auto seen = watch(Http::instance().get(url));
    QTRY_VERIFY_WITH_TIMEOUT(seen->done(), Patience);
    QCOMPARE(seen->data, "{}");
    QCOMPARE(seen->url.toString(), url.toString());
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
