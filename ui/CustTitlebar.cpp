#include "CustTitlebar.h"

#include "FillBackground.h"
#include "QrCode.h"

#include <QColor>
#include <QCursor>
#include <QMouseEvent>

namespace
{
enum ButtonType { MinAndClose = 0, MinMaxAndClose = 1, CloseOnly = 2 };

constexpr QSize IconSize(25, 25);
constexpr QPoint PopupOffset(-50, 38);
} // namespace

CustTitlebar::CustTitlebar(QWidget *parent) : QWidget(parent)
{
    setupUi(this);
    connect(m_pButtonMin, &QPushButton::clicked, this, &CustTitlebar::onButtonMinClicked);
    connect(m_pButtonRestore, &QPushButton::clicked, this, &CustTitlebar::onButtonRestoreClicked);
    connect(m_pButtonMax, &QPushButton::clicked, this, &CustTitlebar::onButtonMaxClicked);
    connect(m_pButtonClose, &QPushButton::clicked, this, &CustTitlebar::onButtonCloseClicked);
    connect(m_phonetext, &QPhoneLabel::showTooltip, this, &CustTitlebar::OnShowQrCode);
    connect(m_phonetext, &QPhoneLabel::hideTooltip, this, &CustTitlebar::OnHideQrCode);
}

CustTitlebar::~CustTitlebar() = default;

void CustTitlebar::setBackgroundColor(int r, int g, int b)
{
    m_colorR = r;
    m_colorG = g;
    m_colorB = b;
    update();
}

void CustTitlebar::setTitleIcon(QString path)
{
    QPixmap icon = QPixmap(path).scaled(IconSize * devicePixelRatioF());
    icon.setDevicePixelRatio(devicePixelRatioF());
    m_pIcon->setPixmap(icon);
}

void CustTitlebar::setButtonType(int type)
{
    m_buttonType = type;
    if (type < MinAndClose || type > CloseOnly)
        return;
    m_pButtonMin->setVisible(type != CloseOnly);
    m_pButtonRestore->hide();
    m_pButtonMax->setVisible(type == MinMaxAndClose);
}

void CustTitlebar::saveRestoreInfo(QPoint pos, QSize size)
{
    m_restorePos = pos;
    m_restoreSize = size;
}

void CustTitlebar::getRestoreInfo(QPoint &pos, QSize &size) const
{
    pos = m_restorePos;
    size = m_restoreSize;
}

void CustTitlebar::onButtonMinClicked()
{
    emit signalButtonMinClicked();
}

void CustTitlebar::onButtonRestoreClicked()
{
    m_pButtonRestore->hide();
    m_pButtonMax->show();
    emit signalButtonRestoreClicked();
}

void CustTitlebar::onButtonMaxClicked()
{
    m_pButtonMax->hide();
    m_pButtonRestore->show();
    emit signalButtonMaxClicked();
}

void CustTitlebar::onButtonCloseClicked()
{
    emit signalButtonCloseClicked();
}

void CustTitlebar::OnShowQrCode(int x, int y)
{
    if (!m_qrCode)
        m_qrCode = new QrCode(parentWidget());
    m_qrCode->move(QPoint(x, y) + PopupOffset);
    m_qrCode->show();
}

void CustTitlebar::OnHideQrCode()
{
    if (m_qrCode)
        m_qrCode->hide();
}

bool CustTitlebar::mayDrag() const
{
    // A maximised window stays where it is.
    if (m_buttonType == MinMaxAndClose)
        return m_pButtonMax->isVisible();
    const QPoint cursor = mapFromGlobal(QCursor::pos());
    return !m_pButtonClose->geometry().contains(cursor) &&
           !m_pButtonMin->geometry().contains(cursor);
}

void CustTitlebar::mousePressEvent(QMouseEvent *event)
{
    if (mayDrag()) {
        m_isPressed = true;
        m_startMovePos = event->globalPos();
    }
    QWidget::mousePressEvent(event);
}

void CustTitlebar::mouseMoveEvent(QMouseEvent *event)
{
    if (m_isPressed) {
        const QPoint delta = event->globalPos() - m_startMovePos;
        m_startMovePos = event->globalPos();
        parentWidget()->move(parentWidget()->pos() + delta);
    }
    QWidget::mouseMoveEvent(event);
}

void CustTitlebar::mouseReleaseEvent(QMouseEvent *event)
{
    m_isPressed = false;
    QWidget::mouseReleaseEvent(event);
}

void CustTitlebar::mouseDoubleClickEvent(QMouseEvent *event)
{
    if (m_buttonType == MinMaxAndClose) {
        if (m_pButtonMax->isVisible())
            onButtonMaxClicked();
        else
            onButtonRestoreClicked();
    }
    QWidget::mouseDoubleClickEvent(event);
}

void CustTitlebar::paintEvent(QPaintEvent *event)
{
    fillBackground(this, QColor(m_colorR, m_colorG, m_colorB));
    if (parentWidget() && parentWidget()->width() != width())
        setFixedWidth(parentWidget()->width());
    QWidget::paintEvent(event);
}
