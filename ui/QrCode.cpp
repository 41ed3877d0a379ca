#include "QrCode.h"

#include "ui_QrCode.h"

QrCode::QrCode(QWidget *parent) : QWidget(parent), m_form(std::make_unique<Ui_QrCode>())
{
    m_form->setupUi(this);
    setWindowFlags(Qt::FramelessWindowHint);
    setAttribute(Qt::WA_TranslucentBackground);
    // It lies over a strip of the text that opens it, and must not draw the mouse away from that.
    setAttribute(Qt::WA_TransparentForMouseEvents);
}

QrCode::~QrCode() = default;
