#pragma once

#include <QLineEdit>

/// The read-only field that shows the game folder. A path that is too long is shown without its
/// middle, and whole in the tool tip; who is in it by keyboard or selects a part sees and scrolls
/// the text itself. Its context menu is Chinese whether or not there is a translation of Qt.
class GamePathEdit : public QLineEdit
{
    Q_OBJECT
    /// Whether the keyboard brought the focus here; the style sheet's tint is for this only.
    Q_PROPERTY(bool keyboardFocus READ hasKeyboardFocus)
public:
    using QLineEdit::QLineEdit;

    bool hasKeyboardFocus() const { return m_keyboardFocus; }

protected:
    bool event(QEvent *event) override;
    void focusInEvent(QFocusEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;
    void contextMenuEvent(QContextMenuEvent *event) override;
    void paintEvent(QPaintEvent *event) override;

private:
    QRect textRect() const;
    void setKeyboardFocus(bool on);
    void copyPath();
    void openFolder();

    bool m_keyboardFocus = false;
};
