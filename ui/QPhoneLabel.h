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
    void paintEvent(QPaintEvent *event) override;

private:
    void fitPicture();

    qreal m_pictureRatio = 0; ///< device pixels a pixel that the text's picture is made for
};
