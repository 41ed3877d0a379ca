#include "CustMessagebox.h"

#include "FocusRing.h"
#include "MaskForm.h"

#include <QDebug>
#include <QDesktopServices>
#include <QEvent>
#include <QPushButton>
#include <QUrl>

CustMessagebox::StandardButton CustMessagebox::showMessageBox(QWidget *parent, MaskForm *mask,
                                                              QString title, QString text,
                                                              StandardButtons buttons,
                                                              StandardButton defaultButton)
{
    CustMessagebox box(parent, title, text, buttons, defaultButton);
    mask->setDialog(&box);
    // The close button and Escape leave no clicked button.
    if (box.exec() == -1 || !box.m_clickedButton)
        return QDialogButtonBox::Cancel;
    return box.m_pButtonBox->standardButton(box.m_clickedButton);
}

CustMessagebox::CustMessagebox(QWidget *parent, QString title, QString text,
                               StandardButtons buttons, StandardButton defaultButton)
{
    Q_UNUSED(title)
    setupUi(this);
    setWindowFlags(Qt::SubWindow | Qt::FramelessWindowHint | Qt::WindowMinimizeButtonHint);
    setAttribute(Qt::WA_TranslucentBackground);
    m_pLabel->setText(text);
    m_pLabel->setOpenExternalLinks(true);
    connect(m_pLabel, &QLabel::linkActivated, this, &CustMessagebox::openUrl);
    centreOver(parent);
    new FocusRing(verticalWidget); // the margin around it is transparent
    setUpButtons(buttons, defaultButton);
    connect(m_messageboxclose, &QPushButton::clicked, this, &CustMessagebox::onButtonCloseClicked);
    connect(m_pButtonBox, &QDialogButtonBox::clicked, this, [this](QAbstractButton *button) {
        m_clickedButton = button;
        done(m_pButtonBox->standardButton(button));
    });
    labelButtons();
}

CustMessagebox::~CustMessagebox() = default;

void CustMessagebox::centreOver(const QWidget *parent)
{
    const QPoint origin = parent->mapToGlobal(QPoint(0, 0));
    move(origin.x() + (parent->width() - width()) / 2,
         origin.y() + (parent->height() - height()) / 2);
}

void CustMessagebox::setUpButtons(StandardButtons buttons, StandardButton defaultButton)
{
    m_pButtonBox->setStandardButtons(buttons);
    // Some desktops put icons of their own on standard buttons.
    for (QAbstractButton *button : m_pButtonBox->buttons())
        button->setIcon(QIcon());
    // The ring shows the focus; the style's own dotted frame would come on top.
    for (auto *button : findChildren<QPushButton *>())
        button->setStyleSheet(button->styleSheet() + QStringLiteral("QPushButton{outline: none}"));
    m_defaultButton = m_pButtonBox->button(defaultButton);
    if (!m_defaultButton)
        return;
    m_defaultButton->setDefault(true);
    m_defaultButton->setFocus(Qt::ActiveWindowFocusReason);
}

void CustMessagebox::labelButtons()
{
    const struct {
        StandardButton button;
        QString label;
    } labels[] = {{QDialogButtonBox::Yes, QStringLiteral("是")},
                  {QDialogButtonBox::No, QStringLiteral("否")},
                  {QDialogButtonBox::Ok, QStringLiteral("确定")},
                  {QDialogButtonBox::Cancel, QStringLiteral("取消")}};
    for (const auto &entry : labels) {
        if (QPushButton *button = m_pButtonBox->button(entry.button))
            button->setText(entry.label);
    }
}

void CustMessagebox::onButtonCloseClicked()
{
    done(QDialogButtonBox::Cancel);
}

void CustMessagebox::openUrl(QString url)
{
    qDebug() << "open url" << url;
    QDesktopServices::openUrl(QUrl(QStringLiteral("file:///") + url, QUrl::TolerantMode));
}

void CustMessagebox::changeEvent(QEvent *event)
{
    // The button box gets the event after us and puts its own labels back.
    if (event->type() == QEvent::LanguageChange)
        QMetaObject::invokeMethod(this, &CustMessagebox::labelButtons, Qt::QueuedConnection);
    QDialog::changeEvent(event);
}
