#pragma once

#include <QLabel>

/// A text of the help page, whose lines are 19 pixels high whatever the font would make of them;
/// style sheets can't say so.
class HelpLabel : public QLabel
{
    Q_OBJECT
public:
    using QLabel::QLabel;

protected:
    void paintEvent(QPaintEvent *event) override;
};
