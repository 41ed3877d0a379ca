#include "MaskForm.h"

#include <QApplication>
#include <QEvent>
#include <QPainter>
#include <QPalette>
#include <QScreen>

#include <qpa/qplatformnativeinterface.h>

namespace
{
constexpr qreal Darkness = 0.6;

// Only an X server shows windows without anything that composites them. Qt watches whether
// something does, and has no public way to ask it.
bool isComposited(QScreen *screen)
{
    return QGuiApplication::platformName() != QLatin1String("xcb") ||
           QGuiApplication::platformNativeInterface()->nativeResourceForScreen("compositingEnabled",
                                                                               screen) != nullptr;
}
} // namespace

MaskForm::MaskForm(QWidget *parent) : QWidget(parent), m_mainWidget(QApplication::activeWindow())
{
    setWindowFlags(Qt::Tool | Qt::FramelessWindowHint);
    QPalette black = palette();
    black.setBrush(QPalette::Window, QBrush(Qt::black));
    setPalette(black);
    setWindowOpacity(Darkness);
}

MaskForm::~MaskForm() = default;

void MaskForm::setMainWidget(QWidget *widget)
{
    if (!widget)
        return;
    m_mainWidget = widget;
    widget->installEventFilter(this);
}

void MaskForm::setDialog(QWidget *dialog)
{
    if (!dialog)
        return;
    dialog->installEventFilter(this);
    m_dialog = dialog;
    connect(dialog, &QObject::destroyed, this, [this, dialog] {
        // Another dialog may have come up over this one.
        if (m_dialog == dialog)
            m_dialog = nullptr;
    });
}

bool MaskForm::eventFilter(QObject *object, QEvent *event)
{
    if (object == m_dialog) {
        // Without its widget it would lie over whatever the user has on the screen.
        if (event->type() == QEvent::Show && !(m_mainWidget && m_mainWidget->isMinimized()))
            show();
        else if (event->type() == QEvent::Hide)
            hide();
    } else if (object == m_mainWidget && event->type() == QEvent::UpdateRequest && isVisible()) {
        update(); // what goes on behind the dialog
    }
    return QWidget::eventFilter(object, event);
}

void MaskForm::showEvent(QShowEvent *event)
{
    QWidget::showEvent(event);
    if (m_mainWidget)
        setGeometry(m_mainWidget->geometry());
}

void MaskForm::paintEvent(QPaintEvent *event)
{
    if (!m_mainWidget || isComposited(screen())) {
        QWidget::paintEvent(event);
        return;
    }
    QPainter painter(this);
    painter.drawPixmap(0, 0, m_mainWidget->grab());
    QColor veil = palette().color(QPalette::Window);
    veil.setAlphaF(Darkness);
    painter.fillRect(rect(), veil);
}
