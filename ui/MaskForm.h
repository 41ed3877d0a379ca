#pragma once

#include <QWidget>

/// A translucent black cover over a widget, shown exactly while a given dialog is. Where the
/// desktop can't show one, it is a dimmed picture of the widget.
class MaskForm : public QWidget
{
    Q_OBJECT
public:
    explicit MaskForm(QWidget *parent = nullptr);
    ~MaskForm() override;

    /// The widget to cover; null is ignored.
    void setMainWidget(QWidget *widget);
    /// The dialog to follow until it is destroyed; null is ignored.
    void setDialog(QWidget *dialog);

protected:
    bool eventFilter(QObject *object, QEvent *event) override;
    void showEvent(QShowEvent *event) override;
    void paintEvent(QPaintEvent *event) override;

private:
    QWidget *m_mainWidget = nullptr;
    QWidget *m_dialog = nullptr;
};
