#include "MaskForm.h"

#include <QApplication>
#include <QEvent>
#include <QPalette>

MaskForm::MaskForm(QWidget *parent) : QWidget(parent), m_mainWidget(QApplication::activeWindow())
{
    setWindowFlags(Qt::Tool | Qt::FramelessWindowHint);
    QPalette black = palette();
    black.setBrush(QPalette::Window, QBrush(Qt::black));
    setPalette(black);
    setWindowOpacity(0.6);
}

MaskForm::~MaskForm() = default;

void MaskForm::setMainWidget(QWidget *widget)
{
    if (widget)
        m_mainWidget = widget;
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
    }
    return QWidget::eventFilter(object, event);
}

void MaskForm::showEvent(QShowEvent *event)
{
    QWidget::showEvent(event);
    if (m_mainWidget)
        setGeometry(m_mainWidget->geometry());
}
