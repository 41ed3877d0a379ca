#pragma once

#include <QLabel>

/// A label whose text may hold one link, which Tab reaches as a whole and Enter or the space bar
/// opens. Qt's own keyboard access to links takes two steps for each and cuts off its mark.
class LinkLabel : public QLabel
{
    Q_OBJECT
public:
    using QLabel::QLabel;

    /// The address of the first link in the text, as it stands there; empty without a link.
    QString link() const;
    /// Opens the link as a click on it does.
    void activate();

protected:
    void showEvent(QShowEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;
};
