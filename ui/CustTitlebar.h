#pragma once

#include "ui_CustTitlebar.h"

#include <QPoint>
#include <QSize>
#include <QWidget>

class QrCode;

/// The title bar of a frameless window: moves its parent while it is dragged, and turns its buttons
/// into signals. Hovering over the download text opens a popup with a QR code.
class CustTitlebar : public QWidget, protected Ui_CustTitlebar
{
    Q_OBJECT
public:
    explicit CustTitlebar(QWidget *parent = nullptr);
    ~CustTitlebar() override;

    void setBackgroundColor(int r, int g, int b);
    void setTitleIcon(QString path);
    /// 0: minimise and close; 1: minimise, maximise and close; 2: close only.
    void setButtonType(int type);
    /// Keeps the window's geometry from before it is maximised.
    void saveRestoreInfo(QPoint pos, QSize size);
    void getRestoreInfo(QPoint &pos, QSize &size) const;

signals:
    void signalButtonMinClicked();
    void signalButtonRestoreClicked();
    void signalButtonMaxClicked();
    void signalButtonCloseClicked();

private slots:
    void onButtonMinClicked();
    void onButtonRestoreClicked();
    void onButtonMaxClicked();
    void onButtonCloseClicked();
    void OnHideQrCode();
    void OnShowQrCode(int x, int y);

protected:
    void mousePressEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;
    void mouseDoubleClickEvent(QMouseEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void paintEvent(QPaintEvent *event) override;

private:
    bool mayDrag() const;

    int m_colorR = 0;
    int m_colorG = 0;
    int m_colorB = 0;
    QPoint m_restorePos;
    QSize m_restoreSize;
    bool m_isPressed = false;
    QPoint m_startMovePos; ///< global mouse position at the last step of the drag
    int m_buttonType = 0;
    QrCode *m_qrCode = nullptr; ///< made when it is first shown; a child of the window
};
