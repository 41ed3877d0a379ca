#include "MaskForm.h"
#include "ReminderWidget.h"

#include <QtTest>
#include <QtWidgets>

#include <cstdio>

namespace
{
constexpr int Patience = 30000; // milliseconds

/// The address of an X server of our own, which ends with its last client.
QByteArray startServer()
{
    char number[16] = {};
    FILE *server = popen("exec Xvfb -displayfd 1 -terminate 2>/dev/null", "r");
    if (!server || !fgets(number, sizeof number, server))
        qFatal("no virtual X server: is Xvfb installed?");
    return ':' + QByteArray(number).trimmed();
}

/// What the server knows about a window.
QByteArray xprop(const QStringList &arguments)
{
    QProcess process;
    process.start("xprop", arguments);
    process.waitForFinished();
    return process.readAll();
}

bool activate(QWidget &window)
{
    window.show();
    window.activateWindow();
    return QTest::qWaitForWindowActive(&window, Patience);
}
} // namespace

// What the X server and the window manager make of our windows, where nothing composites.
class tst_x11 : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void toast();
    void dimming();
    void cleanupTestCase() { m_manager.close(); }

private:
    QProcess m_manager;
};

void tst_x11::initTestCase()
{
    Q_INIT_RESOURCE(brekka);
    m_manager.start("openbox", QStringList());
    QTRY_VERIFY_WITH_TIMEOUT(xprop({"-root", "_NET_CLIENT_LIST"}).contains('#'), Patience);
}

// It fades where everybody sees it, leaves the keyboard where it is, and is no task.
void tst_x11::toast()
{
    QLineEdit window;
    QVERIFY(activate(window));
    ReminderWidget::showReminder(&window);
    QPointer<QWidget> toast;
    for (QWidget *widget : QApplication::topLevelWidgets()) {
        if (qobject_cast<ReminderWidget *>(widget))
            toast = widget;
    }
    QVERIFY(toast && QTest::qWaitForWindowExposed(toast));
    QProcess spy;
    const QString id = QString::number(toast->winId());
    spy.start("xprop", {"-spy", "-id", id, "_NET_WM_WINDOW_OPACITY"});
    const QByteArray hints = xprop({"-id", id, "_NET_WM_USER_TIME", "_NET_WM_WINDOW_TYPE"});
    QVERIFY2(hints.startsWith("_NET_WM_USER_TIME(CARDINAL) = 0\n"), hints);
    QVERIFY2(hints.contains("TYPE_NOTIFICATION, _NET_WM_WINDOW_TYPE_SPLASH"), hints);
    // The loop of the program: one that looks for events all the time would push out what waits.
    QEventLoop loop;
    QTimer poll;
    connect(&poll, &QTimer::timeout, &loop, [&] { toast->isVisible() ? void() : loop.quit(); });
    poll.start(50);
    QTimer::singleShot(Patience, &loop, &QEventLoop::quit);
    loop.exec();
    QVERIFY(!toast->isVisible());
    QCOMPARE(QApplication::activeWindow(), &window);
    spy.kill();
    spy.waitForFinished();
    QStringList opacities = QString(spy.readAll()).split('\n');
    QVERIFY(opacities.removeDuplicates() >= 0 && opacities.size() > 3);
}

// Nothing composites here, so what lies behind a dialog is seen on the cover itself, as it is now.
void tst_x11::dimming()
{
    QWidget window;
    QDialog dialog;
    MaskForm mask(&window);
    mask.setMainWidget(&window);
    mask.setDialog(&dialog);
    window.setGeometry(100, 100, 300, 200);
    QVERIFY(activate(window));
    dialog.move(600, 600);
    dialog.show();
    for (const QColor &color : {QColor(250, 100, 0), QColor(0, 200, 50)}) {
        window.setPalette(QPalette(color, color));
        const auto onScreen = [&] {
            return window.screen()->grabWindow(0, 250, 200, 1, 1).toImage().pixel(0, 0);
        };
        const QRgb dimmed = qRgb(color.red() * 2 / 5, color.green() * 2 / 5, color.blue() * 2 / 5);
        QTRY_COMPARE_WITH_TIMEOUT(onScreen(), dimmed, Patience);
    }
}

int main(int argc, char *argv[])
{
    qputenv("DISPLAY", startServer());
    qputenv("QT_QPA_PLATFORM", "xcb");
    qputenv("QT_XCB_GL_INTEGRATION", "none"); // the drivers keep memory of theirs
    QApplication application(argc, argv);
    tst_x11 test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_x11.moc"
