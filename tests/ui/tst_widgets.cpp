#include "BaseWindow.h"
#include "BusyButton.h"
#include "CustMessagebox.h"
#include "CustTitlebar.h"
#include "ElidedText.h"
#include "FocusRing.h"
#include "LinkLabel.h"
#include "MaskForm.h"
#include "QPhoneLabel.h"
#include "QrCode.h"
#include "SwitchButton.h"

#include <QtTest>
#include <QtWidgets>

namespace
{
using Box = QDialogButtonBox;

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

/// Role and name of all below \a node that can have the focus, as a screen reader has them.
QStringList controls(QAccessibleInterface *node)
{
    QStringList all;
    for (int i = 0; i < node->childCount(); ++i) {
        QAccessibleInterface *child = node->child(i);
        const auto *widget = qobject_cast<QWidget *>(child->object());
        const auto role = QMetaEnum::fromType<QAccessible::Role>().valueToKey(child->role());
        if (widget && widget->isVisible() && child->state().focusable && !widget->focusProxy())
            all += QString("%1 %2").arg(role, child->text(QAccessible::Name));
        all += controls(child);
    }
    return all;
}

/// A title bar in its window, the way BaseWindow puts it there.
struct TitleScene {
    explicit TitleScene(int buttonType)
    {
        window.setGeometry(100, 100, 900, 560);
        bar->setButtonType(buttonType);
        bar->setFixedSize(900, 48);
        window.show();
    }

    QMainWindow window;
    CustTitlebar *bar = new CustTitlebar(&window);
};
} // namespace

class tst_widgets : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase() { Q_INIT_RESOURCE(brekka); }
    void switchButton();
    void messageBox_data();
    void messageBox();
    void titleBar_data();
    void titleBar();
    void popup();
    void closing();
    void trayMenu();
    void keyboard_data();
    void keyboard();
    void operation();
    void contextMenus();
    void longValues();
};

void tst_widgets::switchButton()
{
    SwitchButton button;
    button.resize(50, 23);
    auto *timer = button.findChild<QTimer *>();
    const QVector<int> on{0, 5, 10, 15, 20, 25, 30, 27}, off{27, 22, 17, 12, 7, 2, -3, 0};
    for (const auto &steps : {on, off}) {
        QTest::mouseClick(&button, Qt::RightButton);
        QCOMPARE(timer->interval(), 30);
        for (int i = 0; i < steps.size(); ++i) {
            QCOMPARE(sliderLeft(button), steps[i] + 4);
            QCOMPARE(timer->isActive(), i + 1 < steps.size());
            QVERIFY(QMetaObject::invokeMethod(&button, "updateValue"));
        }
        QCOMPARE(button.isChecked(), steps == on);
    }
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
    QTest::addColumn<int>("result"); // a row's name is what ends the box
    QTest::newRow("是") << int(Box::Yes);
    QTest::newRow("否") << int(Box::No);
    QTest::newRow("Return") << int(Box::Yes);
    QTest::newRow("Esc") << int(Box::Cancel);
    QTest::newRow("m_messageboxclose") << int(Box::Cancel);
    QTest::newRow("确定") << int(Box::Ok);
}

void tst_widgets::messageBox()
{
    QFETCH(int, result);
    QWidget window;
    window.setGeometry(51, 60, 901, 561);
    window.show();
    MaskForm mask(&window);
    mask.setMainWidget(&window);
    QTimer::singleShot(0, this, [&] {
        auto *box = qobject_cast<QDialog *>(QApplication::activeModalWidget());
        QTimer::singleShot(0, box, [=] { endWith(QTest::currentDataTag(), box); });
        QVERIFY(mask.isVisible());
        QCOMPARE(mask.geometry(), window.geometry());
        QCOMPARE(box->geometry(), QRect(51 + 263, 60 + 200, 374, 160));
        QVERIFY(box->focusWidget()->property("default").toBool());
    });
    const auto chosen = result == Box::Ok ? Box::Ok : Box::Yes;
    const auto buttons = result == Box::Ok ? chosen : chosen | Box::No;
    QCOMPARE(CustMessagebox::showMessageBox(&window, &mask, "", "text", buttons, chosen), result);
    QVERIFY(!mask.isVisible());
}

