#pragma once

#include <QLabel>

/// A label that tells when the mouse enters and leaves it.
class QPhoneLabel : public QLabel
{
    Q_OBJECT
public:
    explicit QPhoneLabel(QWidget *parent = nullptr);

signals:
    /// The mouse came in; the label's position in its parent's coordinates.
    void showTooltip(int x, int y);
    void hideTooltip();

protected:
    void enterEvent(QEvent *event) override;
    void leaveEvent(QEvent *event) override;
};
