#include "Files.h"
#include "SmallDisk.h"
#include "ZipCpp.h"

#include <QRandomGenerator>
#include <QSignalSpy>
#include <QStorageInfo>
#include <QTemporaryDir>
#include <QTextCodec>
#include <QtTest>

#include <optional>

namespace
{
// Where the archive's directory holds what is said of an entry.
constexpr int EntrySize = 46;
constexpr int Flags = 8, Method = 10, Crc = 16, PackedSize = 20, Size = 24, Comment = 32, Mode = 41;

/// An archive of "a" and an entry of this very \a name, which the writer would tidy up.
QByteArray withName(const QByteArray &name, const QByteArray &content)
{
    const QByteArray placeholder(name.size(), 'q');
    return Files::zip({{"a", "1"}, {placeholder, content}}).replace(placeholder, name);
}

/// Lists the one entry of \a archive again, as "b" and with the same data.
QByteArray overlapping(QByteArray archive)
{
    const int start = archive.indexOf("PK\1\2"), end = archive.indexOf("PK\5\6");
    archive[end + 8] = archive[end + 10] = 2;
    const QByteArray entry = archive.mid(start, end - start);
    return archive.insert(end, QByteArray(entry).replace(EntrySize, 1, "b"));
}

/// An archive of "a" and of entries that announce more than the disk has.
QByteArray announcingTooMuch()
{
    Files::Tree tree{{"a", "1"}};
    // Some space may become free meanwhile.
    qint64 left = QStorageInfo(QDir::tempPath()).bytesAvailable() + (8LL << 30);
    for (; left >= 0; left -= 1LL << 32)
        tree[QString("b%1").arg(tree.size())] = "2";
    QByteArray archive = Files::zip(tree);
    int at = archive.indexOf("PK\1\2");
    while ((at = archive.indexOf("PK\1\2", at + 1)) > 0)
        archive.replace(at + Size, 4, "\xff\xff\xff\xff");
    return archive;
}

/// Files of one byte that the archive's directory says 64 KiB about, each.
Files::Tree commented(int count)
{
    Files::Tree tree;
    for (int i = 1000; i < 1000 + count; ++i)
        tree[QString::number(i)] = "1";
    return tree;
}
QByteArray withComments(QByteArray archive)
{
    int at = 0;
    while ((at = archive.indexOf("PK\1\2", at + 1)) > 0) {
        archive.replace(at + Comment, 2, "\xff\xff");
        archive.insert(at + EntrySize + 4, QByteArray(65535, 'c'));
    }
    return archive;
}

/// The directory of \a archive says \a value of its second entry, in as many bytes.
QByteArray claiming(QByteArray archive, int field, const QByteArray &value)
{
    const int at = archive.indexOf("PK\1\2", archive.indexOf("PK\1\2") + 1);
    return archive.replace(at + field, value.size(), value);
}
} // namespace

