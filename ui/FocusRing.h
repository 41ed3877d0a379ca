#pragma once

#include <QWidget>

/// Shows which button of a window has the keyboard focus: a ring around it, in the same look on
/// whatever background it stands. Takes part in nothing else; the window owns it.
class FocusRing : public QWidget
{
    Q_OBJECT
public:
    explicit FocusRing(QWidget *window);

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    void follow(const QWidget *focused);
};
