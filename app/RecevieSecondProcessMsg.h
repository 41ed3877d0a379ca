#pragma once

#include <QByteArray>
#include <QObject>

class QWidget;

/// Brings the main window to the front when a later start of the program reports itself.
class RecevieSecondProcessMsg : public QObject
{
    Q_OBJECT
public:
    explicit RecevieSecondProcessMsg(QObject *parent = nullptr);

    /// Takes the window to raise; it is not owned and must outlive this object's signals.
    void setMainWindow(QWidget *window);

public slots:
    /// Raises the window, whatever the \a message says and whoever sent it.
    void receivedMessage(int instanceId, QByteArray message);

private:
    QWidget *m_window = nullptr;
};
