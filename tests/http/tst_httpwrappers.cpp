#include "CachedHttpReply.h"
#include "CachingHttp.h"
#include "Files.h"
#include "ReplyEvents.h"
#include "SmallDisk.h"
#include "ThrottlingHttp.h"

#include <QTemporaryDir>

namespace
{
/// Writes down when a request goes out, in milliseconds, and its query.
struct TimedHttp : Http {
    explicit TimedHttp(QMap<qint64, QString> &log) : sent(log) {}
    HttpReply *request(const HttpRequest &req) override
    {
        sent[QDeadlineTimer::current().deadline()] = req.url.query();
        return Http::request(req);
    }
    QMap<qint64, QString> &sent;
};

struct CachingCase {
    QByteArray before; ///< the stored value; null for none, "!" for a folder that can't be used
    HttpAnswer answer;
    CachingHttp::Validators validators;
    QByteArray data;  ///< null for a failure
    QByteArray after; ///< as before
    QString log = {};
    HttpRequest how = {};
};
} // namespace
Q_DECLARE_METATYPE(CachingCase)

class tst_HttpWrappers : public QObject
{
    Q_OBJECT
    QScopedPointer<QTemporaryDir> m_dir;
    HttpServer m_server;

private slots:
    void init() { m_dir.reset(new QTemporaryDir); }

    void caching_data()
    {
        QTest::addColumn<CachingCase>("c");
        const HttpAnswer fresh{200, "new", {{"Content-Type", "Text/HTML; charset=utf-8"}}};
        const QByteArray none;
        const auto yes = [](const HttpReply &) { return true; };
        const auto no = [](const HttpReply &) { return false; };
        const auto row = [](const char *name, const CachingCase &c) { QTest::newRow(name) << c; };
        row("replaced", {"older value", fresh, {}, "new", "new", "Inserting \"127.0.0.1/"});
        row("stale", {"old", {404}, {}, "old", "old", "Using stale cache value"});
        row("stale and empty", {"", {404}, {}, "", ""});
        row("nothing stale", {none, {404}, {}, none, none, "Not caching 404"});
        row("accepted", {none, fresh, {{"TEXT/html", yes}, {"*", no}}, "new", "new"});
        row("refused", {none, fresh, {{"text/plain", yes}, {"*", no}}, "new", none});
        row("unusable folder", {"!", fresh, {}, "new", none, "Cannot create"});
        row("POST", {"old", fresh, {}, "new", "old", "", {{}, 4, "", 0, {}}});
        row("from an offset", {"old", fresh, {}, "new", "old", "", {{}, 2, "", 3, {}}});
        row("own headers", {"old", fresh, {}, "new", "old", "", {{}, 2, "", 0, {{"X", "x"}}}});
        row("part", {"old", {206, "new"}, {}, "new", "old", "Not caching 206"});
    }

    void caching()
    {
        QFETCH(CachingCase, c);
        const QUrl url = c.how.url = m_server.url("/c?d=1");
        const QString stored = m_dir->filePath(CachingHttp::cacheKey(url));
        if (c.before == "!")
            Files::write(m_dir->filePath(url.host()), "");
        else if (!c.before.isNull())
            Files::write(stored, c.before);
        m_server.answer("/c", {c.answer});
        // With a throttling client in between, to see that the wrappers can be stacked.
        CachingHttp http(std::make_unique<ThrottlingHttp>(std::make_unique<Http>(),
                                                          std::chrono::milliseconds(0)),
                         "test", m_dir->path(), 0);
        http.setValidators(c.validators);
        LogCapture capture;

        const auto events = watch(http.request(c.how));
        QCOMPARE(*events, QStringList());
        const int status = c.answer.status == 206 ? 206 : 200;
        QCOMPARE(end(events),
                 c.data.isNull() ? failure(url, 404, "Status 404") : success(url, status, c.data));
        QCOMPARE(QFile::exists(stored), !c.after.isNull());
        QVERIFY(c.after.isNull() || Files::read(stored) == c.after);
        QVERIFY2(capture.text.contains(c.log), qPrintable(capture.text));
    }

    /// The answer to the latest request for an address is stored, whichever comes last.
    void lateAnswers()
    {
        CachingHttp http(std::make_unique<Http>(), "test", m_dir->path(), 0);
        const QUrl url = m_server.url("/l");
        HttpAnswer older{200, "older"}, newer{200, "newer"};
        older.bodyDelayMs = 600;
        newer.bodyDelayMs = 300;
        m_server.answer("/l", {older, newer});
        m_server.answer("/other", {{200}});
        const auto first = watch(http.get(url));
        QTRY_COMPARE(m_server.count("/l"), 1);
        const auto second = watch(http.get(url)), other = watch(http.get(m_server.url("/other")));
        QCOMPARE(end(first), success(url, 200, "older"));
        QCOMPARE(*second, success(url, 200, "newer"));
        QCOMPARE(other->size(), 3);
        QCOMPARE(Files::read(m_dir->filePath(CachingHttp::cacheKey(url))), QByteArray("newer"));
    }

    void cachedReply()
    {
        auto *const reply = new CachedHttpReply("value", QUrl("http://h/"));
        const auto events = watch(reply);
        reply->emitSignals();
        QCOMPARE(end(events), success(QUrl("http://h/"), 200, "value"));
    }

    void cacheKeys()
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
        {
            const SmallDisk disk;
            cache.insert("a/b", QByteArray(3000, 'n'));
        }
        QVERIFY(capture.text.contains("Cannot write"));
#endif
        QCOMPARE(Files::readTree(m_dir->path()),
                 (Files::Tree{{"cache/a/b", "value"}, {"cache/c", "not the cache's"}}));
    }

    void expiry()
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

    void throttling()
    {
        constexpr int Interval = 300, Count = 7;
        HttpAnswer slow{200, "t"};
        slow.bodyDelayMs = 12 * Interval;
        m_server.answer("/t", {slow, slow, slow, slow, {404}});
        QMap<qint64, QString> sent;
        ThrottlingHttp http(std::make_unique<TimedHttp>(sent), std::chrono::milliseconds(Interval));
        LogCapture capture;
        QVector<HttpReply *> replies;
        QVector<ReplyEvents> events;
        const auto url = [this](int i) { return m_server.url("/t?" + QString::number(i)); };
        for (int i = 0; i < Count; ++i) {
            replies += http.get(url(i));
            events += watch(replies.last());
        }
        QVERIFY(sent.isEmpty());
        delete replies[3];
        // Given up on while it looks at the clock.
        QVERIFY(QTest::qWaitFor([&] { return capture.text.contains("?1"); }, 60000));
        delete replies[1];

        const QUrl last = url(Count - 1);
        QCOMPARE(end(events.last()), failure(last, 404, last.toString() + " 404 Status 404"));
        QVERIFY(events.first()->isEmpty()); // nobody waited for its answer
        QCOMPARE(end(events.first()), success(url(0), 200, "t"));
        QCOMPARE(*events[3], QStringList("gone"));
        QCOMPARE(sent.values(), (QStringList{"0", "2", "4", "5", "6"}));
        for (auto it = std::next(sent.begin()); it != sent.end(); ++it)
            QVERIFY2(it.key() - std::prev(it).key() >= Interval - 2, qPrintable(it.value()));
        // One line for each that waited, perhaps a second one where a timer was early.
        QVERIFY2(capture.text.count("Throttling") < 8, qPrintable(capture.text));

        http.get(last); // waits, and goes with its client
    }
};

QTEST_GUILESS_MAIN(tst_HttpWrappers)
#include "tst_httpwrappers.moc"
