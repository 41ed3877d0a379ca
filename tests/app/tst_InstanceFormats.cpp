#include "Greeting.h"
#include "SharedBlock.h"

#include <QtTest>

#include <cstring>

// All literal bytes, checksums included, were computed apart from this code.
class tst_InstanceFormats : public QObject
{
    Q_OBJECT
private slots:
    void block()
    {
        alignas(SharedBlock) char memory[sizeof(SharedBlock)];
        auto *shared = reinterpret_cast<SharedBlock *>(memory);
        const auto bytes = [&] { return QByteArray(memory, sizeof memory).toHex(); };
        // The old bytes show what is left alone: the padding, and the name behind its end.
        std::memset(memory, 0xa5, sizeof memory);
        shared->reset();
        QCOMPARE(bytes(), "00a5a5a500000000ffffffffffffffff00" + QByteArray("a5").repeated(127) +
                              "1b6aa5a5a5a5a5a5");

        std::memset(memory, 0, sizeof memory);
        shared->reset();
        shared->setPrimary(4711, "kira");
        QCOMPARE(shared->addSecondary(), 1u);
        QCOMPARE(shared->addSecondary(), 2u);
        QCOMPARE(bytes(), "010000000200000067120000000000006b697261" +
                              QByteArray("00").repeated(124) + "61ed000000000000");
        QCOMPARE(shared->userName(), QStringLiteral("kira"));
        shared->clearPrimary();
        QCOMPARE(bytes(), "0000000002000000ffffffffffffffff00697261" +
                              QByteArray("00").repeated(124) + "16d6000000000000");

        shared->reset();
        shared->setPrimary(4711, QByteArray("\xc3\xbc").repeated(100));
        QCOMPARE(bytes(), "01000000000000006712000000000000" + QByteArray("c3bc").repeated(63) +
                              "c3009fa7000000000000");
    }

    void greeting()
    {
        const Greeting written{QStringLiteral("ABC"), ConnectionKind::StartingSecondary, 7};
        QCOMPARE(written.toBody().toHex(), QByteArray("000000034142430200000007ceb1"));
        QCOMPARE(Greeting::toHeader(14).toHex(), QByteArray("000000000000000e"));

        // A key ends at its first zero.
        const auto body = QByteArray::fromHex("0000000641424300787901010203047b5c");
        const auto read = Greeting::fromBody(body);
        QVERIFY(read);
        QCOMPARE(read->key, QStringLiteral("ABC"));
        QCOMPARE(read->kind, ConnectionKind::ExitingInstance);
        QCOMPARE(read->instanceId, 0x01020304u);
        QVERIFY(!Greeting::fromBody(body.chopped(1)));
        QVERIFY(!Greeting::fromBody(body + '\0'));
    }
};

QTEST_APPLESS_MAIN(tst_InstanceFormats)
#include "tst_InstanceFormats.moc"
