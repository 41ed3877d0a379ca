#include "BaseWindow.h"
#include "CustMessagebox.h"
#include "CustTitlebar.h"
#include "FocusRing.h"
#include "MaskForm.h"
#include "ReminderWidget.h"
#include "SwitchButton.h"

#include <QAction>
#include <QApplication>
#include <QMenu>
#include <QTabWidget>
#include <QTimer>
#include <QtTest>

Q_DECLARE_METATYPE(QDialogButtonBox::StandardButton)

namespace
{
/// Ends \a box with the button of this text or name, else with the key of this name.
void endWith(const QString &what, QDialog *box)
{
    for (auto *button : box->findChildren<QPushButton *>()) {
        if (button->text() == what || button->objectName() == what)
            return QTest::mouseClick(button, Qt::LeftButton);
    }
    QTest::keyClick(box, Qt::Key(QKeySequence(what)[0]));
}

/// Where the slider begins, by the colour of the middle row.
int sliderLeft(SwitchButton &button)
{
    const QImage shot = button.grab().toImage();
    int x = 0;
    while (x < shot.width() && shot.pixelColor(x, shot.height() / 2).lightness() < 200)
        ++x;
    return x;
}
} // namespace

class tst_widgets : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase() { Q_INIT_RESOURCE(brekka); }
    void switchSlides();
    void switchJumps();
    void messageBox_data();
    void messageBox();
    void toast();
    void closing();
    void trayMenu();
    void keyboardFocus();
};

void tst_widgets::switchSlides()
{
    SwitchButton button;
    button.resize(50, 23);
    auto *timer = button.findChild<QTimer *>();
    const struct {
        bool on;
        QVector<int> steps;
    } ways[] = {{true, {0, 5, 10, 15, 20, 25, 30, 27}}, {false, {27, 22, 17, 12, 7, 2, -3, 0}}};
    for (const auto &way : ways) {
        QTest::mouseClick(&button, Qt::RightButton);
        QCOMPARE(timer->interval(), 30);
        for (int i = 0; i < way.steps.size(); ++i) {
            QCOMPARE(sliderLeft(button), way.steps[i] + 4);
            QCOMPARE(timer->isActive(), i + 1 < way.steps.size());
            QVERIFY(QMetaObject::invokeMethod(&button, "updateValue"));
        }
        QCOMPARE(button.isChecked(), way.on);
    }
}

void tst_widgets::switchJumps()
{
    SwitchButton button;
    button.resize(50, 23);
    button.setAnimation(false);
    QSignalSpy changes(&button, &SwitchButton::statusChanged);
    button.setChecked(true);
    QCOMPARE(sliderLeft(button), 31);
    QCOMPARE(changes.count(), 0);
    QTest::mouseClick(&button, Qt::LeftButton);
    QCOMPARE(sliderLeft(button), 4);
    QTest::keyClick(&button, Qt::Key_Space);
    QCOMPARE(changes, (QList<QVariantList>{{false}, {true}}));
}

void tst_widgets::messageBox_data()
{
    QTest::addColumn<bool>("question"); // a row's name is what ends the box
    QTest::addColumn<QDialogButtonBox::StandardButton>("result");
    QTest::newRow("是") << true << QDialogButtonBox::Yes;
    QTest::newRow("否") << true << QDialogButtonBox::No;
    QTest::newRow("Return") << true << QDialogButtonBox::Yes;
    QTest::newRow("Esc") << true << QDialogButtonBox::Cancel;
    QTest::newRow("m_messageboxclose") << true << QDialogButtonBox::Cancel;
    QTest::newRow("确定") << false << QDialogButtonBox::Ok;
}

void tst_widgets::messageBox()
{
    QFETCH(bool, question);
    const QString end = QString::fromUtf8(QTest::currentDataTag());
    QFETCH(QDialogButtonBox::StandardButton, result);
    QWidget window;
    window.setGeometry(51, 60, 901, 561);
    window.show();
    MaskForm mask(&window);
    mask.setMainWidget(&window);
    mask.setMainWidget(nullptr);

    bool seen = false;
    QTimer poll;
    connect(&poll, &QTimer::timeout, &poll, [&] {
        auto *box = qobject_cast<QDialog *>(QApplication::activeModalWidget());
        if (!box || seen)
            return;
        seen = true;
        QTimer::singleShot(0, box, [=] { endWith(end, box); });
        QVERIFY(mask.isVisible());
        QCOMPARE(mask.geometry(), window.geometry());
        QCOMPARE(box->geometry(), QRect(51 + 263, 60 + 200, 374, 160));
        QVERIFY(box->focusWidget()->property("default").toBool());
    });
    poll.start(5);
    const auto buttons = question ? QDialogButtonBox::Yes | QDialogButtonBox::No
                                  : QDialogButtonBox::StandardButtons(QDialogButtonBox::Ok);
    const auto chosen = question ? QDialogButtonBox::Yes : QDialogButtonBox::Ok;
    QCOMPARE(CustMessagebox::showMessageBox(&window, &mask, "", "text", buttons, chosen), result);
    QVERIFY(seen);
    QVERIFY(!mask.isVisible());
}