class tst_Zip : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase()
    {
        QTextCodec::setCodecForLocale(QTextCodec::codecForName("UTF-8"));
        qRegisterMetaType<EC::ErrorCode>("EC::ErrorCode");
    }

    void unpacks_data()
    {
        QTest::addColumn<QByteArray>("archive");
        QTest::addColumn<Files::Tree>("tree"); // what is written
        QTest::addColumn<QList<int>>("progress");
        const auto row = [](const char *name, const QByteArray &archive, const Files::Tree &tree,
                            const QList<int> &progress) {
            QTest::newRow(name) << archive << tree << progress;
        };
        const Files::Tree plain{{"a", {}}, {"mods/模型.pyc", "2"}, {"z", QByteArray(3 << 20, 'z')}};
        row("well", Files::zip(plain), plain, {33, 66, 100});
        row("folders that look like files",
            Files::zip({{"f", {}}, {"f/c/d", "1"}, {"mods/", {}}, {"mods/e", "2"}, {"none/", {}}}),
            {{"f/c/d", "1"}, {"mods/e", "2"}}, {20, 40, 60, 80, 100});
        // The three bytes that a "3" is packed into stand for themselves.
        const QByteArray stored =
            claiming(Files::zip({{"a", "1"}, {"b", "3"}}), Method, QByteArray("\0", 1));
        row("stored", claiming(claiming(stored, Size, "\3"), Crc, "\x5d\x25\x36\x8f"),
            {{"a", "1"}, {"b", QByteArray("\x33\6\0", 3)}}, {50, 100});
        const QByteArray link = "\xa1"; // upper byte of a symbolic link's mode
        row("a link that climbs is skipped",
            claiming(Files::zip({{"a", "1"}, {"b/../../evil", "/"}}), Mode, link), {{"a", "1"}},
            {50, 100});

        const QByteArray good = Files::zip({{"a", "1"}, {"b", QByteArray(5000, 'b')}, {"c", "3"}});
        row("cut off", good.left(good.size() / 2), {}, {});
        row("no entries", Files::zip({}), {}, {});
        for (const char *evil :
             {"mods/../../evil", "../evil", "..\\evil", "./../evil", "mods\\..\\..\\evil", "/evil",
              "\\evil", "c:evil", "aux", "mods/Com1.txt", "b.", "b ", "mods./b", "b?", "b\nc"})
            row(evil, withName(evil, "e"), {}, {});
        const QList<QPair<QByteArray, QString>> harmless{{"./b", "b"},
                                                         {".//./mods/b", "mods/b"},
                                                         {".b", ".b"},
                                                         {".\\mods\\b", "mods/b"},
                                                         {"mods\\b", "mods/b"},
                                                         {"mods/../b", "b"},
                                                         {QByteArray(250, 'n'), QString(250, 'n')}};
        for (const auto &name : harmless)
            row(name.first, withName(name.first, "2"), {{"a", "1"}, {name.second, "2"}}, {50, 100});
        row("folder with a backslash", withName("mods\\", {}), {{"a", "1"}}, {50, 100});
        row("folder itself", withName("./", {}), {{"a", "1"}}, {50, 100});
        QByteArray noise(5000, '\0');
        for (char &byte : noise)
            byte = char(QRandomGenerator::global()->generate());
        row("entries that share their data", overlapping(Files::zip({{"a", noise}})), {}, {});
        const QByteArray tooMuch = announcingTooMuch();
        row("more than the disk", tooMuch, {}, {});
        row("more than the disk, but replaced", tooMuch, {{"a", "1"}},
            {100 / tooMuch.count("PK\3\4")});
        QList<int> steps;
        for (int i = 1; i <= 191; ++i)
            steps += i * 100 / 191;
        row("directory of just below 12 MiB", withComments(Files::zip(commented(191))),
            commented(191), steps);
        row("directory of more than 12 MiB", withComments(Files::zip(commented(192))), {}, {});
        const QString folder = QString(199, 'd') + '/';
        row("path of 3,800 characters", Files::zip({{"a", "1"}, {folder.repeated(19) + "b", "2"}}),
            {{"a", "1"}, {folder.repeated(19) + "b", "2"}}, {50, 100});

        // The second entry's turn comes after the first is written.
        const auto second = [&](const char *name, const QByteArray &archive) {
            row(name, archive, {{"a", "1"}}, {33});
        };
        second("encrypted", claiming(good, Flags, "\1"));
        second("another method", claiming(good, Method, "\14"));
        second("another checksum", claiming(good, Crc, "\1\2\3\4"));
        const QByteArray shorter = claiming(good, Size, QByteArray("\1\0\0\0", 4));
        second("too small, with its checksum", claiming(shorter, Crc, "\xf9\xef\xbe\x71"));
        second("too large", claiming(good, Size, QByteArray("\0\x20\0\0", 4)));
        row("packed beyond the end", claiming(good, PackedSize, "\xf0\xff\xff\xff"), {}, {});
        second("damaged header", QByteArray(good).replace(good.indexOf("PK\3\4", 1), 1, "Q"));
        second("target is a folder", Files::zip({{"a", "1"}, {"folder", "2"}, {"z", "3"}}));
#ifdef Q_OS_UNIX
        row("path of 4,200 characters", Files::zip({{"a", "1"}, {folder.repeated(21) + "b", "2"}}),
            {{"a", "1"}}, {50});
        row("full disk", Files::zip({{"a", "1"}, {"full", QByteArray(3000, 'f')}}), {{"a", "1"}},
            {50});
        row("full disk, over a file", Files::zip({{"a", "1"}, {"b", QByteArray(3000, 'f')}}),
            {{"a", "1"}}, {50});
#endif
    }

    void unpacks()
    {
        QFETCH(QByteArray, archive);
        QFETCH(Files::Tree, tree);
        QFETCH(QList<int>, progress);
        QTemporaryDir dir;
        const QString path = dir.filePath("package"), game = dir.filePath("root/game");
        const QByteArray tag = QTest::currentDataTag();
        Files::write(path, archive);
        Files::Tree expected{{"game/a", "an old file"},
                             {"game/b", "another"},
                             {"game/a.brekka-part", "of a kill"},
                             {"game/y.brekka-part", "theirs"}};
        for (auto file = expected.begin(); file != expected.end(); ++file)
            Files::write(dir.filePath("root/") + file.key(), file.value());
        QVERIFY(QDir(game).mkpath("folder/below"));
        QString destination = game;
#ifdef Q_OS_UNIX
        destination = dir.filePath("link");
        QVERIFY(QFile::link(game, destination));
#endif
        if (tag == "more than the disk, but replaced")
            QVERIFY(QFile::resize(game + "/a", QStorageInfo(game).bytesAvailable() + (32LL << 30)));
        std::optional<SmallDisk> disk;
        if (tag.startsWith("full disk"))
            disk.emplace();

        ZipCpp zip;
        QSignalSpy range(&zip, &ZipCpp::OnExtractingRange);
        QSignalSpy names(&zip, &ZipCpp::OnExtractingFileName);
        QSignalSpy value(&zip, &ZipCpp::OnExtractCompleteValue);
        QSignalSpy result(&zip, &ZipCpp::OnExtractingResult);
        zip.OnUnzipFile(path, destination);
        disk.reset();

        const bool good = progress.endsWith(100);
        QCOMPARE(result.count(), 1);
        QCOMPARE(result.first().first().toString(), path);
        QCOMPARE(result.first().last().value<EC::ErrorCode>(),
                 good ? EC::SUCCESS : EC::FILE_OPEN_FAILED);
        QCOMPARE(range.value(0).value(0).toInt(), progress.isEmpty() ? 0 : 100);
        QList<int> values;
        for (const QVariantList &arguments : value)
            values += arguments.first().toInt();
        QCOMPARE(values, progress);
        QCOMPARE(names.count(), good ? tree.size() : progress.size());
        QStringList written;
        for (const QVariantList &arguments : names)
            written += arguments.first().toString().mid(destination.size() + 1);
        written.sort();
        // Nothing but what stands before and behind the names is tidied up.
        if (good)
            QCOMPARE(written,
                     tag == "mods/../b" ? QStringList({"a", tag}) : QStringList(tree.keys()));
        if (tree.contains("a") || tag == "more than the disk")
            expected.remove("game/a.brekka-part");
        for (auto file = tree.begin(); file != tree.end(); ++file)
            expected["game/" + file.key()] = file.value();
        QCOMPARE(Files::readTree(dir.filePath("root")), expected);
    }

    void fits_data()
    {
        QTest::addColumn<qint64>("free");
        QTest::addColumn<qint64>("announced");
        QTest::addColumn<qint64>("present");
        QTest::addColumn<bool>("does");
        const auto row = [](const char *name, qint64 free, qint64 announced, qint64 present,
                            bool does) {
            QTest::newRow(name) << free << announced << present << does;
        };
        row("to the last byte", 10, 10, 0, true);
        row("one more", 10, 11, 0, false);
        row("replaces, to the last byte", 10, 30, 20, true);
        row("replaces, one more", 10, 31, 20, false);
        row("shrinks on a volume almost full", 1, 10, 20, true);
        row("large", 6LL << 32, 7LL << 32, 1LL << 32, true);
        row("space 0, not told", 0, 10, 0, true);
        row("space -1, not told", -1, 10, 0, true);
    }

    void fits()
    {
        QFETCH(qint64, free);
        QFETCH(qint64, announced);
        QFETCH(qint64, present);
        QTEST(ZipCpp::fits(free, announced, present), "does");
    }
};

QTEST_GUILESS_MAIN(tst_Zip)
#include "tst_zip.moc"
