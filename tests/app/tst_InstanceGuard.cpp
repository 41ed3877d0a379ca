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

#include <cstring>
#include <memory>
#include <vector>

#include <sys/ipc.h>
#include <sys/shm.h>

namespace
{
using ProbePtr = std::unique_ptr<Probe>;
using Lines = QList<QByteArray>;

QStringList words(const char *text)
{
    return QString::fromLatin1(text).split(QLatin1Char(' '), Qt::SkipEmptyParts);
}

QString keyOf(const QByteArray &ownPart)
{
    const QByteArray digest = QCryptographicHash::hash("SingleApplicationinstance_probe" + ownPart,
                                                       QCryptographicHash::Sha256);
    return QString::fromLatin1(digest.toBase64()).replace(QLatin1Char('/'), QLatin1Char('_'));
}

const QByteArray kLowerPath = kProbe.toLower().toUtf8();
const QString kKey = keyOf(kLowerPath); // of a probe without arguments

template <typename Integer>
QByteArray bigEndian(Integer value)
{
    const Integer swapped = qToBigEndian(value);
    return QByteArray(reinterpret_cast<const char *>(&swapped), sizeof swapped);
}

QByteArray greeting(const QByteArray &key, char kind, quint32 id, quint16 checksumError = 0)
{
    const QByteArray body = bigEndian(quint32(key.size())) + key + kind + bigEndian(id);
    const quint16 checksum = qChecksum(body.constData(), uint(body.size())) ^ checksumError;
    return bigEndian(quint64(body.size() + 2)) + body + bigEndian(checksum);
}

bool isListed(const char *kind, key_t key)
{
    QFile list(QLatin1String("/proc/sysvipc/") + QLatin1String(kind));
    if (!list.open(QIODevice::ReadOnly))
        return true;
    const Lines lines = list.readAll().split('\n');
    return std::any_of(lines.begin(), lines.end(), [key](const QByteArray &line) {
        return line.simplified().split(' ').value(0).toInt() == key;
    });
}
} // namespace

class tst_InstanceGuard : public QObject
{
    Q_OBJECT
    std::unique_ptr<QTemporaryDir> m_temp;

    ProbePtr startPrimary(const QStringList &arguments = {}, const QString &program = kProbe)
    {
        auto probe = std::make_unique<Probe>(arguments, program);
        if (!QTest::qWaitFor([&] { return probe->isPrimary(); }, kPatienceMs))
            qWarning() << "No primary:" << probe->output << probe->readAllStandardError();
        return probe;
    }

    void connectTo(QLocalSocket &socket)
    {
        socket.connectToServer(m_temp->filePath(kKey));
        QVERIFY(socket.waitForConnected(kPatienceMs));
    }

    /// What \a primary has told since its start, once it has handled everything sent so far.
    Lines reportsOf(Probe &primary)
    {
        QLocalSocket socket;
        connectTo(socket);
        socket.write(greeting(kKey.toLatin1(), 3, 99) + "end");
        socket.flush();
        if (!QTest::qWaitFor([&] { return primary.has("message 99 656e64"); }, kPatienceMs))
            return {"no end"};
        return primary.lines().mid(1, primary.lines().size() - 2);
    }

    /// Ends the last instance and looks for what it leaves in the system.
    void checkClearsUp(Probe &last, const char *farewell = "quit")
    {
        const QDir folder(m_temp->path());
        const QStringList keyFiles = folder.entryList(words("qipc_*"));
        QVERIFY(!keyFiles.isEmpty());
        QList<key_t> keys;
        for (const QString &name : keyFiles)
            keys << ftok(QFile::encodeName(folder.filePath(name)).constData(), 'Q');
        last.tell(farewell);
        QCOMPARE(last.result(), 0);
        for (const key_t key : keys)
            QVERIFY(!isListed("shm", key) && !isListed("sem", key));
        QCOMPARE(folder.entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot),
                 QStringList());
    }

