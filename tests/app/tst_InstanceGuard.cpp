#include "Probe.h"

#include <QCryptographicHash>
#include <QDir>
#include <QElapsedTimer>
#include <QLocalSocket>
#include <QRandomGenerator>
#include <QSharedMemory>
#include <QTemporaryDir>
#include <QtEndian>
#include <QtTest>

#include <algorithm>
#include <cstring>
#include <memory>
#include <vector>

#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/shm.h>

namespace
{
QString keyOf(const QByteArray &ownPart)
{
    const QByteArray digest = QCryptographicHash::hash("SingleApplicationinstance_probe" + ownPart,
                                                       QCryptographicHash::Sha256);
    return QString::fromLatin1(digest.toBase64()).replace(QLatin1Char('/'), QLatin1Char('_'));
}

const QByteArray kLowerPath = kProgram.toLower().toUtf8();
const QString kKey = keyOf(kLowerPath); // of a probe without arguments

template <typename Integer>
QByteArray bigEndian(Integer value)
{
    value = qToBigEndian(value);
    return QByteArray(reinterpret_cast<const char *>(&value), sizeof value);
}

QByteArray greeting(const QByteArray &key, char kind, quint32 id, quint16 checksumError = 0)
{
    const QByteArray body = bigEndian(quint32(key.size())) + key + kind + bigEndian(id);
    const quint16 checksum = qChecksum(body.constData(), uint(body.size())) ^ checksumError;
    return bigEndian(quint64(body.size() + 2)) + body + bigEndian(checksum);
}

key_t systemKey(const QString &file)
{
    return ftok(QFile::encodeName(file).constData(), 'Q');
}
} // namespace

class tst_InstanceGuard : public QObject
{
    Q_OBJECT
    std::unique_ptr<QTemporaryDir> m_temp;

    void sendTo(QLocalSocket &socket, const QByteArray &bytes)
    {
        socket.connectToServer(m_temp->filePath(kKey));
        QVERIFY(socket.waitForConnected(kPatienceMs));
        socket.write(bytes);
        socket.flush();
    }

    /// What \a primary has told since its start, once it has handled everything sent so far.
    Lines reportsOf(Probe &primary)
    {
        QLocalSocket socket;
        sendTo(socket, greeting(kKey.toLatin1(), 3, 99) + "end");
        if (!QTest::qWaitFor([&] { return primary.has("message 99 656e64"); }, kPatienceMs))
            return {"no end"};
        return primary.lines().mid(1, primary.lines().size() - 2);
    }

    /// Ends the last instance and looks for what it leaves in the system.
    void checkClearsUp(Probe &last, const QByteArray &farewell = "quit\n")
    {
        const QDir folder(m_temp->path());
        const QString blockFile = QSharedMemory(kKey).nativeKey();
        // By number: as soon as a key is free, any other program may come to use it.
        const int block = shmget(systemKey(blockFile), 0, 0);
        QVERIFY(block != -1);
        const int lock = semget(systemKey(QString(blockFile).replace(QStringLiteral("sharedmemory"),
                                                                     QStringLiteral("systemsem"))),
                                0, 0);
        QCOMPARE(last.quit(farewell), 0);
        shmid_ds state = {};
        QVERIFY(shmctl(block, IPC_STAT, &state) == -1 && semctl(lock, 0, GETVAL) == -1);
        QCOMPARE(folder.entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot),
                 QStringList());
    }

