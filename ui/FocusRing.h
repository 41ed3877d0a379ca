#pragma once

#include <QWidget>

/// Marks the button or switch that has the keyboard focus with a ring around it, in the same look
/// on whatever background it stands: the style sheets hide the style's own mark. Shows only once
/// the keyboard moved the focus in this window.
class FocusRing : public QWidget
{
    Q_OBJECT
public:
    /// Lies over \a area, which owns it, and marks the widgets in it.
    explicit FocusRing(QWidget *area);

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    void follow(QWidget *old, QWidget *now);
};
