#include "BaseWindow.h"
#include "CustTitlebar.h"

#include <QAction>
#include <QContextMenuEvent>
#include <QMenu>
#include <QPushButton>
#include <QtTest>

class tst_BaseWindow : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { Q_INIT_RESOURCE(brekka); }
    void closesIntoTheTray();
    void comesBack_data();
    void comesBack();
    void opensTheMenuWithoutATray();
};

namespace
{
QSystemTrayIcon *trayIcon(const BaseWindow &window)
{
    return window.findChild<QSystemTrayIcon *>();
}
} // namespace

void tst_BaseWindow::closesIntoTheTray()
{
    BaseWindow window;
    window.show();
    QTest::mouseClick(window.findChild<QPushButton *>("m_pButtonClose"), Qt::LeftButton);
    QVERIFY(!window.isVisible());
    QVERIFY(!window.close());
    // Without an icon to come back from, closing is closing.
    trayIcon(window)->hide();
    QVERIFY(window.close());
}

void tst_BaseWindow::comesBack_data()
{
    QTest::addColumn<int>("reason");
    QTest::addColumn<bool>("shown");

    QTest::newRow("click") << int(QSystemTrayIcon::Trigger) << true;
    QTest::newRow("double click") << int(QSystemTrayIcon::DoubleClick) << true;
    QTest::newRow("middle click") << int(QSystemTrayIcon::MiddleClick) << false;
    QTest::newRow("right click") << int(QSystemTrayIcon::Context) << false;
}

void tst_BaseWindow::comesBack()
{
    QFETCH(int, reason);
    QFETCH(bool, shown);
    BaseWindow window;
    auto *pages = window.findChild<QTabWidget *>("m_tab");
    pages->setCurrentIndex(1);
    emit trayIcon(window)->activated(QSystemTrayIcon::ActivationReason(reason));
    QCOMPARE(window.isVisible(), shown);
    QCOMPARE(pages->currentIndex(), shown ? 0 : 1);
    window.hide();
    pages->setCurrentIndex(1);
    emit trayIcon(window)->messageClicked();
    QVERIFY(window.isVisible());
    QCOMPARE(pages->currentIndex(), 1);
}

// The test platform has no tray, so the title bar offers the tray's menu.
void tst_BaseWindow::opensTheMenuWithoutATray()
{
    BaseWindow window;
    window.show();
    QMenu *menu = trayIcon(window)->contextMenu();
    QStringList texts;
    for (const QAction *action : menu->actions())
        texts += action->isSeparator() ? "-" : action->text();
    QCOMPARE(texts, (QStringList{"显示主界面", "-", "&自动启动", "-", "&退出"}));

    QSignalSpy switched(&window, &BaseWindow::SwitchAutoStartUp);
    QAction *autoStart = menu->actions().at(2);
    for (const bool state : {false, true}) {
        QContextMenuEvent click(QContextMenuEvent::Mouse, QPoint(300, 20));
        QCoreApplication::sendEvent(window.findChild<CustTitlebar *>(), &click);
        QVERIFY(menu->isVisible());
        QTest::mouseClick(menu, Qt::LeftButton, {}, menu->actionGeometry(autoStart).center());
        QCOMPARE(autoStart->isChecked(), state);
    }
    autoStart->setChecked(false);
    QCOMPARE(switched, (QList<QVariantList>{{false}, {true}}));
}

QTEST_MAIN(tst_BaseWindow)
#include "tst_basewindow.moc"