private slots:
    // Probes inherit the folder as their temporary one, so each test has instances of its own.
    void init()
    {
        qunsetenv("TMPDIR");
        m_temp = std::make_unique<QTemporaryDir>();
        QVERIFY(m_temp->isValid());
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
                probes.push_back(std::make_unique<Probe>(words("handover")));
            const auto ended = [](const ProbePtr &probe) { return !probe->runs(); };
            EVENTUALLY(std::count_if(probes.begin(), probes.end(), ended) >= count - 1);
            std::partition(probes.begin(), probes.end(), ended);
            Probe &primary = *probes.back();
            EVENTUALLY(primary.isPrimary());
            for (int i = 1; i < count; ++i) {
                QCOMPARE(probes[size_t(i) - 1]->result(), 0);
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
        EVENTUALLY(second.isSecondaryOf(first->identity()));
        first->tell("send x");
        EVENTUALLY(first->has("not sent"));
        QCOMPARE(first->quit(), 0);

        const ProbePtr third = startPrimary();
        second.tell("send y");
        EVENTUALLY(third->has("message 1 79"));
        QCOMPARE(second.quit(), 0);
        checkClearsUp(*third, "exit");
    }

    /// A block that a living process holds is never freed, even if its primary crashed.
    void survivor()
    {
        const ProbePtr first = startPrimary();
        const QByteArray primary = first->identity();
        Probe second;
        EVENTUALLY(second.isSecondaryOf(primary));
        first->crash();
        Probe third;
        EVENTUALLY(third.isSecondaryOf(primary));
    }

    void lockHeldByKilled()
    {
        const ProbePtr primary = startPrimary();
        Probe holder({QStringLiteral("hold-lock"), kKey});
        EVENTUALLY(holder.has("locked"));
        holder.crash();
        QCOMPARE(primary->quit(), 0);
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
        QFile keyFile(QSharedMemory(kKey).nativeKey());
        QVERIFY(keyFile.open(QIODevice::WriteOnly));
        const key_t key = ftok(QFile::encodeName(keyFile.fileName()).constData(), 'Q');
        const int foreign = shmget(key, 64, IPC_CREAT | IPC_EXCL | 0600);
        QVERIFY(foreign != -1);
        const ProbePtr primary = startPrimary();
        Probe second;
        EVENTUALLY(second.isSecondaryOf(primary->identity()));
        QCOMPARE(second.quit(), 0);
        QCOMPARE(primary->quit(), 0);

        QByteArray bytes(64, 'x');
        void *memory = shmat(foreign, nullptr, SHM_RDONLY);
        QVERIFY(memory != reinterpret_cast<void *>(-1));
        std::memcpy(bytes.data(), memory, 64);
        shmdt(memory);
        shmctl(foreign, IPC_RMID, nullptr);
        QCOMPARE(bytes, QByteArray(64, '\0'));
    }

    void keys_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QByteArray>("ownPart");
        QTest::addColumn<bool>("forAllUsers");
        QTest::newRow("version and key data")
            << words("version 1.2 key extra") << "extra1.2" + kLowerPath << true;
        QTest::newRow("any version")
            << words("version 1.2 options 12 key x") << "x" + kLowerPath << true;
        QTest::newRow("any path") << words("version 1.2 options 20") << QByteArray("1.2") << true;
        QTest::newRow("per user") << words("options 5")
                                  << kLowerPath + QByteArray::fromStdString(currentUserName())
                                  << false;
    }

    void keys()
    {
        QFETCH(QStringList, arguments);
        QFETCH(QByteArray, ownPart);
        const ProbePtr primary = startPrimary(arguments);
        const QFileInfo socket(m_temp->filePath(keyOf(ownPart)));
        QVERIFY(socket.exists());
        QTEST(socket.permission(QFile::WriteOther), "forAllUsers");
        checkClearsUp(*primary);
    }

    void copyInAnotherFolder()
    {
        QTemporaryDir folder;
        const QString copy = folder.filePath(QStringLiteral("instance_probe"));
        QVERIFY(QFile::copy(kProbe, copy));
        const ProbePtr original = startPrimary();
        const ProbePtr other = startPrimary({}, copy);
        QVERIFY(original->isPrimary() && other->isPrimary());
    }

    /// Who leaves says so in any case, who stays only if both sides want it.
    void announcements()
    {
        const ProbePtr primary = startPrimary(words("options 0"));
        Probe staying;
        EVENTUALLY(staying.isSecondaryOf(primary->identity()));
        QCOMPARE(reportsOf(*primary), Lines());
        Probe leaving(words("options 0 alone"));
        QCOMPARE(leaving.result(), 0);
        QCOMPARE(leaving.lines(), Lines());
        EVENTUALLY(primary->has("started"));
    }

    void longMessage()
    {
        const ProbePtr primary = startPrimary();
        Probe second;
        second.tell("send " + QByteArray(1000000, 'x'));
        EVENTUALLY(second.has("sent"));
        QCOMPARE(second.quit(), 0);
        int received = 0;
        for (const QByteArray &line : reportsOf(*primary))
            received += line.startsWith("message 1 ") ? (line.size() - 10) / 2 : 0;
        QCOMPARE(received, 1000000);
    }

    void greetings_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<bool>("refused");
        QTest::addColumn<Lines>("reports");
        const QByteArray key = kKey.toLatin1();
        const QByteArray wrongKey = QByteArray(key).replace('=', '-');
        const Lines none, started{"started"};
        QTest::newRow("leaving, then a message")
            << greeting(key, 1, 5) + "hi" << false << Lines{"started", "message 5 6869"};
        QTest::newRow("in single bytes") << greeting(key, 2, 6) << false << started;
        QTest::newRow("padded key") << greeting(key + '\0', 1, 8) << false << started;
        QTest::newRow("wrong key") << greeting(wrongKey, 1, 5) + "hi" << true << none;
        QTest::newRow("wrong checksum") << greeting(key, 1, 5, 1) + "hi" << true << none;
        QTest::newRow("too short") << bigEndian(Q_UINT64_C(54)) << true << none;
        QTest::newRow("too long") << bigEndian(Q_UINT64_C(1) << 20) << true << none;
        QTest::newRow("negative") << bigEndian(~Q_UINT64_C(0)) << true << none;
        QTest::newRow("header broken off") << QByteArray("abc") << false << none;
        QTest::newRow("body broken off") << greeting(key, 1, 5).chopped(1) << false << none;
    }

    void greetings()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(bool, refused);
        const bool bytewise = qstrcmp(QTest::currentDataTag(), "in single bytes") == 0;
        const ProbePtr primary = startPrimary();
        QLocalSocket socket;
        connectTo(socket);
        const int piece = bytewise ? 1 : bytes.size();
        for (int i = 0; i < bytes.size(); i += piece) {
            socket.write(bytes.mid(i, piece));
            QVERIFY(socket.waitForBytesWritten(kPatienceMs));
            QTest::qWait(2); // lets the primary meet each piece by itself
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
            QByteArray bytes(random.bounded(200), '\0');
            for (char &byte : bytes)
                byte = char(random.generate());
            // Some get past the header, some are a greeting with one byte spoilt.
            if (round % 3 == 1)
                bytes.prepend(valid.left(8));
            if (round % 3 == 2) {
                const int spoilt = random.bounded(valid.size());
                bytes = valid;
                bytes[spoilt] = char(~bytes.at(spoilt));
            }
            QLocalSocket socket;
            connectTo(socket);
            socket.write(bytes);
            socket.flush();
        }
        QCOMPARE(reportsOf(*primary), Lines());
        QCOMPARE(primary->quit(), 0);
    }
};

QTEST_GUILESS_MAIN(tst_InstanceGuard)
#include "tst_InstanceGuard.moc"