void tst_widgets::titleBar_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<QString>("place"); // a widget of the bar
    QTest::addColumn<bool>("moves");
    QTest::newRow("icon") << 0 << "m_pIcon" << true;
    QTest::newRow("download text") << 0 << "m_phonetext" << true;
    QTest::newRow("minimise button") << 0 << "m_pButtonMin" << false;
    QTest::newRow("close button") << 0 << "m_pButtonClose" << false;
    QTest::newRow("maximisable, on a button") << 1 << "m_pButtonClose" << true;
    QTest::newRow("close only, on the button") << 2 << "m_pButtonClose" << false;
    QTest::newRow("maximised") << 1 << "m_pButtonMax" << false;
}

void tst_widgets::titleBar()
{
    QFETCH(int, type);
    QFETCH(QString, place);
    QFETCH(bool, moves);
    const char *buttons[] = {"Button 最小化,Button 关闭", "Button 最小化,Button 最大化,Button 关闭",
                             "Button 关闭"};
    TitleScene scene(type);
    const auto found = controls(QAccessible::queryAccessibleInterface(scene.bar)).filter("Button");
    QCOMPARE(found.join(','), buttons[type]);
    auto *target = scene.bar->findChild<QWidget *>(place);
    const QPoint from = target->mapTo(scene.bar, target->rect().center());
    if (place == "m_pButtonMax")
        QTest::mouseClick(target, Qt::LeftButton);
    // A button keeps what is pressed on it; whether the bar may start a drag there counts.
    if (qobject_cast<QPushButton *>(target))
        target = scene.bar;
    const auto mouse = [&](QEvent::Type what, const QPoint &pos) {
        const QPoint global = scene.bar->mapToGlobal(pos);
        QCursor::setPos(global);
        const QPoint local = target->mapFrom(scene.bar, pos);
        QMouseEvent event(what, local, global, Qt::LeftButton, Qt::LeftButton, {});
        QCoreApplication::sendEvent(target, &event);
    };
    const QPoint before = scene.window.pos();
    mouse(QEvent::MouseButtonPress, from);
    mouse(QEvent::MouseMove, from + QPoint(30, 20));
    mouse(QEvent::MouseMove, from + QPoint(10, 5)); // in the window as it lies now
    const QPoint after = scene.window.pos();
    QCOMPARE(after - before, moves ? QPoint(40, 25) : QPoint());
    mouse(QEvent::MouseButtonRelease, from);
    mouse(QEvent::MouseMove, from + QPoint(50, 50));
    QCOMPARE(scene.window.pos(), after);
}

// Where it opens, that it is the same each time, and that a phone can read it.
void tst_widgets::popup()
{
    TitleScene scene(0);
    auto *label = scene.bar->findChild<QPhoneLabel *>();
    QEvent enter(QEvent::Enter), leave(QEvent::Leave);
    for (int factor = 1; factor <= 2; ++factor) {
        QCoreApplication::sendEvent(label, &enter);
        const auto popups = scene.window.findChildren<QrCode *>();
        QCOMPARE(popups.size(), 1);
        QVERIFY(popups[0]->isVisible());
        QCOMPARE(popups[0]->geometry(), QRect(label->pos() + QPoint(-50, 38), QSize(180, 210)));
        QPixmap shot(popups[0]->size() * factor);
        shot.setDevicePixelRatio(factor);
        popups[0]->render(&shot);
        QCoreApplication::sendEvent(label, &leave);
        QVERIFY(!popups[0]->isVisible());
        if (QSysInfo::kernelType() == "winnt")
            continue; // the reader of such codes is a Linux program
        const QTemporaryDir dir;
        QVERIFY(shot.save(dir.filePath("popup.png")));
        QProcess reader;
        reader.start("zbarimg", {"--quiet", "--raw", dir.filePath("popup.png")});
        QVERIFY(reader.waitForFinished());
        QCOMPARE(reader.readAll().trimmed(), QByteArray("https://www.brekka.example/app"));
    }
}

