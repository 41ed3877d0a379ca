#include "FileReplacement.h"
#include "Files.h"
#include "SmallDisk.h"

#include <QTemporaryDir>
#include <QtTest>

#include <functional>
#include <optional>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/xattr.h>
#include <unistd.h>

using FileReplacement::Result;

using Step = std::function<void(const QByteArray &)>; // given the target's path
Q_DECLARE_METATYPE(Step)
Q_DECLARE_METATYPE(Result)

namespace
{
constexpr uid_t Stranger = 65534;

int reserveError = 0; // what fallocate() answers

struct stat statusOf(const QString &path)
{
    struct stat status = {};
    stat(QFile::encodeName(path).constData(), &status);
    return status;
}
} // namespace

/// The system's, or that of another file system: ext4 has grown the file already when it finds that
/// the disk is full.
extern "C" int fallocate(int handle, int mode, off_t offset, off_t size)
{
    if (reserveError == 0)
        return int(syscall(SYS_fallocate, handle, mode, offset, size));
    if (reserveError == ENOSPC && ftruncate(handle, size - 1) != 0)
        return -1;
    errno = reserveError;
    return -1;
}

/// One target "file" in a folder, which holds an old content in most rows.
class tst_FileReplacement : public QObject
{
    Q_OBJECT
private slots:
    void replaces_data()
    {
        QTest::addColumn<Step>("prepare");
        QTest::addColumn<int>("size"); // of the new content
        QTest::addColumn<bool>("inPlace");
        QTest::addColumn<Result>("result");
        QTest::addColumn<bool>("isSameFile");
        const auto row = [](const QByteArray &name, Step prepare, int size, bool inPlace,
                            Result result, bool isSameFile = true) {
            QTest::newRow(name.constData()) << prepare << size << inPlace << result << isSameFile;
        };
        const auto nothing = [](const QByteArray &) {};
        const auto remove = [](const QByteArray &file) { unlink(file); };
        const auto hardLink = [](const QByteArray &file) { QCOMPARE(link(file, file + "2"), 0); };
        const auto leftover = [](const QByteArray &file) {
            Files::write(file + FileReplacement::Suffix, QByteArray(9000, 'l'));
        };
        const auto mode = [](const QByteArray &file) { chmod(file, 02751); };
        const auto list = [](const QByteArray &file) {
            // One more user may read it.
            const QByteArray bytes = QByteArray::fromHex(
                "0200000001000600ffffffff02000400efbeadde04000400ffffffff10000400ffffffff"
                "20000000ffffffff");
            QCOMPARE(setxattr(file, "system.posix_acl_access", bytes, size_t(bytes.size()), 0), 0);
        };
        const auto folder = [](const QByteArray &file) {
            unlink(file);
            mkdir(file, 0755);
        };
        const auto beyondLink = [](const QByteArray &file) {
            rename(file, file + ".d");
            symlink("file.d", file);
        };
        const auto beyondNothing = [](const QByteArray &file) {
            unlink(file);
            symlink("file.d", file);
        };
        const auto blocked = [](const QByteArray &file) {
            mkdir(file + FileReplacement::Suffix, 0755);
        };
        constexpr bool InPlace = true;
        row("another file", nothing, 1500, false, Result::Replaced, false);
        row("empty", nothing, 0, false, Result::Replaced, false);
        row("new", remove, 1500, false, Result::Replaced, false);
        row("over a leftover", leftover, 1500, false, Result::Replaced, false);
        row("mode stays", mode, 1500, false, Result::Replaced, false);
        row("beyond a link", beyondLink, 1500, false, Result::Replaced, false);
        row("link to nothing", beyondNothing, 1500, false, Result::Replaced, false);
        row("folder", folder, 1500, InPlace, Result::NotOpened);
        for (const bool inPlace : {false, InPlace}) {
            const Result result = inPlace ? Result::Replaced : Result::NotWritten;
            const QByteArray suffix = inPlace ? ", in place" : "";
            row(QByteArray("hard links" + suffix), hardLink, 10, inPlace, result);
            row(QByteArray("access list" + suffix), list, 1500, inPlace, result);
            row(QByteArray("no new file" + suffix), blocked, 1500, inPlace, result);
            row(QByteArray("full disk" + suffix), nothing, 3000, inPlace, Result::NotWritten);
            row(QByteArray("full disk, new" + suffix), remove, 3000, inPlace, Result::NotWritten);
        }
        row("full disk, hard links", hardLink, 3000, InPlace, Result::NotWritten);
        row("full disk, no new file", blocked, 3000, InPlace, Result::NotWritten);
        const auto full = [=](const QByteArray &file) {
            hardLink(file);
            reserveError = ENOSPC;
        };
        const auto unknown = [](const QByteArray &) { reserveError = EOPNOTSUPP; };
        const auto linkUnknown = [=](const QByteArray &file) {
            hardLink(file);
            reserveError = EOPNOTSUPP;
        };
        row("full when the space is reserved", full, 1500, InPlace, Result::NotWritten);
        row("space unknown", linkUnknown, 1500, InPlace, Result::Replaced);
        row("space unknown, full disk", unknown, 3000, InPlace, Result::NotWritten);
    }

