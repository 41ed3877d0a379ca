#include "InstanceProbe.h"
#include "UserName.h"
#include "WaitFor.h"

#include <QLocalSocket>
#include <QtTest>

#include <cstring>
#include <memory>
#include <vector>

#include <sched.h>
#include <sys/shm.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#define EVENTUALLY(condition) WAIT_FOR_MS(condition, patience())

namespace
{
QByteArray lowerPath()
{
    return QCoreApplication::applicationFilePath().toLower().toUtf8();
}

QString keyOf(const QByteArray &ownPart = lowerPath())
{
    const QByteArray digest = QCryptographicHash::hash(
        "SingleApplicationtst_instanceguard" + ownPart, QCryptographicHash::Sha256);
    return QString::fromLatin1(digest.toBase64()).replace('/', '_');
}

template <typename... Values>
QByteArray packed(const Values &...values)
{
    QByteArray bytes;
    QDataStream stream(&bytes, QIODevice::WriteOnly);
    (stream << ... << values);
    return bytes;
}

QByteArray greeting(const QString &key, quint8 kind, quint32 id, quint16 checksumError = 0)
{
    const QByteArray body = packed(key.toLatin1(), kind, id);
    const quint16 checksum = qChecksum(body.constData(), uint(body.size())) ^ checksumError;
    return packed(quint64(body.size() + 2)) + body + packed(checksum);
}
} // namespace

class tst_InstanceGuard : public QObject
{
    Q_OBJECT
    std::unique_ptr<QTemporaryDir> m_temp;
    const QString ownFolder = "brekka-" + QString::number(geteuid());

    QString path(const QString &name) const { return m_temp->filePath(name); }
    QString blockFile(const QString &folder = "run/") const
    {
        return path(folder + QFileInfo(QSharedMemory(keyOf()).nativeKey()).fileName());
    }
    static key_t systemKey(const QString &file) { return ftok(qPrintable(file), 'Q'); }

    /// What \a primary has told since its start, once it has handled everything sent so far.
    QByteArray reportsOf(Probe &primary)
    {
        QLocalSocket socket;
        socket.connectToServer(path("run/" + keyOf()));
        socket.write(greeting(keyOf(), 3, 99) + "end");
        if (!QTest::qWaitFor([&] { return primary.has("message 99 end"); }, patience()))
            return "no end";
        return primary.lines().mid(1, primary.lines().size() - 2).join(", ");
    }

private slots:
    // Probes inherit the folders, so each test has instances of its own.
    void init()
    {
        qunsetenv("TMPDIR");
        m_temp = std::make_unique<QTemporaryDir>();
        qputenv("TMPDIR", m_temp->path().toUtf8());
        qputenv("XDG_RUNTIME_DIR", path("run").toUtf8());
        qputenv("XDG_CACHE_HOME", path("cache").toUtf8());
        QCOMPARE(mkdir(qPrintable(path("run")), 0700), 0);
    }

    void starts_data()
    {
        // A race has to be lost before it shows: set the variable for a longer hunt, without ctest,
        // which would end it.
        QTest::addColumn<int>("round");
        for (int i = 0; i < qMax(6, qEnvironmentVariableIntValue("BREKKA_RACES")); ++i)
            QTest::addRow("%d", i) << i;
    }

    /// Without a runtime folder, so that the first ones create one for all.
    void starts()
    {
        QFETCH(int, round);
        const bool shared = round % 3 == 2; // in the temporary folder, where a name is taken
        const QString place = shared ? ownFolder + "-1/" : "cache/tst_instanceguard/run/";
        QVERIFY(QFile(path(shared ? "cache" : "unused")).open(QIODevice::WriteOnly));
        QVERIFY(QFile(path(ownFolder)).open(QIODevice::WriteOnly));
        QVERIFY(qunsetenv("XDG_RUNTIME_DIR"));

        if (round % 2) // an orphan is in the way
            startPrimary()->kill();
        std::vector<ProbePtr> probes(10);
        for (ProbePtr &probe : probes)
            probe = std::make_unique<Probe>();
        for (const ProbePtr &probe : probes)
            EVENTUALLY(!probe->lines().isEmpty());
        std::partition(probes.begin(), probes.end(), std::mem_fn(&Probe::isPrimary));
        Probe &primary = *probes.front();
        QVERIFY(primary.isPrimary() && !probes[1]->isPrimary());
        for (size_t i = 1; i < probes.size(); ++i) {
            probes[i]->write("hi\n");
            EVENTUALLY(probes[i]->has("sent"));
            QCOMPARE(probes[i]->quit(), 0);
        }
        for (int i = 1; i < 10; ++i)
            EVENTUALLY(primary.has("message " + QByteArray::number(i) + " hi"));
        QCOMPARE(primary.lines().count("started"), 9);

        // The last one leaves nothing behind. By number: as soon as a key is free, any other
        // program may come to use it.
        const int block = shmget(systemKey(blockFile(place)), 0, 0);
        QVERIFY(block != -1);
        QCOMPARE(primary.quit(round % 3 ? "" : "exit\n"), 0);
        shmid_ds state = {};
        QCOMPARE(shmctl(block, IPC_STAT, &state), -1);
        QVERIFY(QDir(path(place)).isEmpty(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot));
    }