void tst_widgets::toast()
{
    QWidget window;
    window.setGeometry(50, 60, 900, 560);
    window.show();
    ReminderWidget::showReminder(&window);
    ReminderWidget *toast = nullptr;
    for (QWidget *widget : QApplication::topLevelWidgets()) {
        if (auto *found = qobject_cast<ReminderWidget *>(widget))
            toast = found;
    }
    if (!toast)
        QFAIL("no toast");
    QVERIFY(toast->isVisible());
    QCOMPARE(toast->geometry(), QRect(50 + 371, 60 + 249, 158, 61));
    auto *timer = toast->findChild<QTimer *>();
    QVERIFY(timer->isActive() && timer->isSingleShot());
    QCOMPARE(timer->interval(), 1000);
    QVERIFY(qAbs(toast->windowOpacity() - 0.6) < 0.01);
    QTRY_VERIFY_WITH_TIMEOUT(toast->windowOpacity() < 0.5, 30000);
    QVERIFY(!timer->isActive());
    QTRY_VERIFY_WITH_TIMEOUT(!toast->isVisible(), 30000);
    delete toast;
}

void tst_widgets::closing()
{
    BaseWindow window;
    window.show();
    QTest::mouseClick(window.findChild<QPushButton *>("m_pButtonClose"), Qt::LeftButton);
    // Without a tray to come back from the window stays within reach.
    const bool tray = QSystemTrayIcon::isSystemTrayAvailable();
    QCOMPARE(window.isMinimized(), !tray);
    QCOMPARE(window.isVisible(), !tray);
    window.findChild<QTabWidget *>("m_tab")->setCurrentIndex(1);
    QMetaObject::invokeMethod(window.findChild<QSystemTrayIcon *>(), "activated",
                              Q_ARG(QSystemTrayIcon::ActivationReason, QSystemTrayIcon::Trigger));
    QVERIFY(window.isVisible() && !window.isMinimized());
    QCOMPARE(window.findChild<QTabWidget *>("m_tab")->currentIndex(), 0);
    // Without an icon to come back from, closing is closing.
    window.findChild<QSystemTrayIcon *>()->hide();
    QVERIFY(window.close());
}

// There is no tray on the test platform, so the title bar opens the tray's menu.
void tst_widgets::trayMenu()
{
    BaseWindow window;
    window.show();
    QSignalSpy switched(&window, &BaseWindow::SwitchAutoStartUp);
    auto *menu = window.findChild<QSystemTrayIcon *>()->contextMenu();
    QStringList texts;
    for (const QAction *action : menu->actions())
        texts += action->isSeparator() ? "-" : action->text();
    QCOMPARE(texts, (QStringList{"显示主界面", "-", "&自动启动", "-", "&退出"}));

    QAction *autoStart = menu->actions().at(2);
    for (const bool state : {false, true}) {
        QContextMenuEvent event(QContextMenuEvent::Mouse, QPoint(300, 20));
        QCoreApplication::sendEvent(window.findChild<CustTitlebar *>(), &event);
        QCOMPARE(menu->isVisible(), !QSystemTrayIcon::isSystemTrayAvailable());
        // What the tray does itself.
        if (!menu->isVisible())
            menu->popup(QPoint(300, 20));
        QVERIFY(menu->isVisible());
        QTest::mouseClick(menu, Qt::LeftButton, {}, menu->actionGeometry(autoStart).center());
        QCOMPARE(autoStart->isChecked(), state);
    }
    autoStart->setChecked(false);
    QCOMPARE(switched, (QList<QVariantList>{{false}, {true}}));
}

// Every control of the first page is reached, and the ring is around the one that has the focus.
void tst_widgets::keyboardFocus()
{
    BaseWindow window;
    window.show();
    QVERIFY(QTest::qWaitForWindowActive(&window));
    auto *ring = window.findChild<FocusRing *>();
    QSet<QString> reached;
    for (int i = 0; i < 12; ++i) {
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
        const QWidget *focused = QApplication::focusWidget();
        if (!ring->isVisible())
            continue;
        reached += focused->objectName();
        QCOMPARE(ring->geometry().center(), focused->mapTo(&window, focused->rect().center()));
    }
    QCOMPARE(reached, (QSet<QString>{"m_browsergame", "m_autofind", "m_installPlugin",
                                     "m_uploadreplayopen", "m_pButtonMin", "m_pButtonClose"}));
}

QTEST_MAIN(tst_widgets)
#include "tst_widgets.moc"