void tst_widgets::closing()
{
    BaseWindow window;
    auto *icon = window.findChild<QSystemTrayIcon *>();
    auto *tabs = window.findChild<QTabWidget *>("m_tab");
    window.show();
    QTest::mouseClick(window.findChild<QPushButton *>("m_pButtonClose"), Qt::LeftButton);
    // Without a tray to come back from the window stays within reach.
    const bool tray = QSystemTrayIcon::isSystemTrayAvailable();
    QCOMPARE(window.isMinimized(), !tray);
    QCOMPARE(window.isVisible(), !tray);
    tabs->setCurrentIndex(1);
    emit icon->activated(QSystemTrayIcon::Trigger);
    QVERIFY(window.isVisible() && !window.isMinimized());
    QCOMPARE(tabs->currentIndex(), 0);
    // Without an icon to come back from, closing is closing.
    icon->hide();
    QVERIFY(window.close());
}

// There is no tray on the test platform, so the title bar opens the tray's menu.
void tst_widgets::trayMenu()
{
    BaseWindow window;
    window.show();
    QSignalSpy switched(&window, &BaseWindow::SwitchAutoStartUp);
    auto *menu = window.findChild<QSystemTrayIcon *>()->contextMenu();
    QAction *autoStart = menu->actions().at(2);
    for (const bool state : {false, true}) {
        QContextMenuEvent event(QContextMenuEvent::Mouse, QPoint(300, 20));
        QCoreApplication::sendEvent(window.findChild<CustTitlebar *>(), &event);
        QCOMPARE(menu->isVisible(), !QSystemTrayIcon::isSystemTrayAvailable());
        // What the tray does itself.
        if (!menu->isVisible())
            menu->popup(QPoint(300, 20));
        auto *spoken = QAccessible::queryAccessibleInterface(menu);
        QStringList names;
        for (int i = 0; i < spoken->childCount(); ++i)
            names += spoken->child(i)->text(QAccessible::Name);
        QCOMPARE(names, (QStringList{"显示主界面", "", "自动启动", "", "退出"}));
        QTest::mouseClick(menu, Qt::LeftButton, {}, menu->actionGeometry(autoStart).center());
        QCOMPARE(autoStart->isChecked(), state);
    }
    autoStart->setChecked(false);
    QCOMPARE(switched, (QList<QVariantList>{{false}, {true}}));
}

// What a screen reader finds is what the keyboard reaches, with the ring around it.
void tst_widgets::keyboard_data()
{
    QTest::addColumn<QString>("expected");
    const QString bar = "StaticText 下载BrekkaAPP,Button 最小化,Button 关闭";
    QTest::newRow("first page") << "EditableText 游戏路径,Button 浏览,Button 自动搜索,Button "
                                   "安装插件,CheckBox 录像上传,PageTabList 插件列表," +
                                       bar;
    QTest::newRow("help page") << "Link 隐私,Link 隐私,Client 使用帮助,PageTabList 使用帮助," + bar;
    QTest::newRow("box") << "Button 关闭,Link 隐私,Button 是,Button 否";
}

void tst_widgets::keyboard()
{
    QFETCH(QString, expected);
    BaseWindow window;
    const QString link = "<a href=\"a#/b\">隐私</a>";
    CustMessagebox box(&window, {}, link, Box::Yes | Box::No, {});
    const bool isBox = !expected.contains("PageTabList");
    QWidget *area = isBox ? static_cast<QWidget *>(&box) : &window;
    window.findChild<QTabWidget *>("m_tab")->setCurrentIndex(expected.contains("Link"));
    for (auto *label : window.findChildren<LinkLabel *>())
        label->setText(link);
    area->show();
    QVERIFY(QTest::qWaitForWindowActive(area));
    QCOMPARE(controls(QAccessible::queryAccessibleInterface(area)).join(','), expected);

    const auto *ring = area->findChild<FocusRing *>();
    QSet<QWidget *> reached;
    for (int i = 0; i <= expected.count(',') + 1; ++i) {
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
        QWidget *focused = QApplication::focusWidget();
        reached += focused;
        QCOMPARE(ring->isVisible(), !qobject_cast<QLineEdit *>(focused));
        const QRect around(ring->mapTo(area, QPoint()), ring->size());
        QVERIFY(!ring->isVisible() ||
                around.intersects(focused->rect().translated(focused->mapTo(area, QPoint()))));
        QVERIFY(ring->parentWidget()->rect().contains(ring->geometry()));
    }
    QCOMPARE(reached.size(), expected.count(',') + 1);
    QTest::mouseClick(area, Qt::LeftButton, {}, QPoint(20, 100));
    QVERIFY(!ring->isVisible());
}

