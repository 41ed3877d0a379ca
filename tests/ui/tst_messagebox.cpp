#include "CustMessagebox.h"
#include "FocusRing.h"
#include "MaskForm.h"
#include "ReminderWidget.h"

#include <QPushButton>
#include <QTimer>
#include <QtTest>

using Box = QDialogButtonBox;
using Act = std::function<void(CustMessagebox &)>;
Q_DECLARE_METATYPE(Act)
Q_DECLARE_METATYPE(QDialogButtonBox::StandardButtons)
Q_DECLARE_METATYPE(QDialogButtonBox::StandardButton)

class tst_MessageBox : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { Q_INIT_RESOURCE(brekka); }
    void ends_data();
    void ends();
    void leavesFocusWithoutDefault();
    void toastFades();
};

namespace
{
Act clicks(const char *label)
{
    return [=](CustMessagebox &box) {
        const auto buttons = box.findChildren<QPushButton *>();
        for (QPushButton *button : buttons) {
            if (button->text() == QString::fromUtf8(label))
                return QTest::mouseClick(button, Qt::LeftButton);
        }
    };
}

Act types(const QVector<Qt::Key> &keys)
{
    return [=](CustMessagebox &box) {
        for (Qt::Key key : keys) {
            QTest::keyClick(box.focusWidget(), key);
            auto *ring = box.findChild<FocusRing *>();
            const bool moved = key == Qt::Key_Tab;
            QCOMPARE(ring->isVisible(), moved);
            const QWidget *marked = box.focusWidget();
            QVERIFY(!moved || ring->geometry().contains(
                                  QRect(marked->mapTo(&box, QPoint()), marked->size())));
        }
    };
}
} // namespace

void tst_MessageBox::ends_data()
{
    QTest::addColumn<Box::StandardButtons>("buttons");
    QTest::addColumn<Box::StandardButton>("preset");
    QTest::addColumn<Act>("act");
    QTest::addColumn<QString>("labels");
    QTest::addColumn<Box::StandardButton>("result");
    const Box::StandardButtons yesNo = Box::Yes | Box::No;
    const QString both = QStringLiteral("否是");
    QTest::newRow("yes") << yesNo << Box::Yes << clicks("是") << both << Box::Yes;
    QTest::newRow("no") << yesNo << Box::Yes << clicks("否") << both << Box::No;
    QTest::newRow("close button") << yesNo << Box::Yes << clicks("") << both << Box::Cancel;
    QTest::newRow("Enter") << yesNo << Box::Yes << types({Qt::Key_Return}) << both << Box::Yes;
    QTest::newRow("Enter on another default")
        << yesNo << Box::No << types({Qt::Key_Enter}) << both << Box::No;
    QTest::newRow("Tab and blank")
        << yesNo << Box::Yes << types({Qt::Key_Tab, Qt::Key_Space}) << both << Box::No;
    QTest::newRow("Escape") << yesNo << Box::Yes << types({Qt::Key_Escape}) << both << Box::Cancel;
    QTest::newRow("closed by the desktop")
        << yesNo << Box::Yes << Act([](CustMessagebox &box) { box.close(); }) << both
        << Box::Cancel;
    QTest::newRow("ok") << Box::StandardButtons(Box::Ok) << Box::Ok << clicks("确定") << "确定"
                        << Box::Ok;
    QTest::newRow("cancel") << (Box::Ok | Box::Cancel) << Box::Ok << clicks("取消") << "取消确定"
                            << Box::Cancel;
}

void tst_MessageBox::ends()
{
    QFETCH(Box::StandardButtons, buttons);
    QFETCH(Box::StandardButton, preset);
    QFETCH(Act, act);
    QFETCH(QString, labels);
    QWidget window;
    window.setGeometry(50, 60, 901, 561);
    window.show();
    MaskForm mask(&window);
    mask.setMainWidget(&window);
    mask.setMainWidget(nullptr);

    bool reached = false;
    QTimer::singleShot(0, &window, [&] {
        auto *box = qobject_cast<CustMessagebox *>(QApplication::activeModalWidget());
        QVERIFY(box && QTest::qWaitForWindowActive(box));
        reached = true;
        QVERIFY(mask.isVisible());
        QCOMPARE(mask.geometry(), window.geometry());
        QVERIFY(qAbs(mask.windowOpacity() - 0.6) < 0.01);
        QCOMPARE(box->geometry(), QRect(50 + 263, 60 + 200, 374, 160));
        QStringList seen;
        for (QPushButton *button : box->findChild<Box *>()->findChildren<QPushButton *>())
            seen << button->text();
        seen.sort();
        QCOMPARE(seen.join(QString()), labels);
        act(*box);
        if (box->isVisible())
            box->done(-1); // lets a failed row end
    });
    const auto result = CustMessagebox::showMessageBox(&window, &mask, QString(),
                                                       QStringLiteral("?"), buttons, preset);
    QVERIFY(reached);
    QTEST(result, "result");
    QVERIFY(mask.isHidden());
}

void tst_MessageBox::leavesFocusWithoutDefault()
{
    QWidget parent;
    CustMessagebox box(&parent, QString(), QString(), Box::Yes | Box::No, Box::Ok);
    QVERIFY(!box.focusWidget());
    for (const QPushButton *button : box.findChildren<QPushButton *>())
        QVERIFY(!button->isDefault());
}

void tst_MessageBox::toastFades()
{
    QWidget window;
    window.setGeometry(50, 60, 901, 561);
    ReminderWidget::showReminder(&window);
    QPointer<ReminderWidget> toast;
    for (QWidget *widget : QApplication::topLevelWidgets()) {
        if (auto *found = qobject_cast<ReminderWidget *>(widget))
            toast = found;
    }
    QVERIFY(toast && toast->isVisible());
    QCOMPARE(toast->geometry(), QRect(50 + 371, 60 + 250, 158, 61));
    auto *timer = toast->findChild<QTimer *>();
    QVERIFY(timer->isActive() && timer->isSingleShot());
    QCOMPARE(timer->interval(), 1000);
    const qreal opacity = toast->windowOpacity();
    QVERIFY(qAbs(opacity - 0.6) < 0.01);

    QVERIFY(QSignalSpy(timer, &QTimer::timeout).wait(10000));
    QVERIFY(toast->isVisible());
    QTRY_VERIFY_WITH_TIMEOUT(toast->windowOpacity() < opacity, 10000);
    QTRY_VERIFY_WITH_TIMEOUT(!toast->isVisible(), 10000);
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    QVERIFY(toast); // closed, not deleted
}

QTEST_MAIN(tst_MessageBox)
#include "tst_messagebox.moc"