    void places_data()
    {
        // "~" stands for the temporary folder, "*" makes the longest path that a socket can have.
        QTest::addColumn<QString>("runtime");
        QTest::addColumn<QString>("cache");
        QTest::addColumn<QString>("setup"); // done there by a shell; $own is ownFolder
        QTest::addColumn<QString>("place");
        const QString cache = "cache/tst_instanceguard/run";
        const auto row = [](const char *name, const QString &runtime, const QString &caches,
                            const QString &setup, const QString &place) {
            QTest::newRow(name) << runtime << caches << setup << place;
        };
        row("own", "~/own", "~/cache", "mkdir -m 700 own", "own");
        row("longest", "~/*", "~/cache", "mkdir -m 700 $longest", "*");
        row("too long", "~/*r", "~/cache", "mkdir -m 700 ${longest}r", cache);
        row("relative", "own", "~/cache", "mkdir -m 700 own", cache);
        row("no folder", "~/file", "~/cache", "touch file", cache);
        row("the group's, too", "~/group", "~/cache", "mkdir -m 710 group", cache);
        row("everybody's", "~/all", "~/cache", "mkdir -m 701 all", cache);
        row("a link", "~/link", "~/cache", "mkdir -m 700 own; ln -s own link", cache);
        row("used before", "~/own", "~/cache", "mkdir -m 700 own $own-15; touch $own-15/$block",
            ownFolder + "-15");

        row("cache too long", "", "~/*", "", ownFolder);
        row("relative cache", "", "cache", "", ownFolder);
        row("no cache folder", "", "~/cache", "touch cache", ownFolder);
        row("everybody's cache", "", "~/", "mkdir -p tst_instanceguard/run", ownFolder);
        row("names taken", "", "/dev/null",
            "mkdir -m 700 own; ln -s own $own; mkdir -m 777 $own-1; touch own/$block $own-1/$block",
            ownFolder + "-2");
        row("all names taken", "", "/dev/null",
            "touch $own; for i in $(seq 15); do touch $own-$i; done", "/tmp/" + ownFolder);
        if (geteuid() != 0) // who alone can give a folder away, and mount one
            return;
        row("somebody else's", "~/own", "/dev/null", "mkdir -m 700 own $own; chown 12345 own $own",
            ownFolder + "-1");
        if (unshare(CLONE_NEWNS) == 0)
            row("read-only", "~/own", "~/cache",
                "mkdir own; mount --make-rprivate /; mount -t tmpfs -o ro,mode=700 none own",
                cache);
    }

    /// No other user may be able to take the files away, nor stand in the way with theirs.
    void places()
    {
        QFETCH(QString, runtime);
        QFETCH(QString, cache);
        QFETCH(QString, setup);
        QFETCH(QString, place);
        QVERIFY(QDir::setCurrent(m_temp->path()));
        const QString longest(61 - m_temp->path().size(), 'r');
        qputenv("own", ownFolder.toUtf8());
        qputenv("longest", longest.toUtf8());
        qputenv("block", QFileInfo(blockFile()).fileName().toUtf8());
        QProcess::execute("sh", {"-c", setup});
        for (QString *folder : {&runtime, &cache, &place})
            folder->replace('~', m_temp->path()).replace('*', longest);
        qputenv("XDG_RUNTIME_DIR", runtime.toUtf8());
        qputenv("XDG_CACHE_HOME", cache.toUtf8());

        const ProbePtr primary = startPrimary();
        const Probe second;
        EVENTUALLY(primary->has("started"));
        // Old files are cleared away.
        const QDir folder(QDir().absoluteFilePath(place));
        const QByteArray files[] = {folder.filePath(keyOf()).toUtf8(),
                                    folder.filePath(QFileInfo(blockFile()).fileName()).toUtf8()};
        const timeval old[2] = {};
        for (const QByteArray &file : files)
            QCOMPARE(utimes(file, old), 0);
        primary->write("timers\n");
        for (const QByteArray &file : files)
            EVENTUALLY(QFileInfo(file).lastModified().toSecsSinceEpoch() > 0);
        QProcess::execute("sh", {"-c", "umount own 2>/dev/null"});
    }

    /// The program runs on, but its window can't be raised.
    void listening()
    {
        QVERIFY(QDir(path("run")).mkdir(keyOf()));
        const ProbePtr primary = startPrimary();
        QVERIFY(primary->readErrors().contains("SingleApplication: Unable to listen"));
    }

    void successor()
    {
        const ProbePtr first = startPrimary();
        Probe second;
        EVENTUALLY(second.has("secondary " + first->identity()));
        first->write("to myself\n");
        EVENTUALLY(first->has("not sent"));
        QCOMPARE(first->quit(), 0);
        const ProbePtr third = startPrimary();
        second.write("y\n");
        EVENTUALLY(third->has("message 1 y"));
        // A block that a living process holds is never freed, even if its primary crashed.
        const QByteArray role = "secondary " + third->identity();
        third->kill();
        QVERIFY(third->waitForFinished());
        Probe fourth;
        EVENTUALLY(fourth.has(role));
    }

