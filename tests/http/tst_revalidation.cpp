#include "Files.h"
#include "Http.h"
#include "ReplyEvents.h"

#include <QDir>
#include <QNetworkAccessManager>
#include <QStandardPaths>

namespace
{
constexpr char First[] = "first, which is longer", Second[] = "second";

HttpAnswer tagged(const QByteArray &body, int status = 200)
{
    const QByteArray tag = '"' + QByteArray::number(qHash(body)) + '"';
    return {status, body, {{"ETag", tag}, {"Cache-Control", "max-age=86400"}}};
}

QString folder()
{
    return QStandardPaths::writableLocation(QStandardPaths::CacheLocation) + "/http";
}

/// Changes what is kept; a byte at \a place, counted from the end if negative.
void spoil(int place)
{
    const Files::Tree kept = Files::readTree(folder());
    QVERIFY(!kept.isEmpty());
    for (auto file = kept.begin(); file != kept.end(); ++file) {
        QByteArray content = file.value();
        content.data()[place < 0 ? content.size() + place : place] ^= 1;
        Files::write(folder() + '/' + file.key(), content);
    }
}

void truncate()
{
    const Files::Tree kept = Files::readTree(folder());
    for (auto file = kept.begin(); file != kept.end(); ++file)
        Files::write(folder() + '/' + file.key(), file.value().left(file.value().size() / 2));
}

using Change = std::function<void()>;
struct Ask {
    HttpAnswer first, second; ///< what the server has
    QByteArray body;          ///< of the second answer
    bool conditional;         ///< whether the second request names what is there
    Change between = [] {};
    HttpRequest how = {}; ///< the first time
    bool successful = true;
};
} // namespace
Q_DECLARE_METATYPE(Ask)

/// An address is asked for twice.
class tst_Revalidation : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void twice_data();
    void twice();
};

void tst_Revalidation::init()
{
    QDir(folder()).removeRecursively();
    QFile::remove(folder());
}

void tst_Revalidation::twice_data()
{
    QTest::addColumn<Ask>("ask");
    const auto row = [](const char *name, const Ask &ask) { QTest::newRow(name) << ask; };
    const HttpAnswer first = tagged(First), second = tagged(Second);
    HttpAnswer cut = first, kept = first;
    cut.cutAfter = 10;
    kept.headers.last().second = "no-store";
    row("unchanged", {first, first, First, true});
    row("changed", {first, second, Second, true});
    row("outage", {first, {404}, "", true, [] {}, {}, false});
    row("first one cut off", {cut, second, Second, false});
    row("not to be kept", {kept, second, Second, false});
    row("spoilt body", {first, first, First, false, [] { spoil(-5); }});
    row("spoilt head", {first, first, First, false, [] { spoil(2); }});
    row("truncated", {first, first, First, false, truncate});
    row("folder gone", {first, first, First, false, [] { QDir(folder()).removeRecursively(); }});
    row("no folder", {first, first, First, false, [] {
                          QDir(folder()).removeRecursively();
                          Files::write(folder(), "in the way");
                      }});
    HttpRequest part;
    part.offset = 3;
    row("part at first", {tagged("part", 206), first, First, false, [] {}, part});
    HttpRequest secret;
    secret.headers["Authorization"] = "secret";
    row("secret at first", {first, first, First, false, [] {}, secret});
}

void tst_Revalidation::twice()
{
    QFETCH(Ask, ask);
    HttpServer server;
    const QUrl url = server.url("/x");
    Http http;
    server.answer("/x", {ask.first});
    ask.how.url = url;
    end(watch(http.request(ask.how)));
    ask.between();
    server.answer("/x", {ask.second});
    LogCapture capture;
    const QStringList data = end(watch(http.get(url))).filter("data ");
    QCOMPARE(data, ask.successful ? QStringList("data " + ask.body) : QStringList());
    const HttpRecord request = server.requests("/x").constLast();
    QCOMPARE(request.headers.contains("if-none-match"), ask.conditional);
    QCOMPARE(capture.text.contains("CACHE"), ask.conditional && ask.body == First);
}

QTEST_GUILESS_MAIN(tst_Revalidation)

#include "tst_revalidation.moc"
