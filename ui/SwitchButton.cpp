#include "SwitchButton.h"

#include <QAccessible>
#include <QKeyEvent>
#include <QPainter>
#include <QPainterPath>
#include <QTimer>

namespace
{
constexpr int TickTime = 30; // milliseconds
} // namespace

SwitchButton::SwitchButton(QWidget *parent) : QWidget(parent), m_timer(new QTimer(this))
{
    m_timer->setInterval(TickTime);
    connect(m_timer, &QTimer::timeout, this, &SwitchButton::updateValue);
    setFocusPolicy(Qt::TabFocus);
}

SwitchButton::~SwitchButton() = default;

void SwitchButton::mousePressEvent(QMouseEvent *event)
{
    Q_UNUSED(event)
    flip();
}

void SwitchButton::keyPressEvent(QKeyEvent *event)
{
    if (event->key() == Qt::Key_Space && !event->isAutoRepeat())
        flip();
    else
        QWidget::keyPressEvent(event);
}

void SwitchButton::flip()
{
    m_checked = !m_checked;
    emit statusChanged(m_checked);
    moveSlider();
}

void SwitchButton::setChecked(bool checked)
{
    m_checked = checked;
    moveSlider();
}

void SwitchButton::moveSlider()
{
    QAccessible::State changed;
    changed.checked = true;
    QAccessibleStateChangeEvent spoken(this, changed);
    QAccessible::updateAccessibility(&spoken);

    m_step = width() / 10;
    m_endX = m_checked ? width() - height() : 0;
    if (m_animation) {
        m_timer->start();
        return;
    }
    m_startX = m_endX;
    update();
}

void SwitchButton::updateValue()
{
    if (m_checked && m_startX < m_endX) {
        m_startX += m_step;
    } else if (!m_checked && m_startX > m_endX) {
        m_startX -= m_step;
    } else {
        m_startX = m_endX;
        m_timer->stop();
    }
    update();
}

void SwitchButton::paintEvent(QPaintEvent *event)
{
    Q_UNUSED(event)
    QPainter painter(this);
    painter.setRenderHints(QPainter::Antialiasing | QPainter::TextAntialiasing);
    painter.save();
    paintTrack(painter);
    paintText(painter);
    painter.restore();
    painter.save();
    paintSlider(painter);
    painter.restore();
}

void SwitchButton::paintTrack(QPainter &painter)
{
    QColor color = m_checked ? m_bgColorOn : m_bgColorOff;
    if (isEnabled())
        color.setAlpha(255);
    const int end = qMin(width(), height());
    QPainterPath left, right, middle;
    left.addEllipse(0, 0, end, end);
    right.addEllipse(width() - end, 0, end, end);
    middle.addRect(end / 2.0, 0, width() - end, height());
    painter.setPen(Qt::NoPen);
    painter.setBrush(color);
    painter.drawPath(left + right + middle);
}

void SwitchButton::paintText(QPainter &painter)
{
    const int taken = qMin(width(), height()) - 2 * m_space - 15;
    const QRect rect(m_checked ? 0 : taken, 0, width() - taken, height());
    painter.setPen(m_textColor);
    painter.drawText(rect, Qt::AlignCenter, m_checked ? m_textOn : m_textOff);
}

void SwitchButton::paintSlider(QPainter &painter)
{
    const int diameter = qMin(width(), height()) - 2 * m_space;
    painter.setPen(Qt::NoPen);
    painter.setBrush(m_checked ? m_sliderColorOn : m_sliderColorOff);
    painter.drawEllipse(m_startX + m_space, m_space, diameter, diameter);
}

template <typename Value>
void SwitchButton::change(Value &member, const Value &value)
{
    if (member == value)
        return;
    member = value;
    update();
}

void SwitchButton::setSpace(int space)
{
    change(m_space, space);
}

void SwitchButton::setRadius(int radius)
{
    change(m_radius, radius);
}

void SwitchButton::setShowText(bool show)
{
    change(m_showText, show);
}

void SwitchButton::setShowCircle(bool show)
{
    change(m_showCircle, show);
}

void SwitchButton::setAnimation(bool ok)
{
    change(m_animation, ok);
}

void SwitchButton::setBgColorOn(QColor color)
{
    change(m_bgColorOn, color);
}

void SwitchButton::setBgColorOff(QColor color)
{
    change(m_bgColorOff, color);
}

void SwitchButton::setSliderColorOn(QColor color)
{
    change(m_sliderColorOn, color);
}

void SwitchButton::setSliderColorOff(QColor color)
{
    change(m_sliderColorOff, color);
}

void SwitchButton::setTextColor(QColor color)
{
    change(m_textColor, color);
}

void SwitchButton::setTextOn(QString text)
{
    change(m_textOn, text);
}

void SwitchButton::setTextOff(QString text)
{
    change(m_textOff, text);
}
