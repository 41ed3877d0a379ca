#pragma once

#include "ui_CustMessagebox.h"

#include <QDialog>
#include <QDialogButtonBox>

class MaskForm;

/// A frameless modal message box with Chinese button labels.
class CustMessagebox : public QDialog, protected Ui_CustMessagebox
{
    Q_OBJECT
public:
    using StandardButton = QDialogButtonBox::StandardButton;
    using StandardButtons = QDialogButtonBox::StandardButtons;

    /// Runs a box over the middle of \a parent, which \a mask dims meanwhile, and returns the
    /// button that was chosen; Cancel when the box was closed in any other way. \a text may be rich
    /// text; \a title is not shown.
    static StandardButton showMessageBox(QWidget *parent, MaskForm *mask, QString title,
                                         QString text, StandardButtons buttons,
                                         StandardButton defaultButton);

    CustMessagebox(QWidget *parent, QString title, QString text, StandardButtons buttons,
                   StandardButton defaultButton);
    ~CustMessagebox() override;

public slots:
    void onButtonCloseClicked();
    void openUrl(QString url);

protected:
    void changeEvent(QEvent *event) override;

private:
    void centreOver(const QWidget *parent);
    void setUpButtons(StandardButtons buttons, StandardButton defaultButton);
    void labelButtons();

    QAbstractButton *m_clickedButton = nullptr;
    QPushButton *m_defaultButton = nullptr;
};
