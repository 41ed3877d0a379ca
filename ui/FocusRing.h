#pragma once

#include <QMetaObject>
#include <QPointer>
#include <QWidget>

/// Marks the control that has the keyboard focus with a ring around it, in the same look on
/// whatever background it stands; the style sheets hide the style's own mark. Shows only while the
/// keyboard is used: the mouse takes it away.
///
/// QFocusFrame would lie in the control's own parent, whose edges cut the ring.
class FocusRing : public QWidget
{
    Q_OBJECT
public:
    /// Lies over \a area, which owns it, and marks the controls in it.
    explicit FocusRing(QWidget *area);

protected:
    bool eventFilter(QObject *object, QEvent *event) override;
    void paintEvent(QPaintEvent *event) override;

private:
    void follow(QWidget *old, QWidget *now);
    void place();

    QPointer<QWidget> m_marked;
    QMetaObject::Connection m_tabChange;
};
