#pragma once

#include <QLabel>

/// A label that tells when the mouse, or the focus by way of the keyboard, enters and leaves it.
class QPhoneLabel : public QLabel
{
    Q_OBJECT
public:
    explicit QPhoneLabel(QWidget *parent = nullptr);

signals:
    /// The mouse or the focus came in; the label's position in its parent's coordinates.
    void showTooltip(int x, int y);
    void hideTooltip();

protected:
    void enterEvent(QEvent *event) override;
    void leaveEvent(QEvent *event) override;
    void focusInEvent(QFocusEvent *event) override;
    void focusOutEvent(QFocusEvent *event) override;
};
