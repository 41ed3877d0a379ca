#include "BlockGate.h"

#include <QProcess>
#include <QSharedMemory>
#include <QtTest>

#include <cstdio>

namespace
{
constexpr int PatienceMs = 60000;

/// Takes the lock of the block \a key and keeps it until somebody kills the process.
int hold(const QString &key)
{
    QSharedMemory block(key);
    BlockGate gate(block.nativeKey());
    gate.enter();
    if (!block.attach() || !gate.lock(block))
        return EXIT_FAILURE;
    std::puts("held");
    std::fflush(stdout);
    return std::getchar();
}
} // namespace

class tst_blockgate : public QObject
{
    Q_OBJECT
private slots:
    /// Whoever is killed with the block locked must not shut out those who live on.
    void holderKilled();
};

void tst_blockgate::holderKilled()
{
    const auto pid = QString::number(QCoreApplication::applicationPid());
    QSharedMemory block("tst_blockgate" + pid);
    BlockGate gate(block.nativeKey());
    gate.enter();
    QVERIFY(block.create(16));
    gate.leave();
    for (int round = 0; round < 2; ++round) {
        QProcess holder;
        holder.start(QCoreApplication::applicationFilePath(), {"--hold", block.key()});
        QVERIFY(holder.waitForReadyRead(PatienceMs));
        holder.kill();
        QVERIFY(holder.waitForFinished(PatienceMs));
        QVERIFY(gate.lock(block)); // waits for ever where the lock is not given back
        QVERIFY(gate.unlock(block));
    }
}

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    if (arguments.value(1) == "--hold")
        return hold(arguments.value(2));
    tst_blockgate test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_blockgate.moc"
