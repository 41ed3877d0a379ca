#include "CachingHttp.h"
#include "Files.h"
#include "ReplyEvents.h"
#include "ThrottlingHttp.h"

#include <QTemporaryDir>

namespace
{
/// Writes down when each request goes out, in milliseconds.
struct TimedHttp : Http {
    HttpReply *request(const HttpRequest &req) override
    {
        times += QDeadlineTimer::current().deadline();
        return Http::request(req);
    }
    static inline QVector<qint64> times;
};

struct CachingCase {
    QByteArray before; ///< the stored value; null for none, "!" for a folder that can't be used
    HttpAnswer answer;
    QMap<QByteArray, bool> verdicts; ///< what the validator of a type says
    bool good;
    QByteArray data;
    QByteArray after; ///< as before
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
    void init() { m_dir.reset(new QTemporaryDir); }
    void caching_data();
    void caching();
    void cacheKeys();
    void expiry();
    void throttling();

private:
    QScopedPointer<QTemporaryDir> m_dir;
    HttpServer m_server;
};

void tst_HttpWrappers::caching_data()
{
    QTest::addColumn<CachingCase>("c");
    const HttpAnswer fresh{200, "new", {{"Content-Type", "text/html; charset=utf-8"}}}, gone{404};
    HttpAnswer cut = fresh;
    cut.cutAfter = 2;
    const QByteArray none;
    const auto row = [](const char *name, const CachingCase &c) { QTest::newRow(name) << c; };
    row("replaced", {"older value", fresh, {}, true, "new", "new", "Inserting \"127.0.0.1/"});
    row("stale", {"old", gone, {}, true, "old", "old", "Using stale cache value"});
    row("stale for half a body", {"old", cut, {}, true, "old", "old"});
    row("stale and empty", {"", gone, {}, true, "", ""});
    row("nothing stale", {none, gone, {}, false, "", none, "Not caching 404"});
    row("refused", {none, fresh, {{"text/html", false}, {"*", true}}, true, "new", none});
    row("accepted", {none, fresh, {{"text/html", true}, {"*", false}}, true, "new", "new"});
    row("any refused", {none, fresh, {{"text/plain", true}, {"*", false}}, true, "new", none});
    row("no validator", {none, fresh, {{"text/plain", false}}, true, "new", "new"});
    row("unusable folder", {"!", fresh, {}, true, "new", none, "Cannot create"});
    row("POST", {"old", gone, {}, false, "", "old", "", 4});
    row("part", {"old", fresh, {}, true, "new", "old", "", 2, 3});
}

void tst_HttpWrappers::caching()
{
    QFETCH(CachingCase, c);
    const QUrl url = m_server.url("/c?d=1");
    const QString stored = m_dir->filePath(CachingHttp::cacheKey(url));
    if (c.before == "!")
        Files::write(m_dir->filePath(url.host()), "");
    else if (!c.before.isNull())
        Files::write(stored, c.before);
    m_server.answer("/c", {c.answer});
    // With a throttling client in between, to see that the wrappers can be stacked.
    CachingHttp http(std::make_unique<ThrottlingHttp>(std::make_unique<Http>(), 0), "test",
                     m_dir->path(), 0);
    CachingHttp::Validators validators;
    for (auto it = c.verdicts.cbegin(); it != c.verdicts.cend(); ++it)
        validators[it.key()] = [accepts = it.value()](const HttpReply &) { return accepts; };
    http.setValidators(validators);
    LogCapture capture;

    const auto events = watch(http.request(url, c.operation, "", c.offset));
    QCOMPARE(*events, QStringList());
    // Only the wrapper leaves the address out.
    const QString message = c.operation == 2 ? "Status 404" : url.toString() + " 404 Status 404";
    QCOMPARE(end(events), c.good ? success(url, 200, c.data) : failure(url, 404, message));
    QCOMPARE(QFile::exists(stored), !c.after.isNull());
    QVERIFY(c.after.isNull() || Files::read(stored) == c.after);
    QVERIFY2(capture.text.contains(c.log), qPrintable(capture.text));
}

void tst_HttpWrappers::cacheKeys()
{
    DiskCache cache("test", m_dir->filePath("cache"), 0);
    LogCapture capture;
    cache.insert(QByteArray("a/b\0/../../c", 12), "value");
    for (const char *key : {"../x", "/x", ""}) {
        cache.insert(key, "value");
        QVERIFY(cache.staleValue(key).isNull());
    }
    QCOMPARE(capture.text.count("Refusing key"), 3);
    QCOMPARE(Files::readTree(m_dir->path()), (Files::Tree{{"cache/a/b", "value"}}));
}

void tst_HttpWrappers::expiry()
{
    DiskCache cache("test", m_dir->path(), 1000);
    LogCapture capture;
    const auto files = [this] { return QStringList(Files::readTree(m_dir->path()).keys()); };
    const auto insert = [](DiskCache &into, const char *name, int count, int size) {
        for (int i = 0; i < count; ++i)
            into.insert(name + QByteArray::number(i), QByteArray(size, 'x'));
    };
    insert(cache, "old", 60, 20);
    QTest::qWait(50); // so that the clock of the file system tells the ages apart
    insert(cache, "new", 39, 20);
    for (const char *key : {"new1", "new2", "none"})
        cache.staleValue(key);
    QVERIFY(files().size() == 99 && !capture.text.contains("Cache:"));

    // The hundredth: 2000 bytes go down to the first sum below 900.
    insert(cache, "last", 1, 20);
    QVERIFY2(capture.text.contains("Cache: \"test\" \nInserts: 100 \nRequests: 3 \n"
                                   "Hits: 2 66 %\nMisses: 1 33 %\n"
                                   "Removed: 56 Kept: 44 New Size: 880\n"),
             qPrintable(capture.text));
    QCOMPARE(files().filter("old").size(), 4);
    QCOMPARE(files().filter("new").size(), 39);

    // 980 bytes are within the limit, 1080 are not.
    insert(cache, "a", 100, 1);
    QCOMPARE(files().size(), 144);
    insert(cache, "b", 100, 1);
    QCOMPARE(capture.text.count("Removed:"), 2);

    // The events that it runs may insert, too.
    DiskCache other("other", m_dir->filePath("other"), 10);
    other.staleValue("none");
    QTimer::singleShot(0, this, [&] { insert(other, "c", 100, 5); });
    insert(other, "c", 100, 5);
    QCOMPARE(capture.text.count("Inserting"), 500);
    QCOMPARE(capture.text.count("Cache: \"other\""), 1);
}

void tst_HttpWrappers::throttling()
{
    constexpr int Interval = 150, Deleted = 2, Count = 5;
    m_server.answer("/t", {{200, "t"}, {404}});
    auto http = std::make_unique<ThrottlingHttp>(std::make_unique<TimedHttp>(), Interval);
    LogCapture capture;
    QVector<HttpReply *> replies;
    QVector<ReplyEvents> events;
    const QUrl url = m_server.url("/t");
    for (int i = 0; i < Count; ++i) {
        replies += http->get(url);
        events += watch(replies.last());
    }
    const QVector<qint64> &times = TimedHttp::times;
    QVERIFY(times.isEmpty());
    delete replies[Deleted];

    QCOMPARE(end(events.first()), success(url, 200, "t"));
    QCOMPARE(end(events.last()), failure(url, 404, url.toString() + " 404 Status 404"));
    QCOMPARE(*events[Deleted], QStringList("gone"));
    QCOMPARE(times.size(), Count - 1);
    for (int i = 1; i < times.size(); ++i)
        QVERIFY2(times[i] - times[i - 1] >= Interval - 2, qPrintable(QString::number(i)));
    const QRegularExpression line("Throttling QUrl\\(\"[^\"]*/t\"\\) \"(\\d+)ms\"\n");
    const int wait = line.match(capture.text).captured(1).toInt();
    QVERIFY2(wait > 0 && wait <= Interval, qPrintable(capture.text));

    const auto dropped = watch(http->get(url));
    http.reset();
    QCOMPARE(*dropped, QStringList("gone"));
}

QTEST_GUILESS_MAIN(tst_HttpWrappers)
#include "tst_httpwrappers.moc"
