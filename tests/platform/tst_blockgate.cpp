#include "BlockGate.h"
#include "MeetingPlace.h"

#include <QProcess>
#include <QSharedMemory>
#include <QtTest>

#include <cstdio>
#include <thread>

namespace
{
constexpr int Patience = 300000; // milliseconds
constexpr int Rounds = 2000;

/// Counts the number in the block \a key up, then takes the lock and keeps it until killed.
int countAndHold(const QString &key)
{
    const auto block = MeetingPlace(key).makeBlock();
    BlockGate gate(block->nativeKey());
    gate.enter();
    if (!block->attach())
        return EXIT_FAILURE;
    gate.leave();
    for (int round = 0; round < Rounds && gate.lock(*block); ++round) {
        const int number = *static_cast<int *>(block->data());
        std::this_thread::yield();
        *static_cast<int *>(block->data()) = number + 1;
        gate.unlock(*block);
    }
    gate.lock(*block);
    std::puts("held");
    std::fflush(stdout);
    return std::getchar();
}
} // namespace

class tst_BlockGate : public QObject
{
    Q_OBJECT
private slots:
    /// One at a time is inside, and whoever is killed there must not shut out those who live on.
    void passesOn()
    {
        const QString key = "tst_blockgate" + QString::number(QCoreApplication::applicationPid());
        const auto block = MeetingPlace(key).makeBlock();
        BlockGate gate(block->nativeKey());
        gate.enter();
        QVERIFY(block->create(sizeof(int)));
        gate.leave();
        QProcess others[2];
        for (QProcess &other : others)
            other.start(QCoreApplication::applicationFilePath(), {"--count", key});
        const auto holds = [](QProcess &other) { return other.bytesAvailable() > 0; };
        for (int i = 0; i < 2; ++i) {
            QVERIFY(
                QTest::qWaitFor([&] { return holds(others[0]) || holds(others[1]); }, Patience));
            QProcess &killed = others[holds(others[0]) ? 0 : 1];
            killed.readAll();
            killed.kill();
            QVERIFY(killed.waitForFinished(Patience));
        }
        QVERIFY(gate.lock(*block)); // waits for ever where the lock is not given back
        QCOMPARE(*static_cast<int *>(block->data()), 2 * Rounds);
        QVERIFY(gate.unlock(*block));
    }
};

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    if (argc == 3 && qstrcmp(argv[1], "--count") == 0)
        return countAndHold(argv[2]);
    tst_BlockGate test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_blockgate.moc"