    void replaces()
    {
        QFETCH(Step, prepare);
        QFETCH(int, size);
        QFETCH(bool, inPlace);
        QFETCH(Result, result);
        QFETCH(bool, isSameFile);
        QTemporaryDir dir;
        const QString path = dir.filePath("file");
        Files::write(path, QByteArray(1000, 'o'));
        prepare(path.toUtf8());
        const Files::Tree before = Files::readTree(dir.path());
        const struct stat old = statusOf(path);
        const bool isLink = QFileInfo(path).isSymLink();
        const QByteArray content(size, 'n');

        QString error;
        std::optional<SmallDisk> disk(std::in_place);
        const Result actual =
            FileReplacement::replace(path, content, {FileReplacement::Sync::File, inPlace}, &error);
        disk.reset();
        reserveError = 0;
        QCOMPARE(actual, result);
        QCOMPARE(error.isEmpty(), result == Result::Replaced);
        const struct stat now = statusOf(path);
        QCOMPARE(QFileInfo(path).isSymLink(), isLink);
        if (old.st_nlink > 0) {
            QCOMPARE(now.st_mode, old.st_mode);
            QCOMPARE(now.st_ino == old.st_ino, isSameFile || result != Result::Replaced);
        }
        Files::Tree expected = before;
        if (result == Result::Replaced) {
            expected.remove(QString("file") + FileReplacement::Suffix);
            expected[QFileInfo(QFileInfo(path).canonicalFilePath()).fileName()] = content;
            if (expected.contains("file2"))
                expected["file2"] = content;
            if (isLink)
                expected["file"] = content;
        }
        QCOMPARE(Files::readTree(dir.path()), expected);
        FileReplacement::removeLeftover(path);
    }

    /// Its owner keeps a file, whoever replaces it.
    void owner()
    {
        if (geteuid() != 0) {
            qWarning("SKIP: only root can give files away");
            return;
        }
        QTemporaryDir dir;
        chmod(dir.path().toUtf8(), 0777);
        const QByteArray given = dir.filePath("given").toUtf8(), roots = dir.filePath("r").toUtf8();
        for (const QByteArray &file : {given, roots}) {
            Files::write(file, "old");
            chmod(file, 0666);
        }
        QCOMPARE(chown(given, Stranger, Stranger), 0);
        const ino_t inode = statusOf(roots).st_ino;
        QCOMPARE(FileReplacement::replace(given, "new"), Result::Replaced);
        QCOMPARE(seteuid(Stranger), 0);
        const Result refused = FileReplacement::replace(roots, "new");
        const Result inPlace =
            FileReplacement::replace(roots, "new", {FileReplacement::Sync::None, true});
        QCOMPARE(seteuid(0), 0);
        QCOMPARE(refused, Result::NotWritten);
        QCOMPARE(inPlace, Result::Replaced);
        QCOMPARE(statusOf(given).st_uid, Stranger);
        QCOMPARE(statusOf(roots).st_uid, uid_t(0));
        QCOMPARE(statusOf(roots).st_ino, inode);
        QCOMPARE(Files::readTree(dir.path()), (Files::Tree{{"given", "new"}, {"r", "new"}}));
    }

    /// What mustn't be written isn't replaced in a folder that may be, and the other way round.
    void rights_data()
    {
        QTest::addColumn<int>("folder"); // modes
        QTest::addColumn<int>("file");
        QTest::addColumn<bool>("isNew");
        QTest::addColumn<Result>("result");
        QTest::newRow("read-only file") << 0777 << 0444 << false << Result::NotOpened;
        QTest::newRow("read-only folder") << 0555 << 0666 << false << Result::Replaced;
        QTest::newRow("read-only folder, new") << 0555 << 0666 << true << Result::NotOpened;
        QTest::newRow("folder without listing") << 0333 << 0666 << false << Result::Replaced;
    }

    void rights()
    {
        QFETCH(int, folder);
        QFETCH(int, file);
        QFETCH(bool, isNew);
        QFETCH(Result, result);
        QTemporaryDir dir;
        const QString path = dir.filePath("file"), target = dir.filePath(isNew ? "new" : "file");
        Files::write(path, "old");
        chmod(path.toUtf8(), mode_t(file));
        chmod(dir.path().toUtf8(), mode_t(folder));
        const uid_t user = geteuid();
        if (user == 0) // whose rights reach everywhere
            QVERIFY(chown(path.toUtf8(), Stranger, gid_t(-1)) == 0 && seteuid(Stranger) == 0);
        const Result actual =
            FileReplacement::replace(target, "new", {FileReplacement::Sync::Batch, true});
        const bool isSynced = FileReplacement::syncBatch(dir.path());
        QCOMPARE(seteuid(user), 0);
        chmod(dir.path().toUtf8(), 0700);
        QCOMPARE(actual, result);
        QVERIFY(isSynced);
        QCOMPARE(Files::readTree(dir.path()),
                 (Files::Tree{{"file", result == Result::Replaced ? "new" : "old"}}));
    }

    /// A pipe takes what is meant for it and stays one.
    void pipe()
    {
        QTemporaryDir dir;
        const QByteArray path = dir.filePath("pipe").toUtf8();
        QCOMPARE(mkfifo(path, 0600), 0);
        const int reader = open(path, O_RDWR | O_NONBLOCK);
        QCOMPARE(FileReplacement::replace(path, "new", {FileReplacement::Sync::File, true}),
                 Result::Replaced);
        QVERIFY(S_ISFIFO(statusOf(path).st_mode));
        char content[8] = {};
        QCOMPARE(read(reader, content, sizeof content), ssize_t(3));
        close(reader);
    }
};

QTEST_GUILESS_MAIN(tst_FileReplacement)
#include "tst_filereplacement.moc"