private slots:
    // Probes inherit the folder as their temporary one, so each test has instances of its own.
    void init()
    {
        qunsetenv("TMPDIR");
        m_temp = std::make_unique<QTemporaryDir>();
        qputenv("TMPDIR", QFile::encodeName(m_temp->path()));
        qputenv("XDG_RUNTIME_DIR", QFile::encodeName(m_temp->path()));
    }

    void starts_data()
    {
        QTest::addColumn<int>("count");
        QTest::addColumn<bool>("afterCrash");
        QTest::newRow("two") << 2 << false;
        QTest::newRow("ten") << 10 << false;
        QTest::newRow("one after a crash") << 1 << true;
        QTest::newRow("ten after a crash") << 10 << true;
    }

    void starts()
    {
        QFETCH(int, count);
        QFETCH(bool, afterCrash);
        // A race has to be lost before it shows: set the variable for a longer hunt.
        const int rounds = qMax(5, qEnvironmentVariableIntValue("BREKKA_RACES"));
        for (int round = 0; round < rounds; ++round) {
            if (afterCrash)
                startPrimary()->crash();
            std::vector<ProbePtr> probes;
            for (int i = 0; i < count; ++i)
                probes.push_back(std::make_unique<Probe>("handover"));
            const auto ended = [](const ProbePtr &probe) { return !probe->runs(); };
            EVENTUALLY(std::count_if(probes.begin(), probes.end(), ended) >= count - 1);
            std::partition(probes.begin(), probes.end(), ended);
            Probe &primary = *probes.back();
            EVENTUALLY(primary.isPrimary());
            for (int i = 1; i < count; ++i) {
                QCOMPARE(probes[size_t(i) - 1]->quit(), 0);
                EVENTUALLY(primary.has("message " + QByteArray::number(i) + " 68656c6c6f"));
            }
            QCOMPARE(primary.lines().count("started"), count - 1);
            checkClearsUp(primary);
        }
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
        QCOMPARE(second.quit(), 0);
        checkClearsUp(*third, "exit\n");
    }

    /// A block that a living process holds is never freed, even if its primary crashed.
    void survivor()
    {
        const ProbePtr first = startPrimary();
        const QByteArray role = "secondary " + first->identity();
        Probe second;
        EVENTUALLY(second.has(role));
        first->crash();
        Probe third;
        EVENTUALLY(third.has(role));
    }

    void inconsistentBlock()
    {
        QSharedMemory block(kKey);
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
        QCOMPARE(primary->quit(), 0);
    }

    /// Another program's block that chance put under our key is neither used nor freed.
    void foreignBlock()
    {
        const QString keyFile = QSharedMemory(kKey).nativeKey();
        QVERIFY(QFile(keyFile).open(QIODevice::WriteOnly));
        const int foreign = shmget(systemKey(keyFile), 64, IPC_CREAT | IPC_EXCL | 0600);
        const ProbePtr primary = startPrimary();
        Probe second;
        EVENTUALLY(second.has("secondary " + primary->identity()));
        QCOMPARE(second.quit(), 0);
        QCOMPARE(primary->quit(), 0);

        void *memory = shmat(foreign, nullptr, SHM_RDONLY);
        QVERIFY(memory != reinterpret_cast<void *>(-1));
        const bool untouched = std::memcmp(memory, QByteArray(64, '\0').constData(), 64) == 0;
        shmdt(memory);
        shmctl(foreign, IPC_RMID, nullptr);
        QVERIFY(untouched);
    }

    void keys_data()
    {
        QTest::addColumn<QByteArray>("ownPart");
        QTest::addColumn<bool>("forAllUsers");
        const QByteArray user = QByteArray::fromStdString(currentUserName());
        QTest::newRow("version 1.2 key extra") << "extra1.2" + kLowerPath << true;
        QTest::newRow("version 1.2 options 12") << kLowerPath << true;
        QTest::newRow("version 1.2 options 20") << QByteArray("1.2") << true;
        QTest::newRow("options 5") << kLowerPath + user << false;
    }

    void keys()
    {
        QFETCH(QByteArray, ownPart);
        const ProbePtr primary = startPrimary(QTest::currentDataTag());
        const QFileInfo socket(m_temp->filePath(keyOf(ownPart)));
        QVERIFY(socket.exists());
        QTEST(socket.permission(QFile::WriteOther), "forAllUsers");
    }

    void copyInAnotherFolder()
    {
        QTemporaryDir folder;
        const QString copy = folder.filePath(QStringLiteral("instance_probe"));
        QVERIFY(QFile::copy(kProgram, copy));
        const ProbePtr original = startPrimary();
        const ProbePtr other = startPrimary("", copy);
        QVERIFY(original->isPrimary() && other->isPrimary());
    }

    /// Who leaves says so in any case, who stays only if both sides want it.
    void announcements()
    {
        const ProbePtr primary = startPrimary("options 0");
        Probe staying;
        EVENTUALLY(staying.has("secondary " + primary->identity()));
        QCOMPARE(reportsOf(*primary), Lines());
        Probe leaving("options 0 alone");
        QVERIFY(leaving.waitForFinished(kPatienceMs));
        QCOMPARE(leaving.quit(), 0);
        QCOMPARE(leaving.lines(), Lines());
        EVENTUALLY(primary->has("started"));
    }

    void greetings_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<bool>("refused");
        QTest::addColumn<Lines>("reports");
        const QByteArray key = kKey.toLatin1();
        const QByteArray otherKey = QByteArray(key).replace('=', '-');
        const Lines none, started{"started"};
        QTest::newRow("leaving, then a message")
            << greeting(key, 1, 5) + "hi" << false << Lines{"started", "message 5 6869"};
        QTest::newRow("in single bytes") << greeting(key, 2, 6) << false << started;
        QTest::newRow("padded key") << greeting(key + '\0', 1, 8) << false << started;
        QTest::newRow("wrong key") << greeting(otherKey, 1, 5) + "hi" << true << none;
        QTest::newRow("wrong checksum") << greeting(key, 1, 5, 1) + "hi" << true << none;
        QTest::newRow("too short") << bigEndian(Q_UINT64_C(54)) << true << none;
        QTest::newRow("too long") << bigEndian(Q_UINT64_C(1025)) << true << none;
        QTest::newRow("negative") << bigEndian(~Q_UINT64_C(0)) << true << none;
        QTest::newRow("header broken off") << QByteArray("abc") << false << none;
        QTest::newRow("body broken off") << greeting(key, 1, 5).chopped(1) << false << none;
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

    void randomBytes()
    {
        const ProbePtr primary = startPrimary();
        QRandomGenerator random(20240229);
        const QByteArray valid = greeting(kKey.toLatin1(), 1, 5);
        for (int round = 0; round < 300; ++round) {
            // Some are a greeting with one byte spoilt, some of the others get past the header.
            QByteArray bytes = valid;
            const int spoilt = random.bounded(valid.size());
            bytes[spoilt] = char(~bytes.at(spoilt));
            for (int i = round % 3 ? round % 3 * 8 - 8 : bytes.size(); i < bytes.size(); ++i)
                bytes[i] = char(random.generate());
            QLocalSocket socket;
            sendTo(socket, bytes);
        }
        QCOMPARE(reportsOf(*primary), Lines());
        QCOMPARE(primary->quit(), 0);
    }
};

QTEST_GUILESS_MAIN(tst_InstanceGuard)
#include "tst_InstanceGuard.moc"
