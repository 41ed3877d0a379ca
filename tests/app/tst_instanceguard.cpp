#include "UserName.h"
#include "WaitFor.h"

#include <QCryptographicHash>
#include <QDir>
#include <QLocalSocket>
#include <QProcess>
#include <QSharedMemory>
#include <QTemporaryDir>
#include <QtEndian>
#include <QtTest>

#include <algorithm>
#include <cstring>
#include <memory>
#include <vector>

#include <sys/ipc.h>
#include <sys/shm.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#define EVENTUALLY(condition) WAIT_FOR_MS(condition, Patience)

namespace
{
constexpr int Patience = 60000; // milliseconds
using Lines = QByteArrayList;

/// A process that runs the guard, see InstanceProbe.cpp.
struct Probe : QProcess {
    explicit Probe(const QString &arguments = "4") { start(PROBE_PATH, arguments.split(' ')); }
    ~Probe() override { quit(); }

    void crash()
    {
        kill();
        waitForFinished();
    }
    /// Ends with its input. The exit code, -1 for a crash.
    int quit(const QByteArray &farewell = "quit\n")
    {
        write(farewell);
        closeWriteChannel();
        waitForFinished(Patience);
        return state() == NotRunning && exitStatus() == NormalExit ? exitCode() : -1;
    }
    Lines lines()
    {
        output += readAllStandardOutput();
        return output.split('\n').mid(0, output.count('\n'));
    }
    bool has(const QByteArray &line) { return lines().contains(line); }
    bool isPrimary() { return has("primary " + identity()); }
    QByteArray identity() const
    {
        return QByteArray::number(processId()) + ' ' + QByteArray::fromStdString(currentUserName());
    }

    QByteArray output;
};
using ProbePtr = std::unique_ptr<Probe>;

ProbePtr startPrimary(const QString &arguments = "4")
{
    auto probe = std::make_unique<Probe>(arguments);
    const auto isDecided = [&] {
        return probe->isPrimary() || probe->state() == Probe::NotRunning;
    };
    // Without one nothing that follows makes sense, and each wait would take its time.
    if (!QTest::qWaitFor(isDecided, Patience) || !probe->isPrimary())
        qFatal("No primary: %s", (probe->output + probe->readAllStandardError()).constData());
    return probe;
}

QByteArray lowerPath()
{
    return QString(PROBE_PATH).toLower().toUtf8();
}

QString keyOf(const QByteArray &ownPart = lowerPath())
{
    const QByteArray digest = QCryptographicHash::hash("SingleApplicationinstance_probe" + ownPart,
                                                       QCryptographicHash::Sha256);
    return QString::fromLatin1(digest.toBase64()).replace('/', '_');
}

template <typename Integer>
QByteArray bigEndian(Integer value)
{
    value = qToBigEndian(value);
    return QByteArray(reinterpret_cast<const char *>(&value), sizeof value);
}

QByteArray greeting(const QString &key, char kind, quint32 id, quint16 checksumError = 0)
{
    const QByteArray body = bigEndian(quint32(key.size())) + key.toLatin1() + kind + bigEndian(id);
    const quint16 checksum = qChecksum(body.constData(), uint(body.size())) ^ checksumError;
    return bigEndian(quint64(body.size() + 2)) + body + bigEndian(checksum);
}
} // namespace

class tst_InstanceGuard : public QObject
{
    Q_OBJECT
    std::unique_ptr<QTemporaryDir> m_temp;

    QString path(const QString &name) const { return m_temp->filePath(name); }
    QString blockFile(const QString &folder = "run/") const
    {
        return path(folder + QFileInfo(QSharedMemory(keyOf()).nativeKey()).fileName());
    }
    key_t systemKey() const { return ftok(qPrintable(blockFile()), 'Q'); }

    void sendTo(QLocalSocket &socket, const QByteArray &bytes)
    {
        socket.connectToServer(path("run/" + keyOf()));
        QVERIFY(socket.waitForConnected(Patience));
        socket.write(bytes);
        socket.flush();
    }

