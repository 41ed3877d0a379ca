#include "Files.h"
#include "ZipCpp.h"

#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTextCodec>
#include <QtTest>

#ifdef Q_OS_UNIX
#include <csignal>
#include <sys/resource.h>
#endif

namespace
{
/// While it lives, no file grows larger, as on a disk that fills up; on Windows nothing happens.
struct DiskOf2000Bytes {
#ifdef Q_OS_UNIX
    DiskOf2000Bytes()
    {
        signal(SIGXFSZ, SIG_IGN);
        getrlimit(RLIMIT_FSIZE, &before);
        const rlimit small{2000, before.rlim_max};
        setrlimit(RLIMIT_FSIZE, &small);
    }
    ~DiskOf2000Bytes()
    {
        setrlimit(RLIMIT_FSIZE, &before);
    }
    rlimit before = {};
#endif
};
} // namespace

class tst_Zip : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void unpacks_data();
    void unpacks();
    void refuses_data();
    void refuses();

private:
    static QVariantList flat(const QSignalSpy &spy);
};

void tst_Zip::initTestCase()
{
    QTextCodec::setCodecForLocale(QTextCodec::codecForName("UTF-8"));
    qRegisterMetaType<EC::ErrorCode>("EC::ErrorCode");
}

QVariantList tst_Zip::flat(const QSignalSpy &spy)
{
    QVariantList all;
    for (const QVariantList &arguments : spy)
        all += arguments.first();
    return all;
}

void tst_Zip::unpacks_data()
{
    QTest::addColumn<Files::Tree>("tree");
    QTest::addColumn<QVariantList>("progress");
    const auto wide = [](int percent) { return QVariant(qulonglong(percent)); };
    QTest::newRow("one") << Files::Tree{{"a", "1"}} << QVariantList{wide(100)};
    QTest::newRow("two, one empty")
        << Files::Tree{{"a", {}}, {"b/c", "2"}} << QVariantList{wide(50), wide(100)};
    QTest::newRow("three, nested, Chinese, large")
        << Files::Tree{{"x/b/c/d", "1"}, {"mods/模型.pyc", "2"}, {"z", QByteArray(3 << 20, 'z')}}
        << QVariantList{wide(33), wide(66), wide(100)};
}

void tst_Zip::unpacks()
{
    QFETCH(Files::Tree, tree);
    QFETCH(QVariantList, progress);
    QTemporaryDir dir;
    const QString archive = dir.filePath("package"), game = dir.filePath("game");
    Files::write(archive, Files::zip(tree));
    Files::write(game + "/a", "an old and longer file");
    Files::write(game + "/untouched", "u");

    ZipCpp zip;
    QSignalSpy range(&zip, &ZipCpp::OnExtractingRange);
    QSignalSpy value(&zip, &ZipCpp::OnExtractCompleteValue);
    QSignalSpy result(&zip, &ZipCpp::OnExtractingResult);
    zip.OnUnzipFile(archive, game);

    QCOMPARE(flat(range), QVariantList{qulonglong(100)});
    QCOMPARE(flat(value), progress);
    QCOMPARE(flat(result), QVariantList{archive});
    QCOMPARE(result.first().last().value<EC::ErrorCode>(), EC::SUCCESS);
    Files::Tree expected = tree;
    expected["untouched"] = "u";
    if (!tree.contains("a"))
        expected["a"] = "an old and longer file";
    QCOMPARE(Files::readTree(game), expected);
}

void tst_Zip::refuses_data()
{
    QTest::addColumn<QByteArray>("archive");
    QTest::addColumn<Files::Tree>("left"); // what is in the game folder afterwards
    const Files::Tree old{{"b", "old"}};
    const Files::Tree firstWritten{{"a", "1"}, {"b", "old"}};
    const QByteArray good = Files::zip({{"a", "1"}, {"b", QByteArray(5000, 'b')}, {"c", "3"}});

    QTest::newRow("no archive") << QByteArray("this is no archive") << old;
    QTest::newRow("cut off") << good.left(good.size() / 2) << old;
    QTest::newRow("nothing") << QByteArray() << old;
    QTest::newRow("no entries") << Files::zip({}) << old;
    QTest::newRow("climbs") << Files::zip({{"a", "1"}, {"mods/../../evil", "e"}}) << old;
    QTest::newRow("climbs with backslashes")
        << Files::zip({{"a", "1"}, {"mods\\..\\..\\evil", "e"}}) << old;
    QTest::newRow("drive letter") << Files::zip({{"a", "1"}, {"c:/evil", "e"}}) << old;
    // The reader strips the dots from this name, so it shows at the entry's turn only.
    QTest::newRow("climbs at the start") << Files::zip({{"../evil", "e"}, {"a", "1"}}) << old;

    QByteArray damaged = good;
    const int data = damaged.indexOf("b", damaged.indexOf("PK\003\004", 1)) + 1;
    damaged[data] = char(0xff);
    QTest::newRow("damaged data") << damaged << firstWritten;
#ifdef Q_OS_UNIX
    QTest::newRow("full disk") << Files::zip({{"a", "1"}, {"full", QByteArray(3000, 'f')}})
                               << Files::Tree{
                                      {"a", "1"}, {"b", "old"}, {"full", QByteArray(2000, 'f')}};
#endif
    QTest::newRow("target is a folder")
        << Files::zip({{"a", "1"}, {"folder", "2"}, {"z", "3"}}) << firstWritten;
}

void tst_Zip::refuses()
{
    QFETCH(QByteArray, archive);
    QFETCH(Files::Tree, left);
    QTemporaryDir dir;
    const QString path = dir.filePath("package"), game = dir.filePath("root/game");
    Files::write(path, archive);
    Files::write(game + "/b", "old");
    QDir(game).mkpath("folder/below");

    ZipCpp zip;
    QSignalSpy written(&zip, &ZipCpp::OnExtractingFileName);
    QSignalSpy value(&zip, &ZipCpp::OnExtractCompleteValue);
    QSignalSpy result(&zip, &ZipCpp::OnExtractingResult);
    {
        [[maybe_unused]] const DiskOf2000Bytes disk;
        zip.OnUnzipFile(path, game);
    }

    QCOMPARE(result.count(), 1);
    QCOMPARE(result.first().last().value<EC::ErrorCode>(), EC::FILE_OPEN_FAILED);
    const int handled = left.contains("a") ? 1 : 0;
    QCOMPARE(written.count(), handled);
    QCOMPARE(value.count(), handled);
    Files::Tree expected;
    for (auto file = left.begin(); file != left.end(); ++file)
        expected["game/" + file.key()] = file.value();
    QCOMPARE(Files::readTree(dir.filePath("root")), expected);
}

QTEST_GUILESS_MAIN(tst_Zip)
#include "tst_zip.moc"
