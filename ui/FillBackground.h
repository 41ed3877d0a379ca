#pragma once

class QColor;
class QWidget;

/// Fills the whole of \a widget with \a color; to be called from its paint event.
void fillBackground(QWidget *widget, const QColor &color);