    /// What \a primary has told since its start, once it has handled everything sent so far.
    Lines reportsOf(Probe &primary)
    {
        QLocalSocket socket;
        sendTo(socket, greeting(keyOf(), 3, 99) + "end");
        if (!QTest::qWaitFor([&] { return primary.has("message 99 656e64"); }, Patience))
            return {"no end"};
        return primary.lines().mid(1, primary.lines().size() - 2);
    }

private slots:
    // Probes inherit the folders, so each test has instances of its own.
    void init()
    {
        qunsetenv("TMPDIR");
        m_temp = std::make_unique<QTemporaryDir>();
        qputenv("TMPDIR", m_temp->path().toUtf8());
        qputenv("XDG_RUNTIME_DIR", path("run").toUtf8());
        QCOMPARE(mkdir(qPrintable(path("run")), 0700), 0);
    }

    void starts_data()
    {
        QTest::addColumn<bool>("afterCrash");
        QTest::newRow("ten") << false;
        QTest::newRow("ten after a crash") << true;
    }

    void starts()
    {
        QFETCH(bool, afterCrash);
        // A race has to be lost before it shows: set the variable for a longer hunt.
        const int rounds = qMax(3, qEnvironmentVariableIntValue("BREKKA_RACES"));
        for (int round = 0; round < rounds; ++round) {
            if (afterCrash)
                startPrimary()->crash();
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
                EVENTUALLY(primary.has("message " + QByteArray::number(i) + " 6869"));
            QCOMPARE(primary.lines().count("started"), 9);

            // The last one leaves nothing behind. By number: as soon as a key is free, any other
            // program may come to use it.
            const int block = shmget(systemKey(), 0, 0);
            QVERIFY(block != -1);
            QCOMPARE(primary.quit(round % 2 ? "quit\n" : "exit\n"), 0);
            shmid_ds state = {};
            QCOMPARE(shmctl(block, IPC_STAT, &state), -1);
            QVERIFY(
                QDir(path("run")).isEmpty(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot));
        }
    }

    void places_data()
    {
        QTest::addColumn<QString>("folder"); // "~" stands for the temporary one
        QTest::addColumn<int>("mode");       // of "~/run"; 0 for somebody else's
        QTest::addColumn<bool>("used");
        QTest::newRow("own") << "~/run" << 0755 << true;
        QTest::newRow("relative") << "run" << 0700 << false;
        QTest::newRow("no folder") << "~/file" << 0700 << false;
        QTest::newRow("the group's, too") << "~/run" << 0720 << false;
        QTest::newRow("everybody's") << "~/run" << 0702 << false;
        QTest::newRow("somebody else's") << "~/run" << 0 << false;
    }

    /// No other user may be able to take the files away, nor stand in the way with theirs.
    void places()
    {
        QFETCH(QString, folder);
        QFETCH(int, mode);
        const QByteArray run = path("run").toUtf8();
        QVERIFY(QFile(path("file")).open(QIODevice::WriteOnly));
        QVERIFY(QDir::setCurrent(m_temp->path()));
        if (mode != 0)
            QCOMPARE(chmod(run, mode_t(mode)), 0);
        else if (chown(run, 12345, gid_t(-1)) == -1)
            QSKIP("only root can give a folder away");
        qputenv("XDG_RUNTIME_DIR", folder.replace('~', m_temp->path()).toUtf8());

        const ProbePtr primary = startPrimary();
        QTEST(QFile::exists(blockFile("run/")), "used");
        // Old files are cleared away.
        const QString place = QFile::exists(blockFile("run/")) ? "run/" : "";
        const QByteArray files[] = {path(place + keyOf()).toUtf8(), blockFile(place).toUtf8()};
        const timeval old[2] = {};
        for (const QByteArray &file : files)
            QCOMPARE(utimes(file, old), 0);
        primary->write("timers\n");
        for (const QByteArray &file : files)
            EVENTUALLY(QFileInfo(file).lastModified().toSecsSinceEpoch() > 0);
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
        EVENTUALLY(third->has("message 1 79"));
        // A block that a living process holds is never freed, even if its primary crashed.
        const QByteArray role = "secondary " + third->identity();
        third->crash();
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
        QVERIFY(primary->readAllStandardError().contains(
            "SingleApplication: Shared memory block has been in an inconsistent state from more "
            "than 5s. Assuming primary instance failure."));
        QCOMPARE(QByteArray(static_cast<const char *>(block.constData()), 8),
                 QByteArray::fromHex("0155555500000000"));
    }

