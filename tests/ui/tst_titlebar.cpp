#include "CustTitlebar.h"
#include "QPhoneLabel.h"
#include "QrCode.h"

#include <QLabel>
#include <QPushButton>
#include <QSignalSpy>
#include <QtTest>

namespace
{
const QStringList Buttons{QStringLiteral("m_pButtonMin"), QStringLiteral("m_pButtonMax"),
                          QStringLiteral("m_pButtonRestore"), QStringLiteral("m_pButtonClose")};

/// A window with a title bar, as the program has it.
struct Scene {
    QWidget window;
    CustTitlebar bar{&window};

    explicit Scene(int type)
    {
        window.setWindowFlags(Qt::FramelessWindowHint);
        window.setGeometry(100, 100, 900, 560);
        bar.resize(900, 48);
        bar.setButtonType(type);
        window.show();
    }
    QPushButton *button(const QString &name) { return bar.findChild<QPushButton *>(name); }
    QString shown()
    {
        QStringList names;
        for (const QString &name : Buttons) {
            if (button(name)->isVisible())
                names << name.mid(9);
        }
        return names.join(QLatin1Char(' '));
    }
    /// A mouse event at a place on the screen, with the cursor there.
    void mouse(QEvent::Type type, QPoint global)
    {
        QCursor::setPos(global);
        const auto held = type == QEvent::MouseButtonRelease ? Qt::NoButton : Qt::LeftButton;
        QMouseEvent event(type, bar.mapFromGlobal(global), global,
                          type == QEvent::MouseMove ? Qt::NoButton : Qt::LeftButton, held, {});
        QCoreApplication::sendEvent(&bar, &event);
    }
};
} // namespace

class tst_TitleBar : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { Q_INIT_RESOURCE(brekka); }
    void showsButtons_data();
    void showsButtons();
    void signalsButtons_data();
    void signalsButtons();
    void drags_data();
    void drags();
    void doubleClicks_data();
    void doubleClicks();
    void popsUp();
    void paints();
};

void tst_TitleBar::showsButtons_data()
{
    QTest::addColumn<QVector<int>>("types");
    QTest::addColumn<QString>("shown");
    QTest::newRow("0") << QVector<int>{0} << "Min Close";
    QTest::newRow("1") << QVector<int>{1} << "Min Max Close";
    QTest::newRow("2") << QVector<int>{2} << "Close";
    QTest::newRow("hidden ones come back") << QVector<int>{2, 1} << "Min Max Close";
    QTest::newRow("unknown changes nothing") << QVector<int>{0, 7} << "Min Close";
}

void tst_TitleBar::showsButtons()
{
    QFETCH(QVector<int>, types);
    Scene scene(types.takeFirst());
    for (int type : qAsConst(types))
        scene.bar.setButtonType(type);
    QTEST(scene.shown(), "shown");
}

void tst_TitleBar::signalsButtons_data()
{
    QTest::addColumn<QString>("pressed");
    QTest::addColumn<QByteArray>("signal");
    QTest::addColumn<QString>("shown");
    QTest::newRow("min") << Buttons[0] << QByteArray(SIGNAL(signalButtonMinClicked()))
                         << "Min Max Close";
    QTest::newRow("max") << Buttons[1] << QByteArray(SIGNAL(signalButtonMaxClicked()))
                         << "Min Restore Close";
    QTest::newRow("restore") << Buttons[2] << QByteArray(SIGNAL(signalButtonRestoreClicked()))
                             << "Min Max Close";
    QTest::newRow("close") << Buttons[3] << QByteArray(SIGNAL(signalButtonCloseClicked()))
                           << "Min Max Close";
}

void tst_TitleBar::signalsButtons()
{
    QFETCH(QString, pressed);
    QFETCH(QByteArray, signal);
    Scene scene(1);
    if (pressed == Buttons[2])
        scene.button(Buttons[1])->click();
    QSignalSpy spy(&scene.bar, signal.constData());
    QTest::keyClick(scene.button(pressed), Qt::Key_Space);
    QCOMPARE(spy.count(), 1);
    QTEST(scene.shown(), "shown");
}

