#include "CachedHttpReply.h"
#include "CachingHttp.h"
#include "ReplyWatch.h"
#include "ThrottlingHttp.h"

#include <QDir>
#include <QElapsedTimer>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

namespace
{
constexpr int Patience = 60000; // ms, for things that are bound to come

QByteArray read(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() + '|' : QByteArray();
}

QStringList files(const QString &folder)
{
    return QDir(folder).entryList(QDir::Files | QDir::Dirs | QDir::NoDotAndDotDot);
}

/// Writes down when each request goes out, in milliseconds since it began.
struct TimedHttp : Http {
    explicit TimedHttp(QVector<qint64> &all)
        : times(all)
    {
        clock.start();
    }
    HttpReply *request(const HttpRequest &req) override
    {
        times += clock.elapsed();
        return Http::request(req);
    }
    QVector<qint64> &times;
    QElapsedTimer clock;
};

struct CachingCase {
    QByteArray before; ///< "" nothing stored, "value|", or "!" for a folder that can't be used
    HttpAnswer answer;
    QMap<QByteArray, bool> verdicts; ///< what the validator of a type says
    QString outcome;                 ///< story and status
    QByteArray data;
    QByteArray after;
    QString log = {};
    int operation = 2;
    uint offset = 0;
};
} // namespace
Q_DECLARE_METATYPE(CachingCase)

class tst_HttpWrappers : public QObject
{
    Q_OBJECT

private slots:
    void caching_data();
    void caching();
    void cacheKeys_data();
    void cacheKeys();
    void expiry();
    void expiryWithinExpiry();
    void throttling();
    void dropsWaitingReplies();
    void cachedReplyEmits();

private:
    HttpServer m_server;
};

void tst_HttpWrappers::caching_data()
{
    QTest::addColumn<CachingCase>("c");
    HttpAnswer fresh = answer(200, "new");
    fresh.headers << qMakePair(QByteArray("Content-Type"), QByteArray("text/html; charset=utf-8"));
    HttpAnswer cut = fresh;
    cut.cutAfter = 2;
    const HttpAnswer gone = answer(404);
    const QString good = "data finished gone 200", bad = "error finished gone 404";
    const auto row = [](const char *name, const CachingCase &c) { QTest::newRow(name) << c; };
    row("first", {"", fresh, {}, good, "new", "new|", "Inserting \"127.0.0.1/"});
    row("replaced", {"older value|", fresh, {}, good, "new", "new|"});
    row("stale", {"old|", gone, {}, good, "old", "old|", "Using stale cache value"});
    row("stale for half a body", {"old|", cut, {}, good, "old", "old|"});
    row("stale and empty", {"|", gone, {}, good, "", "|"});
    row("nothing stale", {"", gone, {}, bad, "", "", "Not caching 404"});
    row("refused",
        {"", fresh, {{"text/html", false}, {"*", true}}, good, "new", "", "Not caching"});
    row("accepted", {"", fresh, {{"text/html", true}, {"*", false}}, good, "new", "new|"});
    row("any refused", {"", fresh, {{"text/plain", true}, {"*", false}}, good, "new", ""});
    row("no validator", {"", fresh, {{"text/plain", false}}, good, "new", "new|"});
    row("unusable folder", {"!", fresh, {}, good, "new", "", "Cannot create"});
    row("POST", {"old|", gone, {}, bad, "", "old|", "", 4});
    row("part", {"old|", fresh, {}, good, "new", "old|", "", 2, 3});
}

void tst_HttpWrappers::caching()
{
    QFETCH(CachingCase, c);
    QTemporaryDir dir;
    const QUrl url = m_server.url("/c?d=1");
    const QByteArray key = CachingHttp::cacheKey(url);
    if (c.before == "!")
        QVERIFY(QFile(dir.filePath(url.host())).open(QIODevice::WriteOnly));
    else if (!c.before.isEmpty())
        DiskCache("test", dir.path(), 0).insert(key, c.before.chopped(1));
    m_server.answer("/c", {c.answer});
    // With a throttling client in between, to see that the wrappers can be stacked.
    CachingHttp http(std::make_unique<ThrottlingHttp>(std::make_unique<Http>(), 0), "test",
                     dir.path(), 0);
    CachingHttp::Validators validators;
    for (auto it = c.verdicts.cbegin(); it != c.verdicts.cend(); ++it)
        validators[it.key()] = [accepts = it.value()](const HttpReply &) { return accepts; };
    http.setValidators(validators);
    LogCapture capture;

    const auto seen = watch(http.request(url, c.operation, "", c.offset));
    QCOMPARE(seen->story(), QString());
    QTRY_VERIFY_WITH_TIMEOUT(seen->done(), Patience);
    QCOMPARE(seen->story() + ' ' + QString::number(seen->status), c.outcome);
    QCOMPARE(seen->data, c.data);
    QCOMPARE(seen->body, c.data);
    QCOMPARE(seen->url, url);
    QCOMPARE(read(dir.filePath(key)), c.after);
    QVERIFY2(capture.text().contains(c.log), qPrintable(capture.text()));
    if (c.outcome == "error finished gone 404" && c.operation == 2)
        QCOMPARE(seen->message, "Not Found");
}

void tst_HttpWrappers::cacheKeys_data()
{
    QTest::addColumn<QByteArray>("key");
    QTest::addColumn<QString>("path"); // empty: refused
    QTest::newRow("new folders") << QByteArray("a/b/c") << "a/b/c";
    QTest::newRow("zero byte") << QByteArray("a\0/../../b", 10) << "a";
    QTest::newRow("parent folder") << QByteArray("../x") << "";
    QTest::newRow("climbs out") << QByteArray("a/../../x") << "";
    QTest::newRow("absolute") << QByteArray("/x") << "";
    QTest::newRow("empty") << QByteArray() << "";
}

