#include "BaseWindow.h"

#include <QProcess>
#include <QTabWidget>
#include <QTemporaryDir>
#include <QtTest>

class tst_Pictures : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { Q_INIT_RESOURCE(brekka); }
    void haveTheirSize_data();
    void haveTheirSize();
    void stripsShowFourStates();
    void codeLeadsToTheDownload();
    void tabReachesEveryControl_data();
    void tabReachesEveryControl();
};

void tst_Pictures::haveTheirSize_data()
{
    QTest::addColumn<QSize>("size");
    QTest::newRow("icon") << QSize(256, 256);
    QTest::newRow("logo") << QSize(52, 52);
    QTest::newRow("beta") << QSize(48, 32);
    QTest::newRow("phone") << QSize(24, 36);
    QTest::newRow("qrback") << QSize(360, 420);
    QTest::newRow("min") << QSize(192, 48);
    QTest::newRow("close") << QSize(192, 48);
    QTest::newRow("message_close") << QSize(192, 48);
    QTest::newRow("new") << QSize(56, 38);
    QTest::newRow("shadow") << QSize(20, 20);
    QTest::newRow("question") << QSize(28, 28);
    QTest::newRow("Q") << QSize(28, 32);
    QTest::newRow("helplogo") << QSize(490, 154);
    for (const char *arrow : {"a/1", "a/2", "a/3", "a/4"})
        QTest::newRow(arrow) << QSize(16, 16);
    QTest::newRow("null") << QSize(0, 0); // the blank phase of the flashing tray icon
}

void tst_Pictures::haveTheirSize()
{
    const QImage image(
        QStringLiteral(":/images/%1.png").arg(QLatin1String(QTest::currentDataTag())));
    QTEST(image.size(), "size");
}

void tst_Pictures::stripsShowFourStates()
{
    for (const char *name : {"min", "close", "message_close"}) {
        const QImage strip(QStringLiteral(":/images/%1.png").arg(QLatin1String(name)));
        for (int left = 0; left < 4; ++left) {
            for (int right = left + 1; right < 4; ++right)
                QVERIFY(strip.copy(left * 48, 0, 48, 48) != strip.copy(right * 48, 0, 48, 48));
        }
    }
}

void tst_Pictures::codeLeadsToTheDownload()
{
    QTemporaryDir folder;
    const QString file = folder.filePath(QStringLiteral("code.png"));
    QVERIFY(QFile::copy(QStringLiteral(":/images/qrback.png"), file));
    QProcess reader;
    reader.start(QStringLiteral("zbarimg"),
                 {QStringLiteral("--quiet"), QStringLiteral("--raw"), file});
    QVERIFY2(reader.waitForFinished(), qPrintable(reader.errorString()));
    QCOMPARE(reader.readAllStandardOutput(), QByteArray("https://www.brekka.example/app\n"));
}

void tst_Pictures::tabReachesEveryControl_data()
{
    QTest::addColumn<int>("page");
    QTest::addColumn<QString>("order");
    QTest::newRow("plugins") << 0
                             << "m_GamePath m_browsergame m_autofind m_installPlugin "
                                "m_uploadreplayopen m_pButtonMin m_pButtonClose";
    QTest::newRow("help") << 1 << "m_userprotocol m_privacy scrollArea m_pButtonMin m_pButtonClose";
}

void tst_Pictures::tabReachesEveryControl()
{
    QFETCH(int, page);
    BaseWindow window;
    auto *tabs = window.findChild<QTabWidget *>();
    tabs->setCurrentIndex(page);
    window.show();
    window.activateWindow();
    QVERIFY(QTest::qWaitForWindowActive(&window));
    tabs->setFocus();
    const QWidget *start = window.focusWidget();
    QStringList order;
    for (int i = 0; i < 20; ++i) {
        QTest::keyClick(window.focusWidget(), Qt::Key_Tab);
        if (window.focusWidget() == start)
            break;
        order << window.focusWidget()->objectName();
    }
    QTEST(order.join(QLatin1Char(' ')), "order");
}

QTEST_MAIN(tst_Pictures)
#include "tst_pictures.moc"
