#pragma once

#include <QWidget>

#include <memory>

class QTimer;
class Ui_ReminderWidget;

/// A toast that says that the installation succeeded: stays for a second, then fades out.
class ReminderWidget : public QWidget
{
    Q_OBJECT
public:
    /// Shows a toast over the middle of \a parent; it closes itself.
    static void showReminder(QWidget *parent);

    explicit ReminderWidget(QWidget *parent = nullptr);
    ~ReminderWidget() override;

public slots:
    void StartQuit();

private:
    std::unique_ptr<Ui_ReminderWidget> m_form;
    QTimer *m_startTimer;
};
