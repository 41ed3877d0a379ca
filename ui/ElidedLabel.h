#pragma once

#include <QLabel>

/// A label of one line that shows as much of its text as there is room for, and the whole of it in
/// its tool tip. It gives way to its neighbours in a layout, but not below the width of a date.
class ElidedLabel : public QLabel
{
    Q_OBJECT
public:
    using QLabel::QLabel;

    QSize minimumSizeHint() const override;

protected:
    bool event(QEvent *event) override;
    void paintEvent(QPaintEvent *event) override;
};
