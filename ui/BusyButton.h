#pragma once

#include <QPushButton>

/// A push button that can be at work: then it has a wait cursor and the look that the style sheet
/// gives to its property "busy", and neither mouse nor keyboard click it. Disabled it would pass
/// the keyboard's focus on, and Qt shows no cursor of their own over disabled widgets.
class BusyButton : public QPushButton
{
    Q_OBJECT
    Q_PROPERTY(bool busy READ isBusy)
public:
    using QPushButton::QPushButton;

    bool isBusy() const { return m_busy; }
    void setBusy(bool busy);

protected:
    bool hitButton(const QPoint &pos) const override;
    void keyPressEvent(QKeyEvent *event) override;

private:
    bool m_busy = false;
};
