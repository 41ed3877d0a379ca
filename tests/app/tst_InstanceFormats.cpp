#include "Greeting.h"
#include "SharedBlock.h"

#include <QtTest>

#include <cstring>
#include <functional>

// All literal bytes, checksums included, were computed apart from this code.

namespace
{
using Change = std::function<void(SharedBlock &)>;

QByteArray hex(const char *digits)
{
    return QByteArray::fromHex(digits);
}
} // namespace

Q_DECLARE_METATYPE(Change)

class tst_InstanceFormats : public QObject
{
    Q_OBJECT
private slots:
    void block_data();
    void block();
    void greetingWritten();
    void greetingRead_data();
    void greetingRead();
};

void tst_InstanceFormats::block_data()
{
    QTest::addColumn<char>("before");
    QTest::addColumn<Change>("change");
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QString>("userName");

    const QByteArray zeros(124, '\0');
    const Change primary = [](SharedBlock &block) {
        block.reset();
        block.setPrimary(4711, "kira");
    };
    // The old bytes show what is left alone: the padding, and the name behind its end.
    QTest::newRow("reset") << '\xa5' << Change(&SharedBlock::reset)
                           << hex("00a5a5a500000000ffffffffffffffff00") + QByteArray(127, '\xa5') +
                                  hex("1b6aa5a5a5a5a5a5")
                           << "";
    QTest::newRow("primary") << '\0' << primary
                             << hex("010000000000000067120000000000006b697261") + zeros +
                                    hex("04e0000000000000")
                             << "kira";
    QTest::newRow("two secondaries") << '\0' << Change([primary](SharedBlock &block) {
        primary(block);
        QCOMPARE(block.addSecondary(), 1u);
        QCOMPARE(block.addSecondary(), 2u);
    }) << hex("010000000200000067120000000000006b697261") + zeros + hex("61ed000000000000")
                                     << "kira";
    QTest::newRow("long name cut inside a character")
        << '\0' << Change([](SharedBlock &block) {
               block.reset();
               block.setPrimary(4711, QByteArray("\xc3\xbc").repeated(100));
           })
        << hex("01000000000000006712000000000000") + QByteArray("\xc3\xbc").repeated(63) +
               hex("c3009fa7000000000000")
        << QString(63, QChar(0xfc)) + QChar(QChar::ReplacementCharacter);
}

void tst_InstanceFormats::block()
{
    QFETCH(char, before);
    QFETCH(Change, change);
    alignas(SharedBlock) char memory[sizeof(SharedBlock)];
    std::memset(memory, before, sizeof memory);
    auto *block = reinterpret_cast<SharedBlock *>(memory);
    change(*block);
    QTEST(QByteArray(memory, sizeof memory), "bytes");
    QTEST(block->userName(), "userName");

    block->clearPrimary();
    QCOMPARE(memory[0], '\0');
    QCOMPARE(block->primaryProcessId, qint64(-1));
    QCOMPARE(block->userName(), QString());
    QCOMPARE(block->checksum, block->computeChecksum());
}

void tst_InstanceFormats::greetingWritten()
{
    const QByteArray body =
        Greeting{QStringLiteral("ABC"), ConnectionKind::StartingSecondary, 7}.toBody();
    QCOMPARE(body.toHex(), QByteArray("000000034142430200000007ceb1"));
    QCOMPARE(Greeting::toHeader(quint64(body.size())).toHex(), QByteArray("000000000000000e"));
    QCOMPARE(Greeting::fromHeader(hex("0102030405060708")), Q_UINT64_C(0x0102030405060708));
}

void tst_InstanceFormats::greetingRead_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<bool>("valid");

    QTest::newRow("key ends at its zero") << hex("0000000641424300787901010203047b5c") << true;
    QTest::newRow("checksum little-endian") << hex("0000000641424300787901010203045c7b") << false;
    QTest::newRow("cut short") << hex("0000000641424300787901010203047b") << false;
    QTest::newRow("byte too many") << hex("0000000641424300787901010203047b5c00") << false;
    QTest::newRow("key longer than the body") << hex("fffffff041424300787901010203047b5c") << false;
    QTest::newRow("empty") << QByteArray() << false;
}

void tst_InstanceFormats::greetingRead()
{
    QFETCH(QByteArray, body);
    const auto greeting = Greeting::fromBody(body);
    QTEST(greeting.has_value(), "valid");
    if (!greeting)
        return;
    QCOMPARE(greeting->key, QStringLiteral("ABC"));
    QCOMPARE(greeting->kind, ConnectionKind::ExitingInstance);
    QCOMPARE(greeting->instanceId, 0x01020304u);
}

QTEST_APPLESS_MAIN(tst_InstanceFormats)
#include "tst_InstanceFormats.moc"
