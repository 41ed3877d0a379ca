#include "LinkLabel.h"

#include <QDesktopServices>
#include <QKeyEvent>
#include <QTextBlock>
#include <QTextDocument>
#include <QUrl>

QString LinkLabel::link() const
{
    if (!Qt::mightBeRichText(text()))
        return {};
    QTextDocument document;
    document.setHtml(text());
    for (QTextBlock block = document.begin(); block.isValid(); block = block.next()) {
        for (auto part = block.begin(); !part.atEnd(); ++part) {
            const QString address = part.fragment().charFormat().anchorHref();
            if (!address.isEmpty())
                return address;
        }
    }
    return {};
}

void LinkLabel::activate()
{
    if (openExternalLinks())
        QDesktopServices::openUrl(QUrl(link()));
    else
        emit linkActivated(link());
}

void LinkLabel::showEvent(QShowEvent *event)
{
    setFocusPolicy(link().isEmpty() ? Qt::NoFocus : Qt::TabFocus);
    QLabel::showEvent(event);
}

void LinkLabel::keyPressEvent(QKeyEvent *event)
{
    switch (event->key()) {
    case Qt::Key_Return:
    case Qt::Key_Enter:
    case Qt::Key_Space:
        activate();
        break;
    default:
        QLabel::keyPressEvent(event);
    }
}
