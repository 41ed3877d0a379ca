#include "Coded.h"
#include "Files.h"
#include "Http.h"
#include "LastAnswerCache.h"
#include "ReplyEvents.h"

#include <QDateTime>
#include <QLocale>
#include <QNetworkReply>

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
    int timeLimit = 0;
};

/// What is to come out of the last answer.
QByteArray bodyOf(const Outcome &o)
{
    if (o.operation == QNetworkAccessManager::HeadOperation)
        return {};
    const bool isCoded = !o.script.last().headers.isEmpty();
    return isCoded ? QByteArray("0123456789") : o.script.last().body;
}

QByteArray httpDate(qint64 fromNow)
{
    const QDateTime date = QDateTime::currentDateTimeUtc().addSecs(fromNow);
    return QLocale::c().toString(date, "ddd, dd MMM yyyy hh:mm:ss 'GMT'").toLatin1();
}

struct Ask {
    HttpAnswer first;     ///< what the server has the first time
    bool conditional;     ///< whether the second request names it
    HttpRequest how = {}; ///< the first time
    std::function<void()> between = [] {};
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
        const auto coded = [](const QByteArray &coding, const QByteArray &bytes, int status = 200) {
            return HttpAnswer{status, bytes, {{"Content-Encoding", coding}}};
        };
        HttpAnswer endless{200, "x"}, endlessError{404, "x"}, bomb = coded("gzip", {});
        endless.repeated = endlessError.repeated = QByteArray(65536, 'x');
        bomb.body = Coded::body("", Coded::Gzip, Z_SYNC_FLUSH);
        bomb.repeated = Coded::body(QByteArray(1 << 20, 'x'), Coded::Raw, Z_FULL_FLUSH);
        const QByteArray gzip = Coded::body("0123456789", Coded::Gzip);
        row("inflated", {Long, 2, {coded("gzip", gzip)}, 1, 200});
        row("page of an error", {Long, 2, {coded("gzip", "none", 404)}, 1, 404});
        row("HEAD of a coded one", {Long, 1, {coded("gzip", gzip)}, 1, 200});
        const QByteArray most(Http::MaxBodySize, 'x');
        row("largest", {Long, 2, {{200, most}}, 1, 200});
        const QString large = "0 body is larger than 2097152 bytes";
        row("too large", {Long, 2, {{200, most + "x"}}, 1, 0, large});
        row("endless", {Long, 2, {endless}, 1, 0, large});
        row("endless error", {Long, 2, {endlessError}, 1, 0, large});
        row("bomb", {Long, 2, {bomb}, 1, 0, large});
        HttpAnswer nothing = coded("deflate", {});
        nothing.repeated = QByteArray("\0\0\0\xff\xff", 5).repeated(10000); // empty blocks
        row("endless nothing", {Long, 2, {nothing}, 1, 0, large});
        row("brotli", {Long, 2, {coded("br", "x")}, 1, 0, "0 unknown coding br"});
        row("gzip cut off", {Long, 2, {coded("gzip", gzip.chopped(1))}, 1, 0, "0 compressed"});
        row("in circles",
            {Long, 2, {redirect("?a=1&b")}, 0, 0, "0 took too long", {}, Long, Short});
        row("all in all", {Short, 2, {silent}, 2, 0, "0 took too long", {}, Long, 3 * Short / 2});

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
        QString reason = o.status ? QString(" %1 Status %1").arg(o.status) : " 0 ";
        if (o.log.startsWith("0 "))
            reason = ' ' + o.log;
        QStringList expected = failure(url, o.status, url.toString() + reason);
        if (o.status == 304)
            expected.removeFirst();
        if (o.status / 100 == 2)
            expected = success(url, o.status, bodyOf(o));

