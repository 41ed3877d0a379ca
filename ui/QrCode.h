#pragma once

#include <QWidget>

#include <memory>

class Ui_QrCode;

/// A popup with the QR code of the phone app's download page.
class QrCode : public QWidget
{
    Q_OBJECT
public:
    explicit QrCode(QWidget *parent = nullptr);
    ~QrCode() override;

private:
    std::unique_ptr<Ui_QrCode> m_form;
};