// What assistive programs and the Enter key do with what is our own.
void tst_widgets::operation()
{
    BaseWindow window;
    auto *button = window.findChild<SwitchButton *>();
    auto *link = window.findChild<LinkLabel *>();
    link->setText("<a href=\"a#/b\">隐私</a>");
    link->setOpenExternalLinks(false);
    QSignalSpy flips(button, &SwitchButton::statusChanged), opened(link, &QLabel::linkActivated);
    QAccessible::queryAccessibleInterface(button)->actionInterface()->doAction("Toggle");
    QAccessible::queryAccessibleInterface(link)->actionInterface()->doAction("Press");
    QTest::keyClick(link, Qt::Key_Return);
    QVERIFY(QAccessible::queryAccessibleInterface(button)->state().checked);
    QCOMPARE(flips.size(), 1);
    QCOMPARE(opened, (QList<QVariantList>{{"a#/b"}, {"a#/b"}}));
    auto *install = window.findChild<BusyButton *>();
    QSignalSpy clicks(install, &QPushButton::clicked);
    for (const bool busy : {true, false}) {
        install->setBusy(busy);
        QTest::mouseClick(install, Qt::LeftButton);
        QTest::keyClick(install, Qt::Key_Space);
        QCOMPARE(clicks.size(), busy ? 0 : 2);
        QCOMPARE(install->cursor().shape(), busy ? Qt::WaitCursor : Qt::ArrowCursor);
    }
}

// The path's menu is ours, and Qt's own appear nowhere.
void tst_widgets::contextMenus()
{
    BaseWindow window;
    window.show();
    QContextMenuEvent event(QContextMenuEvent::Mouse, QPoint(5, 5), QPoint(5, 5));
    QWidgetList others{window.findChild<QScrollArea *>()->verticalScrollBar()};
    for (auto *link : window.findChildren<LinkLabel *>())
        others += link;
    for (QWidget *widget : qAsConst(others)) {
        QCoreApplication::sendEvent(widget, &event);
        QVERIFY(!event.isAccepted());
    }
    auto *path = window.findChild<QLineEdit *>("m_GamePath");
    path->setText(QDir::rootPath());
    QCoreApplication::sendEvent(path, &event);
    const QList<QAction *> actions = QApplication::activePopupWidget()->actions();
    QCOMPARE(actions.size(), 2);
    QCOMPARE(actions[0]->text() + actions[1]->text(), "复制打开文件夹");
    actions[0]->trigger();
    QCOMPARE(QGuiApplication::clipboard()->text(), path->text());
}

// Long values leave the captions whole and end in "…"; their tool tips have all of them.
void tst_widgets::longValues()
{
    BaseWindow window;
    window.show();
    const QString text = QString("<b>X ").repeated(50).trimmed();
    for (const char *name : {"m_pluginver", "m_updatedate", "m_GamePath", "m_version"}) {
        window.findChild<QTabWidget *>("m_tab")->setCurrentIndex(qstrcmp(name, "m_version") == 0);
        auto *place = window.findChild<QWidget *>(name);
        place->setProperty("text", text);
        QVERIFY(!place->findChild<QTextDocument *>()); // which would load what such a text names
        QCoreApplication::sendPostedEvents();          // to the layout
        QHelpEvent help(QEvent::ToolTip, {}, {});
        QCoreApplication::sendEvent(place, &help);
        QCOMPARE(QTextDocumentFragment::fromHtml(place->toolTip()).toPlainText(), text);
        const QImage shown = place->grab().toImage();
        const int margin = qobject_cast<QLineEdit *>(place) ? 10 : 0;
        place->setProperty(
            "text", ElidedText::fit(text, place->fontMetrics(), place->width() - 2 * margin));
        QVERIFY(place->property("text").toString().contains("…"));
        QCOMPARE(shown, place->grab().toImage());
        place->setProperty("text", text);
    }
    for (const char *caption : {"label_9", "label_4", "label_5", "label_6"}) {
        const auto *label = window.findChild<QLabel *>(caption);
        QVERIFY(label->width() >= label->sizeHint().width());
        QVERIFY(label->parentWidget()->rect().contains(label->geometry()));
    }
}

QTEST_MAIN(tst_widgets)
#include "tst_widgets.moc"
