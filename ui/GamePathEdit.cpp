#include "GamePathEdit.h"

#include "ElidedText.h"

#include <QClipboard>
#include <QContextMenuEvent>
#include <QDesktopServices>
#include <QDir>
#include <QFocusEvent>
#include <QGuiApplication>
#include <QMenu>
#include <QPainter>
#include <QStyleOptionFrame>
#include <QUrl>

namespace
{
constexpr QRgb PlaceholderColor = qRgb(0x99, 0x99, 0x99); // paler than a path that is set
constexpr int TextMargin = 2; // pixels that a line edit leaves free on either side of its text
} // namespace

bool GamePathEdit::event(QEvent *event)
{
    if (event->type() == QEvent::ToolTip)
        ElidedText::updateToolTip(this, text(), textRect().width());
    return QLineEdit::event(event);
}

void GamePathEdit::focusInEvent(QFocusEvent *event)
{
    const Qt::FocusReason reason = event->reason();
    // Coming back to the window or from a menu changes nothing.
    if (reason == Qt::TabFocusReason || reason == Qt::BacktabFocusReason)
        setKeyboardFocus(true);
    QLineEdit::focusInEvent(event);
}

void GamePathEdit::mousePressEvent(QMouseEvent *event)
{
    setKeyboardFocus(false);
    QLineEdit::mousePressEvent(event);
}

void GamePathEdit::setKeyboardFocus(bool on)
{
    if (m_keyboardFocus == on)
        return;
    m_keyboardFocus = on;
    // A style sheet looks at properties only when it is put on.
    style()->unpolish(this);
    style()->polish(this);
}

void GamePathEdit::contextMenuEvent(QContextMenuEvent *event)
{
    auto *menu = new QMenu(this);
    menu->setObjectName(QStringLiteral("pathMenu")); // for the style sheet
    menu->setAttribute(Qt::WA_DeleteOnClose);
    QAction *copy = menu->addAction(QStringLiteral("复制"), this, &GamePathEdit::copyPath);
    QAction *open = menu->addAction(QStringLiteral("打开文件夹"), this, &GamePathEdit::openFolder);
    copy->setEnabled(!text().isEmpty());
    open->setEnabled(!text().isEmpty() && QDir(text()).exists());
    menu->popup(event->globalPos());
}

void GamePathEdit::copyPath()
{
    QGuiApplication::clipboard()->setText(hasSelectedText() ? selectedText() : text());
}

void GamePathEdit::openFolder()
{
    QDesktopServices::openUrl(QUrl::fromLocalFile(text()));
}

QRect GamePathEdit::textRect() const
{
    QStyleOptionFrame panel;
    initStyleOption(&panel);
    return style()
        ->subElementRect(QStyle::SE_LineEditContents, &panel, this)
        .adjusted(TextMargin, 0, -TextMargin, 0);
}

void GamePathEdit::paintEvent(QPaintEvent *event)
{
    const bool isEmpty = text().isEmpty();
    if (!isEmpty && ((hasFocus() && m_keyboardFocus) || hasSelectedText())) {
        QLineEdit::paintEvent(event);
        return;
    }
    QStyleOptionFrame panel;
    initStyleOption(&panel);
    QPainter painter(this);
    style()->drawPrimitive(QStyle::PE_PanelLineEdit, &panel, &painter, this);
    painter.setPen(isEmpty ? QColor(PlaceholderColor) : palette().color(QPalette::Text));
    painter.drawText(
        textRect(), Qt::AlignVCenter | Qt::TextSingleLine,
        ElidedText::fit(isEmpty ? placeholderText() : text(), fontMetrics(), textRect().width()));
}