void tst_TitleBar::drags_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<QString>("over"); // the press is in the middle of this widget
    QTest::addColumn<bool>("maximised");
    QTest::addColumn<bool>("moves");
    QTest::newRow("title") << 0 << "m_pTitleContent" << false << true;
    QTest::newRow("minimise") << 0 << "m_pButtonMin" << false << false;
    QTest::newRow("close") << 0 << "m_pButtonClose" << false << false;
    QTest::newRow("close only, title") << 2 << "m_pTitleContent" << false << true;
    QTest::newRow("close only, close") << 2 << "m_pButtonClose" << false << false;
    QTest::newRow("type 1 asks for no place") << 1 << "m_pButtonClose" << false << true;
    QTest::newRow("maximised") << 1 << "m_pTitleContent" << true << false;
}

void tst_TitleBar::drags()
{
    QFETCH(int, type);
    QFETCH(QString, over);
    QFETCH(bool, maximised);
    QFETCH(bool, moves);
    Scene scene(type);
    if (maximised)
        scene.button(Buttons[1])->click();
    auto *target = scene.bar.findChild<QWidget *>(over);
    const QPoint start = target->mapToGlobal(target->rect().center());
    const QPoint home = scene.window.pos();

    scene.mouse(QEvent::MouseMove, start + QPoint(3, 3));
    QCOMPARE(scene.window.pos(), home);
    scene.mouse(QEvent::MouseButtonPress, start);
    scene.mouse(QEvent::MouseMove, start + QPoint(30, 7));
    scene.mouse(QEvent::MouseMove, start + QPoint(20, -10));
    QCOMPARE(scene.window.pos(), moves ? home + QPoint(20, -10) : home);
    scene.mouse(QEvent::MouseButtonRelease, start + QPoint(20, -10));
    scene.mouse(QEvent::MouseMove, start);
    QCOMPARE(scene.window.pos(), moves ? home + QPoint(20, -10) : home);
}

void tst_TitleBar::doubleClicks_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<QString>("signalled");
    QTest::newRow("type 0") << 0 << "";
    QTest::newRow("type 1") << 1 << "max restore max ";
    QTest::newRow("type 2") << 2 << "";
}

void tst_TitleBar::doubleClicks()
{
    QFETCH(int, type);
    Scene scene(type);
    QString signalled;
    connect(&scene.bar, &CustTitlebar::signalButtonMaxClicked, this,
            [&] { signalled += QLatin1String("max "); });
    connect(&scene.bar, &CustTitlebar::signalButtonRestoreClicked, this,
            [&] { signalled += QLatin1String("restore "); });
    for (int i = 0; i < 3; ++i)
        QTest::mouseDClick(&scene.bar, Qt::LeftButton, {}, QPoint(400, 20));
    QTEST(signalled, "signalled");
}

void tst_TitleBar::popsUp()
{
    Scene scene(0);
    auto *label = scene.bar.findChild<QPhoneLabel *>();
    const auto hover = [&](QEvent::Type type) {
        QEvent event(type);
        QCoreApplication::sendEvent(label, &event);
    };
    hover(QEvent::Leave);
    QVERIFY(!scene.window.findChild<QrCode *>());
    hover(QEvent::Enter);
    QPointer<QrCode> popup = scene.window.findChild<QrCode *>();
    QVERIFY(popup && popup->isVisible() && !popup->isWindow());
    QCOMPARE(popup->parentWidget(), &scene.window);
    QCOMPARE(popup->pos(), label->pos() + QPoint(-50, 38));
    hover(QEvent::Leave);
    QVERIFY(popup && popup->isHidden());
    hover(QEvent::Enter);
    QCOMPARE(scene.window.findChildren<QrCode *>(), QList<QrCode *>{popup});
    QVERIFY(popup->isVisible());
}

void tst_TitleBar::paints()
{
    Scene scene(0);
    scene.bar.setBackgroundColor(9, 20, 44);
    scene.bar.setTitleIcon(QStringLiteral(":/images/logo.png"));
    QCOMPARE(
        scene.bar.findChild<QLabel *>(QStringLiteral("m_pIcon"))->pixmap(Qt::ReturnByValue).size(),
        QSize(25, 25));
    QCOMPARE(scene.window.grab().toImage().pixelColor(400, 47), QColor(9, 20, 44));
    scene.window.resize(700, 560);
    scene.bar.update();
    QTRY_COMPARE(scene.bar.width(), 700);
}

QTEST_MAIN(tst_TitleBar)
#include "tst_titlebar.moc"