        HttpReply *const reply =
            http.request(HttpRequest{url, o.operation, sent, 0, {}, Milliseconds(o.timeLimit)});
        const auto events = watch(reply);
        if (o.timeout == Short) { // as a modal message box in a handler would
            connect(reply, &HttpReply::data, [] { QTest::qWait(3 * Short / 2); });
            connect(reply, &HttpReply::error, [] { QTest::qWait(3 * Short / 2); });
        }
        QCOMPARE(*events, QStringList());
        const QStringList events_ = end(events);
        QVERIFY2(events_.size() == expected.size(), qPrintable(events_.join('|').left(500)));
        for (int i = 0; i < expected.size(); ++i)
            QVERIFY2(events_[i].startsWith(expected[i]), qPrintable(events_[i].left(500)));
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
        const auto with = [this](const char *name, const QByteArray &value) {
            HttpAnswer answer = m_whole;
            answer.headers = {{name, value}};
            return answer;
        };
        const auto dated = [=](qint64 modified, qint64 answered) {
            HttpAnswer answer = with("Last-Modified", httpDate(modified));
            answer.headers += qMakePair(QByteArray("Date"), httpDate(answered));
            return answer;
        };
        HttpAnswer coded = m_whole;
        coded.body = Coded::body("whole", Coded::Gzip);
        coded.headers += qMakePair(QByteArray("Content-Encoding"), QByteArray("gzip"));
        row("unchanged", {m_whole, true});
        row("coded", {coded, true});
        row("cut off", {cut, false});
        row("not to be kept", {unkept, false});
        row("by date", {dated(-5, 0), true});
        row("later than its date", {dated(-5, -10), false});
        row("later than a day", {with("Last-Modified", httpDate(90000)), false});
        row("a slow clock", {with("Last-Modified", httpDate(80000)), true});
        row("endless tag", {with("ETag", QByteArray(1000, 'x')), false});
        row("odd tag", {with("ETag", "\"\x01\""), false});
        HttpRequest part, secret;
        part.offset = 3;
        row("part", {m_whole, false, part});
        secret.headers["Authorization"] = "secret";
        row("secret", {m_whole, false, secret});
        row("forgotten", {m_whole, false, {}, [] { Http::forgetAnswer(); }});
    }

    /// An address is asked for twice.
    void cache()
    {
        QFETCH(Ask, ask);
        Http::forgetAnswer();
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
        const auto &headers = request.headers;
        QCOMPARE(headers.contains("if-none-match") || headers.contains("if-modified-since"),
                 ask.conditional);
        QCOMPARE(capture.text.contains("CACHE"), headers.contains("if-none-match"));
    }

    /// A 304 to who named nothing confirms nothing, not even what came before.
    void bareNotModified()
    {
        const QUrl url = m_server->url("/x");
        Http http;
        m_server->answer("/x", {m_whole});
        end(watch(http.get(url)));
        Http::forgetAnswer();
        m_server->answer("/x", {{304}});
        QCOMPARE(end(watch(http.get(url))), (QStringList{finish(url, 304, ""), "gone"}));
    }

    void oldAnswer()
    {
        const QUrl url("http://h/");
        for (const int lifetime : {0, Long}) {
            LastAnswerCache cache{Milliseconds(lifetime)};
            cache.keep(url, {{"etag", "\"1\""}}, "body");
            QCOMPARE(cache.metaData(url).isValid(), lifetime > 0);
            QVERIFY(!cache.metaData(QUrl("http://other/")).isValid() && !cache.data(QUrl()));
        }
    }

    /// Nothing that makes a player known to a server.
    void privacy()
    {
        const QUrl url = m_server->url("/x");
        Http http;
        for (const char *scheme : {"NTLM", "Negotiate", "Basic realm=\"r\""}) {
            m_server->answer("/x",
                             {{401, "", {{"WWW-Authenticate", scheme}, {"Set-Cookie", "a=b"}}}});
            end(watch(http.get(url)));
            end(watch(http.get(url)));
        }
        QCOMPARE(m_server->requests().size(), 6);
        for (const HttpRecord &request : m_server->requests())
            QVERIFY(!request.headers.contains("cookie") &&
                    !request.headers.contains("authorization"));
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