    /// Another program's block that chance put under our key is neither used nor freed.
    void foreignBlock()
    {
        QVERIFY(QFile(blockFile()).open(QIODevice::WriteOnly));
        const int foreign = shmget(systemKey(), 64, IPC_CREAT | IPC_EXCL | 0600);
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
        QTest::addColumn<bool>("forAllUsers");
        const QByteArray user = QByteArray::fromStdString(currentUserName());
        QTest::newRow("4 1.2 extra") << "extra1.2" + lowerPath() << true;
        QTest::newRow("12 1.2") << lowerPath() << true;
        QTest::newRow("20 1.2") << QByteArray("1.2") << true;
        QTest::newRow("5") << lowerPath() + user << false;
    }

    void keys()
    {
        QFETCH(QByteArray, ownPart);
        const ProbePtr primary = startPrimary(QTest::currentDataTag());
        const QFileInfo socket(path("run/" + keyOf(ownPart)));
        QVERIFY(socket.exists());
        QTEST(socket.permission(QFile::WriteOther), "forAllUsers");
    }

    /// Who leaves says so in any case, who stays only if both sides want it.
    void announcements()
    {
        const ProbePtr primary = startPrimary("0");
        Probe staying;
        EVENTUALLY(staying.has("secondary " + primary->identity()));
        QCOMPARE(reportsOf(*primary), Lines());
        Probe leaving("0   alone");
        QVERIFY(leaving.waitForFinished(Patience));
        QCOMPARE(leaving.quit(), 0);
        QCOMPARE(leaving.lines(), Lines());
        EVENTUALLY(primary->has("started"));
    }

    void greetings_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<bool>("refused");
        QTest::addColumn<Lines>("reports");
        const QString key = keyOf();
        const Lines none;
        QTest::newRow("leaving, then a message")
            << greeting(key, 1, 5) + "hi" << false << Lines{"started", "message 5 6869"};
        QTest::newRow("in single bytes") << greeting(key, 2, 6) << false << Lines{"started"};
        QTest::newRow("padded key") << greeting(key + '\0', 1, 8) << false << Lines{"started"};
        QTest::newRow("wrong key") << greeting("-" + key.mid(1), 1, 5) + "hi" << true << none;
        QTest::newRow("wrong checksum") << greeting(key, 1, 5, 1) + "hi" << true << none;
        QTest::newRow("endless key")
            << bigEndian(quint64(55)) + bigEndian(0x7fffffff) + QByteArray(51, 'k') << true << none;
        QTest::newRow("too short") << bigEndian(quint64(54)) << true << none;
        QTest::newRow("too long") << bigEndian(quint64(1025)) << true << none;
        QTest::newRow("broken off") << greeting(key, 1, 5).chopped(1) << false << none;
    }

    void greetings()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(bool, refused);
        const ProbePtr primary = startPrimary();
        const bool bytewise = qstrcmp(QTest::currentDataTag(), "in single bytes") == 0;
        QLocalSocket socket;
        sendTo(socket, bytewise ? QByteArray() : bytes);
        for (int i = 0; bytewise && i < bytes.size(); ++i) {
            socket.write(bytes.mid(i, 1));
            socket.flush();
            QTest::qWait(2); // lets the primary meet each byte by itself
        }
        EVENTUALLY(!refused || socket.state() == QLocalSocket::UnconnectedState);
        socket.abort();
        QTEST(reportsOf(*primary), "reports");
        QCOMPARE(primary->quit(), 0);
    }
};

QTEST_GUILESS_MAIN(tst_InstanceGuard)
#include "tst_instanceguard.moc"
