#pragma once

#include <QString>

class QFontMetrics;
class QWidget;

/// Texts from outside that may be longer than the place that they are shown in.
namespace ElidedText
{
/// \a text on one line of at most \a width pixels: a longer one loses its middle to "…", since
/// paths and versions differ at both ends.
QString fit(const QString &text, const QFontMetrics &metrics, int width);

/// Gives \a place the whole of \a text as tool tip where it is wider than \a width pixels, else
/// none. Tags in it are shown as they are.
void updateToolTip(QWidget *place, const QString &text, int width);
} // namespace ElidedText
