#include "CachedHttpReply.h"
#include "CachingHttp.h"
#include "Files.h"
#include "ReplyEvents.h"
#include "ThrottlingHttp.h"

#include <QTemporaryDir>

#ifdef Q_OS_UNIX
#include <csignal>
#include <sys/resource.h>
#endif

namespace
{
/// Writes down what goes out and when, in milliseconds.
struct Sent {
    QVector<qint64> times;
    QStringList queries;
};
struct TimedHttp : Http {
    explicit TimedHttp(Sent &log) : sent(log) {}
    HttpReply *request(const HttpRequest &req) override
    {
        sent.times += QDeadlineTimer::current().deadline();
        sent.queries += req.url.query();
        return Http::request(req);
    }
    Sent &sent;
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
    QMap<QByteArray, QByteArray> headers = {};
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
    void lateAnswers();
    void cachedReply();
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
    const HttpAnswer fresh{200, "new", {{"Content-Type", "Text/HTML; charset=utf-8"}}}, gone{404};
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
    row("accepted", {none, fresh, {{"TEXT/html", true}, {"*", false}}, true, "new", "new"});
    row("any refused", {none, fresh, {{"text/plain", true}, {"*", false}}, true, "new", none});
    row("no validator", {none, fresh, {{"text/plain", false}}, true, "new", "new"});
    row("unusable folder", {"!", fresh, {}, true, "new", none, "Cannot create"});
    row("POST", {"old", gone, {}, false, "", "old", "", 4});
    row("from an offset", {"old", fresh, {}, true, "new", "old", "", 2, 3});
    row("own headers", {"old", fresh, {}, true, "new", "old", "", 2, 0, {{"Authorization", "x"}}});
    row("part", {"old", {206, "new"}, {}, true, "new", "old", "Not caching 206"});
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
    CachingHttp http(
        std::make_unique<ThrottlingHttp>(std::make_unique<Http>(), std::chrono::milliseconds(0)),
        "test", m_dir->path(), 0);
    CachingHttp::Validators validators;
    for (auto it = c.verdicts.cbegin(); it != c.verdicts.cend(); ++it)
        validators[it.key()] = [accepts = it.value()](const HttpReply &) { return accepts; };
    http.setValidators(validators);
    LogCapture capture;