    void inconsistentBlock()
    {
        QSharedMemory block;
        block.setNativeKey(blockFile());
        QVERIFY(block.create(152));
        std::memset(block.data(), 0x55, 152);
        QElapsedTimer timer;
        timer.start();
        const ProbePtr primary = startPrimary();
        QVERIFY(timer.elapsed() > 5000);
        QVERIFY(primary->readErrors().contains(
            "SingleApplication: Shared memory block has been in an inconsistent state from more "
            "than 5s. Assuming primary instance failure."));
        QCOMPARE(QByteArray(static_cast<const char *>(block.constData()), 8),
                 QByteArray::fromHex("0155555500000000"));
    }

    /// Another program's block that chance put under our key is neither used nor freed.
    void foreignBlock()
    {
        QVERIFY(QFile(blockFile()).open(QIODevice::WriteOnly));
        const int foreign = shmget(systemKey(blockFile()), 64, IPC_CREAT | IPC_EXCL | 0600);
        const ProbePtr primary = startPrimary();
        Probe second;
        EVENTUALLY(second.has("secondary " + primary->identity()));
        QCOMPARE(second.quit(), 0);
        QCOMPARE(primary->quit(), 0);
        shmid_ds state = {};
        const bool untouched = shmctl(foreign, IPC_STAT, &state) == 0 && state.shm_atime == 0;
        shmctl(foreign, IPC_RMID, nullptr);
        QVERIFY(untouched);
    }

    void keys_data()
    {
        QTest::addColumn<QByteArray>("ownPart");
        QTest::newRow("4 1.2 extra") << "extra1.2" + lowerPath();
        QTest::newRow("12 1.2") << lowerPath();
        QTest::newRow("20 1.2") << QByteArray("1.2");
        QTest::newRow("5") << lowerPath() + QByteArray::fromStdString(currentUserName());
    }

    void keys()
    {
        QFETCH(QByteArray, ownPart);
        const ProbePtr primary = startPrimary(QTest::currentDataTag());
        const QFileInfo socket(path("run/" + keyOf(ownPart)));
        QVERIFY(socket.exists());
        QCOMPARE(socket.permission(QFile::WriteOther), qstrcmp(QTest::currentDataTag(), "5") != 0);
    }

    /// Who leaves says so in any case, who stays only if both sides want it.
    void announcements()
    {
        const ProbePtr primary = startPrimary("0");
        Probe staying;
        EVENTUALLY(staying.has("secondary " + primary->identity()));
        QCOMPARE(reportsOf(*primary), QByteArray());
        Probe leaving("0   alone");
        QCOMPARE(leaving.quit(), 0);
        QVERIFY(leaving.lines().isEmpty()); // it had no role
        EVENTUALLY(primary->has("started"));
    }

    void greetings_data()
    {
        QTest::addColumn<QString>("outcome"); // what is reported, or "refused"
        QTest::addColumn<QByteArray>("bytes");
        const QString key = keyOf();
        QTest::newRow("a message") << "started, message 5 hi" << greeting(key, 1, 5) + "hi";
        QTest::newRow("in single bytes") << "started" << greeting(key, 2, 6);
        QTest::newRow("padded key") << "started" << greeting(key + '\0', 1, 8);
        QTest::newRow("wrong key") << "refused" << greeting("-" + key.mid(1), 1, 5) + "hi";
        QTest::newRow("wrong checksum") << "refused" << greeting(key, 1, 5, 1) + "hi";
        QTest::newRow("too short") << "refused" << packed(quint64(54));
        QTest::newRow("too long") << "refused" << packed(quint64(1025));
        QTest::newRow("broken off") << "" << greeting(key, 1, 5).chopped(1);
    }

    void greetings()
    {
        QFETCH(QString, outcome);
        QFETCH(QByteArray, bytes);
        const ProbePtr primary = startPrimary();
        QLocalSocket socket;
        socket.connectToServer(path("run/" + keyOf()));
        const int step = qstrcmp(QTest::currentDataTag(), "in single bytes") ? bytes.size() : 1;
        for (int i = 0; i < bytes.size(); i += step) {
            socket.write(bytes.mid(i, step));
            socket.flush();
            QTest::qWait(2); // lets the primary meet each piece by itself
        }
        const bool refused = outcome == "refused";
        EVENTUALLY(!refused || socket.state() == QLocalSocket::UnconnectedState);
        socket.abort();
        QCOMPARE(reportsOf(*primary), refused ? QByteArray() : outcome.toUtf8());
        QCOMPARE(primary->quit(), 0);
    }
};

int main(int argc, char *argv[])
{
    if (argc > 1 && std::isdigit(*argv[1]))
        return runProbe(argc, argv);
    QCoreApplication application(argc, argv);
    tst_InstanceGuard test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_instanceguard.moc"
