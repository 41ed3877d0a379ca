#include "ElidedText.h"

#include <QFontMetrics>
#include <QTextDocument>
#include <QWidget>

namespace
{
bool fits(const QString &text, const QFontMetrics &metrics, int width)
{
    return metrics.horizontalAdvance(text) <= width;
}
} // namespace

QString ElidedText::fit(const QString &text, const QFontMetrics &metrics, int width)
{
    const QString line = text.simplified();
    QString shown = line;
    // Some fonts draw "…" wider between other characters than it is by itself, which Qt adds up.
    for (int room = width; room > 0 && !fits(shown, metrics, width); --room)
        shown = metrics.elidedText(line, Qt::ElideMiddle, room);
    return shown;
}

void ElidedText::updateToolTip(QWidget *place, const QString &text, int width)
{
    const bool isWhole = fits(text.simplified(), place->fontMetrics(), width);
    // As rich text it is wrapped, too.
    place->setToolTip(isWhole ? QString() : Qt::convertFromPlainText(text, Qt::WhiteSpaceNormal));
}