    const auto events = watch(http.request({url, c.operation, "", c.offset, c.headers}));
    QCOMPARE(*events, QStringList());
    // Only the wrapper leaves the address out.
    const QString message = c.operation == 2 ? "Status 404" : url.toString() + " 404 Status 404";
    const int status = c.answer.status == 206 ? 206 : 200;
    QCOMPARE(end(events), c.good ? success(url, status, c.data) : failure(url, 404, message));
    QCOMPARE(QFile::exists(stored), !c.after.isNull());
    QVERIFY(c.after.isNull() || Files::read(stored) == c.after);
    QVERIFY2(capture.text.contains(c.log), qPrintable(capture.text));
}

/// The answer to the later of two requests is stored, whichever comes first.
void tst_HttpWrappers::lateAnswers()
{
    CachingHttp http(std::make_unique<Http>(), "test", m_dir->path(), 0);
    const QUrl url = m_server.url("/l"), other = m_server.url("/other");
    for (const bool olderIsLate : {true, false}) {
        HttpAnswer older{200, "older"}, newer{200, "newer"};
        (olderIsLate ? older : newer).bodyDelayMs = 300;
        m_server.answer("/l", {older, newer});
        m_server.answer("/other", {newer});
        const int before = m_server.count("/l");
        const auto first = watch(http.get(url));
        QTRY_COMPARE(m_server.count("/l"), before + 1);
        const auto second = watch(http.get(url)), third = watch(http.get(other));
        QCOMPARE(end(first), success(url, 200, "older"));
        QCOMPARE(end(second), success(url, 200, "newer"));
        QCOMPARE(end(third).size(), 3);
        QCOMPARE(Files::read(m_dir->filePath(CachingHttp::cacheKey(url))), QByteArray("newer"));
    }
}

void tst_HttpWrappers::cachedReply()
{
    auto *const reply = new CachedHttpReply("value", QUrl("http://h/"));
    const auto events = watch(reply);
    reply->emitSignals();
    QCOMPARE(end(events), success(QUrl("http://h/"), 200, "value"));
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
    DiskCache nowhere("nowhere", "", 0);
    Files::write(m_dir->filePath("cache/c"), "not the cache's");
    const QByteArray stranger = m_dir->filePath("cache/c").mid(1).toLocal8Bit();
    nowhere.insert(stranger, "value");
    QVERIFY(nowhere.staleValue(stranger).isNull());
    QCOMPARE(capture.text.count("Refusing key"), 4);

#ifdef Q_OS_UNIX
    // The limit stands in for a full disk.
    signal(SIGXFSZ, SIG_IGN);
    rlimit before = {};
    getrlimit(RLIMIT_FSIZE, &before);
    const rlimit small{10, before.rlim_max};
    setrlimit(RLIMIT_FSIZE, &small);
    cache.insert("a/b", QByteArray(20, 'n'));
    setrlimit(RLIMIT_FSIZE, &before);
    QVERIFY(capture.text.contains("Cannot write"));
#endif
    QCOMPARE(Files::readTree(m_dir->path()),
             (Files::Tree{{"cache/a/b", "value"}, {"cache/c", "not the cache's"}}));
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
    constexpr int Interval = 300, Count = 7;
    HttpAnswer slow{200, "t"};
    slow.bodyDelayMs = 12 * Interval;
    m_server.answer("/t", {slow, slow, slow, slow, {404}});
    Sent sent;
    auto http = std::make_unique<ThrottlingHttp>(std::make_unique<TimedHttp>(sent),
                                                 std::chrono::milliseconds(Interval));
    LogCapture capture;
    QVector<HttpReply *> replies;
    QVector<ReplyEvents> events;
    const auto url = [this](int i) { return m_server.url("/t?" + QString::number(i)); };
    for (int i = 0; i < Count; ++i) {
        replies += http->get(url(i));
        events += watch(replies.last());
    }
    const QVector<qint64> &times = sent.times;
    QVERIFY(times.isEmpty());
    delete replies[3];
    // Given up on while it looks at the clock.
    QVERIFY(QTest::qWaitFor([&] { return capture.text.contains("?1"); }, 60000));
    delete replies[1];

    const QUrl last = url(Count - 1);
    QCOMPARE(end(events.last()), failure(last, 404, last.toString() + " 404 Status 404"));
    QVERIFY(events.first()->isEmpty()); // nobody waited for its answer
    QCOMPARE(end(events.first()), success(url(0), 200, "t"));
    QCOMPARE(*events[3], QStringList("gone"));
    QCOMPARE(sent.queries, (QStringList{"0", "2", "4", "5", "6"}));
    for (int i = 1; i < times.size(); ++i)
        QVERIFY2(times[i] - times[i - 1] >= Interval - 2, qPrintable(QString::number(i)));
    static const QRegularExpression line("Throttling QUrl\\(\"[^\"]*/t\\?1\"\\) \"(\\d+)ms\"\n");
    const int wait = line.match(capture.text).captured(1).toInt();
    QVERIFY2(wait > 0 && wait <= Interval, qPrintable(capture.text));
    // One line for each that waited, perhaps a second one where a timer was early.
    QVERIFY2(capture.text.count("Throttling") < 8, qPrintable(capture.text));

    const auto dropped = watch(http->get(last));
    http.reset();
    QCOMPARE(*dropped, QStringList("gone"));
}

QTEST_GUILESS_MAIN(tst_HttpWrappers)
#include "tst_httpwrappers.moc"
