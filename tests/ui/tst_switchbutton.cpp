#include "SwitchButton.h"

#include <QSignalSpy>
#include <QTimer>
#include <QtTest>

using Positions = QVector<int>;
using Call = std::function<void(SwitchButton &)>;
Q_DECLARE_METATYPE(Call)

namespace
{
constexpr QSize Size(50, 23);

/// Where the slider's left edge is painted.
int sliderEdge(QWidget &button)
{
    const QImage image = button.grab().toImage();
    for (int x = 0; x < image.width(); ++x) {
        if (image.pixelColor(x, image.height() / 2).blue() > 220)
            return x;
    }
    return -1000;
}

class PaintCount : public QObject
{
public:
    int count = 0;
    bool eventFilter(QObject *, QEvent *event) override
    {
        count += event->type() == QEvent::Paint;
        return false;
    }
};
} // namespace

class tst_SwitchButton : public QObject
{
    Q_OBJECT

private slots:
    void slides_data();
    void slides();
    void flips_data();
    void flips();
    void isSetSilently();
    void repaintsOnChangeOnly();
    void keepsAlphaOnlyWhileDisabled();
    void showsFocus();
};

void tst_SwitchButton::slides_data()
{
    QTest::addColumn<bool>("from");
    QTest::addColumn<Positions>("edges");
    QTest::newRow("on") << false << Positions{9, 14, 19, 24, 29, 34, 31};
    QTest::newRow("off") << true << Positions{26, 21, 16, 11, 6, 1, 4};
}

void tst_SwitchButton::slides()
{
    QFETCH(bool, from);
    QFETCH(Positions, edges);
    SwitchButton button;
    button.resize(Size);
    button.setAnimation(false);
    button.setChecked(from);
    button.setAnimation(true);
    auto *timer = button.findChild<QTimer *>();
    QCOMPARE(timer->interval(), 30);

    Positions seen;
    connect(timer, &QTimer::timeout, &button, [&] { seen << sliderEdge(button); });
    QTest::mousePress(&button, Qt::LeftButton);
    QCOMPARE(sliderEdge(button), from ? 31 : 4);
    QTRY_VERIFY_WITH_TIMEOUT(!timer->isActive(), 10000);
    QCOMPARE(seen, edges);
}

void tst_SwitchButton::flips_data()
{
    QTest::addColumn<Call>("input");
    QTest::addColumn<bool>("flipped");
    const auto press = [](Qt::MouseButton button) {
        return Call([=](SwitchButton &target) { QTest::mouseClick(&target, button); });
    };
    const auto key = [](int code, bool repeated) {
        return Call([=](SwitchButton &target) {
            QKeyEvent event(QEvent::KeyPress, code, Qt::NoModifier, {}, repeated);
            QCoreApplication::sendEvent(&target, &event);
        });
    };
    QTest::newRow("left button") << press(Qt::LeftButton) << true;
    QTest::newRow("right button") << press(Qt::RightButton) << true;
    QTest::newRow("blank") << key(Qt::Key_Space, false) << true;
    QTest::newRow("blank held down") << key(Qt::Key_Space, true) << false;
    QTest::newRow("another key") << key(Qt::Key_A, false) << false;
}

void tst_SwitchButton::flips()
{
    QFETCH(Call, input);
    QFETCH(bool, flipped);
    SwitchButton button;
    button.resize(Size);
    button.setAnimation(false);
    QSignalSpy changes(&button, &SwitchButton::statusChanged);
    QList<QVariantList> expected;
    if (flipped)
        expected = {{true}, {false}};
    input(button);
    QCOMPARE(sliderEdge(button), flipped ? 31 : 4);
    input(button);
    QCOMPARE(sliderEdge(button), 4);
    QCOMPARE(static_cast<QList<QVariantList> &>(changes), expected);
}

void tst_SwitchButton::isSetSilently()
{
    SwitchButton button;
    button.resize(Size);
    button.setAnimation(false);
    QSignalSpy changes(&button, &SwitchButton::statusChanged);
    button.setChecked(true);
    QCOMPARE(sliderEdge(button), 31);
    button.resize(80, 23);
    button.setChecked(true); // the same state, another place
    QCOMPARE(sliderEdge(button), 61);
    QVERIFY(changes.isEmpty());
    QTest::mouseClick(&button, Qt::LeftButton);
    QCOMPARE(changes.value(0), QVariantList{false});
}

void tst_SwitchButton::repaintsOnChangeOnly()
{
    SwitchButton button;
    button.resize(Size);
    button.show();
    QVERIFY(QTest::qWaitForWindowExposed(&button));
    QCoreApplication::processEvents();
    PaintCount paints;
    button.installEventFilter(&paints);
    button.setBgColorOff(Qt::red);
    QTRY_COMPARE(paints.count, 1);
    button.setBgColorOff(Qt::red);
    QCoreApplication::processEvents();
    QCOMPARE(paints.count, 1);
}

void tst_SwitchButton::keepsAlphaOnlyWhileDisabled()
{
    SwitchButton button;
    button.resize(Size);
    button.setBgColorOff(QColor(255, 0, 0, 0));
    const QPoint track(30, 11);
    QCOMPARE(button.grab().toImage().pixelColor(track), QColor(255, 0, 0));
    button.setEnabled(false);
    QVERIFY(button.grab().toImage().pixelColor(track) != QColor(255, 0, 0));
}

void tst_SwitchButton::showsFocus()
{
    QWidget window;
    SwitchButton first(&window);
    SwitchButton second(&window);
    second.move(0, 50);
    window.show();
    window.activateWindow();
    QVERIFY(QTest::qWaitForWindowActive(&window));
    first.setFocus();
    const QImage before = second.grab().toImage();
    QTest::keyClick(&first, Qt::Key_Tab);
    QVERIFY(second.hasFocus());
    QVERIFY(second.grab().toImage() != before);
}

QTEST_MAIN(tst_SwitchButton)
#include "tst_switchbutton.moc"
