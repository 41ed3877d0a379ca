#include "QrCode.h"

#include "ui_QrCode.h"

QrCode::QrCode(QWidget *parent) : QWidget(parent), m_form(std::make_unique<Ui_QrCode>())
{
    m_form->setupUi(this);
    setWindowFlags(Qt::FramelessWindowHint);
    setAttribute(Qt::WA_TranslucentBackground);
}

QrCode::~QrCode() = default;