void tst_HttpWrappers::cacheKeys()
{
    QFETCH(QByteArray, key);
    QFETCH(QString, path);
    QTemporaryDir dir;
    QVERIFY(QDir(dir.path()).mkdir("cache"));
    DiskCache cache("test", dir.filePath("cache"), 0);
    LogCapture capture;

    cache.insert(key, "value");
    QCOMPARE(files(dir.path()), QStringList("cache"));
    QCOMPARE(cache.staleValue(key), path.isEmpty() ? QByteArray() : QByteArray("value"));
    if (path.isEmpty())
        QVERIFY(capture.text().contains("Refusing key") && files(dir.filePath("cache")).isEmpty());
    else
        QCOMPARE(read(dir.filePath("cache/" + path)), "value|");
}

void tst_HttpWrappers::expiry()
{
    QTemporaryDir dir;
    DiskCache cache("test", dir.path(), 1000);
    LogCapture capture;
    const auto insert = [&cache](const char *name, int count, int size) {
        for (int i = 0; i < count; ++i)
            cache.insert(name + QByteArray::number(i), QByteArray(size, 'x'));
    };
    insert("old", 60, 20);
    QTest::qWait(50); // so that the clock of the file system tells the ages apart
    insert("new", 39, 20);
    cache.staleValue("new1");
    cache.staleValue("new2");
    cache.staleValue("none");
    QCOMPARE(files(dir.path()).size(), 99);
    QVERIFY(!capture.text().contains("Cache:"));

    // The hundredth: 2000 bytes go down to the first sum below 900.
    insert("last", 1, 20);
    QVERIFY2(capture.text().contains("Cache: \"test\" \nInserts: 100 \nRequests: 3 \n"
                                     "Hits: 2 66 %\nMisses: 1 33 %\n"
                                     "Removed: 56 Kept: 44 New Size: 880\n"),
             qPrintable(capture.text()));
    QCOMPARE(files(dir.path()).filter("old").size(), 4);
    QCOMPARE(files(dir.path()).filter("new").size(), 39);

    // 980 bytes are within the limit, 1080 are not.
    insert("a", 100, 1);
    QCOMPARE(files(dir.path()).size(), 144);
    insert("b", 100, 1);
    QCOMPARE(capture.text().count("Removed:"), 2);
}

void tst_HttpWrappers::expiryWithinExpiry()
{
    QTemporaryDir dir;
    DiskCache cache("test", dir.path(), 10);
    cache.staleValue("none");
    const auto insert = [&cache] {
        for (int i = 0; i < 100; ++i)
            cache.insert(QByteArray::number(i), "xxxxx");
    };
    QTimer::singleShot(0, this, insert);
    LogCapture capture;
    insert();
    QCOMPARE(capture.text().count("Inserting"), 200);
    QCOMPARE(capture.text().count("Cache:"), 1);
}

void tst_HttpWrappers::throttling()
{
    constexpr int Interval = 150, Count = 5;
    m_server.answer("/t", {answer(200, "t"), answer(404)});
    QVector<qint64> times;
    ThrottlingHttp http(std::make_unique<TimedHttp>(times), Interval);
    LogCapture capture;
    QVector<std::shared_ptr<ReplyWatch>> seen;
    for (int i = 0; i < Count; ++i)
        seen += watch(http.get(m_server.url("/t")));
    QVERIFY(times.isEmpty());

    for (int i = 0; i < Count; ++i) {
        QTRY_VERIFY_WITH_TIMEOUT(seen[i]->done(), Patience);
        QCOMPARE(seen[i]->story(), i == 0 ? "data finished gone" : "error finished gone");
        QCOMPARE(seen[i]->status, i == 0 ? 200 : 404);
        if (i > 0)
            QVERIFY2(times[i] - times[i - 1] >= Interval - 2, qPrintable(QString::number(i)));
    }
    QCOMPARE(times.size(), Count);
    const QRegularExpression line("Throttling QUrl\\(\"[^\"]*/t\"\\) \"(\\d+)ms\"\n");
    const int wait = line.match(capture.text()).captured(1).toInt();
    QVERIFY2(wait > 0 && wait <= Interval, qPrintable(capture.text()));
}

void tst_HttpWrappers::dropsWaitingReplies()
{
    m_server.clearRequests();
    auto http = std::make_unique<ThrottlingHttp>(std::make_unique<Http>(), 300);
    const auto first = watch(http->get(m_server.url("/t")));
    HttpReply *const second = http->get(m_server.url("/t"));
    const auto third = watch(http->get(m_server.url("/t")));
    QTRY_VERIFY_WITH_TIMEOUT(first->done(), Patience);
    delete second;
    QTRY_VERIFY_WITH_TIMEOUT(third->done(), Patience);
    QCOMPARE(m_server.count("/t"), 2);

    const auto fourth = watch(http->get(m_server.url("/t")));
    http.reset();
    QCOMPARE(fourth->story(), "gone");
}

void tst_HttpWrappers::cachedReplyEmits()
{
    auto *reply = new CachedHttpReply("body", QUrl("http://example.test/"));
    const auto seen = watch(reply);
    reply->emitSignals();
    QTRY_COMPARE_WITH_TIMEOUT(seen->story(), QString("data finished gone"), Patience);
    QCOMPARE(seen->body, "body");
}

QTEST_GUILESS_MAIN(tst_HttpWrappers)
#include "tst_httpwrappers.moc"
