#include "RecevieSecondProcessMsg.h"

#include <QWidget>
#include <QtTest>

class tst_Raise : public QObject
{
    Q_OBJECT
private slots:
    void raises_data();
    void raises();
};

void tst_Raise::raises_data()
{
    QTest::addColumn<Qt::WindowStates>("before");
    QTest::addColumn<bool>("hidden");
    QTest::newRow("hidden in the tray") << Qt::WindowStates(Qt::WindowNoState) << true;
    QTest::newRow("minimised") << Qt::WindowStates(Qt::WindowMinimized) << false;
    QTest::newRow("behind others") << Qt::WindowStates(Qt::WindowNoState) << false;
}

void tst_Raise::raises()
{
    QFETCH(Qt::WindowStates, before);
    QFETCH(bool, hidden);
    QWidget window, other;
    window.show();
    window.setWindowState(before);
    window.setHidden(hidden);
    other.show();
    RecevieSecondProcessMsg receiver;
    receiver.receivedMessage(1, "nothing to raise yet");
    receiver.setMainWindow(&window);
    receiver.receivedMessage(1, "whatever it says");
    QVERIFY(window.isVisible() && !window.isMinimized());
    QTRY_VERIFY(window.isActiveWindow());
}

QTEST_MAIN(tst_Raise)
#include "tst_raise.moc"
