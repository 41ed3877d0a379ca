#include "CustTitlebar.h"
#include "QPhoneLabel.h"
#include "QrCode.h"

#include <QMainWindow>
#include <QPushButton>
#include <QtTest>

namespace
{
/// A title bar in its window, the way BaseWindow puts it there.
struct Scene {
    explicit Scene(int buttonType)
    {
        window.setGeometry(100, 100, 900, 560);
        bar = new CustTitlebar(&window);
        bar->setButtonType(buttonType);
        bar->setFixedWidth(900);
        bar->resize(900, 48);
        window.show();
    }

    QPushButton *button(const char *name) const { return bar->findChild<QPushButton *>(name); }

    /// A mouse event at \a pos of the bar for what is below \a from, with the cursor there.
    void mouse(QEvent::Type type, const QPoint &from, const QPoint &pos, Qt::MouseButtons held)
    {
        const QPoint global = bar->mapToGlobal(pos);
        QCursor::setPos(global);
        const auto button = type == QEvent::MouseMove ? Qt::NoButton : Qt::LeftButton;
        // A button keeps what is pressed on it; whether the bar may start a drag there counts.
        QWidget *below = bar->childAt(from);
        QWidget *target = below && !qobject_cast<QPushButton *>(below) ? below : bar;
        QMouseEvent event(type, target->mapFrom(bar, pos), global, button, held, Qt::NoModifier);
        QCoreApplication::sendEvent(target, &event);
    }

    QMainWindow window;
    CustTitlebar *bar = nullptr;
};
} // namespace

class tst_titlebar : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase() { Q_INIT_RESOURCE(brekka); }
    void buttons();
    void drag_data();
    void drag();
    void popup();
    void qrCode();
};

void tst_titlebar::buttons()
{
    const QStringList visible[] = {{"m_pButtonMin", "m_pButtonClose"},
                                   {"m_pButtonMin", "m_pButtonMax", "m_pButtonClose"},
                                   {"m_pButtonClose"}};
    for (int type = 0; type < 3; ++type) {
        const Scene scene(type);
        QStringList found;
        for (const auto *button : scene.bar->findChildren<QPushButton *>()) {
            if (button->isVisible())
                found += button->objectName();
            QVERIFY(!button->accessibleName().isEmpty());
        }
        QCOMPARE(found, visible[type]);
    }
}

void tst_titlebar::drag_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<QByteArray>("start"); // a widget to press on, or the bar itself
    QTest::addColumn<bool>("maximised");
    QTest::addColumn<bool>("moves");

    QTest::newRow("bar") << 0 << QByteArray() << false << true;
    QTest::newRow("download text") << 0 << QByteArray("m_phonetext") << false << true;
    QTest::newRow("close button") << 0 << QByteArray("m_pButtonClose") << false << false;
    QTest::newRow("maximisable") << 1 << QByteArray() << false << true;
    QTest::newRow("maximisable, on the close button")
        << 1 << QByteArray("m_pButtonClose") << false << true;
    QTest::newRow("maximised") << 1 << QByteArray() << true << false;
    QTest::newRow("close only, on the button")
        << 2 << QByteArray("m_pButtonClose") << false << false;
}

void tst_titlebar::drag()
{
    QFETCH(int, type);
    QFETCH(QByteArray, start);
    QFETCH(bool, maximised);
    QFETCH(bool, moves);
    Scene scene(type);
    if (maximised)
        QTest::mouseClick(scene.button("m_pButtonMax"), Qt::LeftButton);
    QPoint from(300, 20);
    if (!start.isEmpty()) {
        auto *widget = scene.bar->findChild<QWidget *>(start);
        from = widget->mapTo(scene.bar, widget->rect().center());
    }
    const QPoint before = scene.window.pos();

    scene.mouse(QEvent::MouseButtonPress, from, from, Qt::LeftButton);
    scene.mouse(QEvent::MouseMove, from, from + QPoint(30, 20), Qt::LeftButton);
    scene.mouse(QEvent::MouseMove, from, from + QPoint(10, 5),
                Qt::LeftButton); // in the moved window
    const QPoint after = scene.window.pos();
    QCOMPARE(after - before, moves ? QPoint(40, 25) : QPoint());
    scene.mouse(QEvent::MouseButtonRelease, from, from, Qt::NoButton);
    scene.mouse(QEvent::MouseMove, from, from + QPoint(50, 50), Qt::LeftButton);
    QCOMPARE(scene.window.pos(), after);
}

void tst_titlebar::popup()
{
    Scene scene(0);
    auto *label = scene.bar->findChild<QPhoneLabel *>();
    QEvent enter(QEvent::Enter);
    QEvent leave(QEvent::Leave);
    QVERIFY(!scene.window.findChild<QrCode *>());
    for (int round = 0; round < 2; ++round) {
        QCoreApplication::sendEvent(label, &enter);
        const auto popups = scene.window.findChildren<QrCode *>();
        QCOMPARE(popups.size(), 1);
        QVERIFY(popups.first()->isVisible());
        QCOMPARE(popups.first()->geometry(),
                 QRect(label->pos() + QPoint(-50, 38), QSize(180, 210)));
        QCoreApplication::sendEvent(label, &leave);
        QVERIFY(!popups.first()->isVisible());
    }
}

void tst_titlebar::qrCode()
{
    if (QSysInfo::kernelType() == "winnt")
        return QTest::qSkip("the reader of such codes is a Linux program", __FILE__, __LINE__);
    QrCode popup;
    for (const int factor : {1, 2}) {
        QPixmap shot(popup.size() * factor);
        shot.setDevicePixelRatio(factor);
        popup.render(&shot);
        const QTemporaryDir dir;
        QVERIFY(shot.save(dir.filePath("popup.png")));
        QProcess reader;
        reader.start("zbarimg", {"--quiet", "--raw", dir.filePath("popup.png")});
        QVERIFY(reader.waitForFinished());
        QCOMPARE(reader.readAllStandardOutput().trimmed(),
                 QByteArray("https://www.brekka.example/app"));
    }
}

QTEST_MAIN(tst_titlebar)
#include "tst_titlebar.moc"
