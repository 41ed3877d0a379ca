#include "Files.h"
#include "SmallDisk.h"
#include "ZipCpp.h"

#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTextCodec>
#include <QtTest>

namespace
{
// Where the archive's directory holds what is said of an entry.
constexpr int Flags = 8, Method = 10, Crc = 16, PackedSize = 20, Size = 24, Mode = 41;

/// The directory of \a archive says \a value of its entry \a number, in as many bytes.
QByteArray claiming(QByteArray archive, int number, int field, const QByteArray &value)
{
    int at = -1;
    for (int i = 0; i <= number; ++i)
        at = archive.indexOf("PK\1\2", at + 1);
    return archive.replace(at + field, value.size(), value);
}
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
};

void tst_Zip::initTestCase()
{
    QTextCodec::setCodecForLocale(QTextCodec::codecForName("UTF-8"));
    qRegisterMetaType<EC::ErrorCode>("EC::ErrorCode");
}

void tst_Zip::unpacks_data()
{
    QTest::addColumn<QByteArray>("archive");
    QTest::addColumn<Files::Tree>("tree"); // unpacked
    QTest::addColumn<QList<int>>("progress");
    const auto row = [](const char *name, const Files::Tree &tree, const QList<int> &progress) {
        QTest::newRow(name) << Files::zip(tree) << tree << progress;
    };
    row("one", {{"a", "1"}}, {100});
    row("two, one empty", {{"a", {}}, {"b/c", "2"}}, {50, 100});
    row("three, nested, Chinese, large",
        {{"x/b/c/d", "1"}, {"mods/模型.pyc", "2"}, {"z", QByteArray(3 << 20, 'z')}}, {33, 66, 100});
    QTest::newRow("folders that look like files")
        << Files::zip({{"b", {}}, {"b/c/d", "1"}, {"mods/", {}}, {"mods/e", "2"}, {"none/", {}}})
        << Files::Tree{{"b/c/d", "1"}, {"mods/e", "2"}} << QList<int>{20, 40, 60, 80, 100};
    const QByteArray link = "\xa1"; // upper byte of a symbolic link's mode
    QTest::newRow("a link that climbs is skipped")
        << claiming(Files::zip({{"a", "1"}, {"b/../../evil", "/"}}), 1, Mode, link)
        << Files::Tree{{"a", "1"}} << QList<int>{50, 100};
}

void tst_Zip::unpacks()
{
    QFETCH(QByteArray, archive);
    QFETCH(Files::Tree, tree);
    QFETCH(QList<int>, progress);
    QTemporaryDir dir;
    const QString path = dir.filePath("package"), game = dir.filePath("game");
    Files::write(path, archive);
    Files::write(game + "/a", "an old and longer file");
    Files::write(game + "/untouched", "u");

    ZipCpp zip;
    QSignalSpy range(&zip, &ZipCpp::OnExtractingRange);
    QSignalSpy value(&zip, &ZipCpp::OnExtractCompleteValue);
    QSignalSpy result(&zip, &ZipCpp::OnExtractingResult);
    zip.OnUnzipFile(path, game);

    QCOMPARE(range, (QList<QVariantList>{{qulonglong(100)}}));
    QList<int> values;
    for (const QVariantList &arguments : value)
        values += arguments.first().toInt();
    QCOMPARE(values, progress);
    QCOMPARE(result.count(), 1);
    QCOMPARE(result.first().first().toString(), path);
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
    const auto row = [](const char *name, const QByteArray &archive, const Files::Tree &left) {
        QTest::newRow(name) << archive << left;
    };
    row("no archive", "this is no archive", old);
    row("cut off", good.left(good.size() / 2), old);
    row("nothing", {}, old);
    row("no entries", Files::zip({}), old);
    for (const char *evil : {"mods/../../evil", "mods\\..\\..\\evil", "c:/evil", "../evil", ".dot"})
        row(evil, Files::zip({{"a", "1"}, {evil, "e"}}), old);

    // The second entry's turn comes after the first is written.
    const auto second = [&](const char *name, int field, const QByteArray &value) {
        row(name, claiming(good, 1, field, value), firstWritten);
    };
    second("encrypted", Flags, "\1");
    second("another method", Method, "\14");
    second("too small", Size, QByteArray("\1\0\0\0", 4));
    const QByteArray shorter = claiming(good, 1, Size, QByteArray("\1\0\0\0", 4));
    row("too small, with its checksum", claiming(shorter, 1, Crc, "\xf9\xef\xbe\x71"),
        firstWritten);
    second("another checksum", Crc, "\1\2\3\4");
    second("too large", Size, QByteArray("\0\x20\0\0", 4));
    second("enormous", Size, "\xf0\xff\xff\x7f");
    second("packed beyond the end", PackedSize, "\xf0\xff\xff\xff");
    second("packed short", PackedSize, QByteArray("\1\0\0\0", 4));
    const int header = good.indexOf("PK\3\4", 1), data = good.indexOf('b', header) + 1;
    row("damaged header", QByteArray(good).replace(header, 1, "Q"), firstWritten);
    row("damaged data", QByteArray(good).replace(data, 1, "\xff"), firstWritten);
#ifdef Q_OS_UNIX
    row("full disk", Files::zip({{"a", "1"}, {"full", QByteArray(3000, 'f')}}),
        {{"a", "1"}, {"b", "old"}, {"full", QByteArray(2000, 'f')}});
#endif
    row("target is a folder", Files::zip({{"a", "1"}, {"folder", "2"}, {"z", "3"}}), firstWritten);
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
        [[maybe_unused]] const SmallDisk disk;
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
