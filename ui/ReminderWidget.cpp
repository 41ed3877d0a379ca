#include "ReminderWidget.h"

#include "ui_ReminderWidget.h"

#include <QApplication>
#include <QPropertyAnimation>
#include <QStyle>
#include <QTimer>
#include <QWindow>

namespace
{
constexpr int StayTime = 1000; // milliseconds
constexpr int FadeTime = 400;  // milliseconds
constexpr qreal Opacity = 0.6;

// Windows tells by its effects whether to animate, other desktops by the style.
bool isAnimated(const QWidget *widget)
{
    const bool hasEffects = QGuiApplication::platformName() != QLatin1String("windows") ||
                            QApplication::isEffectEnabled(Qt::UI_General);
    return hasEffects &&
           widget->style()->styleHint(QStyle::SH_Widget_Animation_Duration, nullptr, widget) > 0;
}

// A toast that has closed stays allocated; the application takes all of them with it.
void deleteToasts()
{
    const QWidgetList windows = QApplication::topLevelWidgets();
    for (QWidget *window : windows) {
        if (qobject_cast<ReminderWidget *>(window))
            delete window;
    }
}
} // namespace

void ReminderWidget::showReminder(QWidget *parent)
{
    static const bool registered = (qAddPostRoutine(deleteToasts), true);
    Q_UNUSED(registered)
    auto *toast = new ReminderWidget;
    toast->setWindowOpacity(Opacity);
    const QPoint origin = parent->mapToGlobal(QPoint(0, 0));
    toast->move(origin.x() + (parent->width() - toast->width()) / 2,
                origin.y() + (parent->height() - toast->height()) / 2);
    toast->m_startTimer->start(StayTime);
    toast->m_startTimer->setSingleShot(true);
    connect(toast->m_startTimer, &QTimer::timeout, toast, &ReminderWidget::StartQuit);
    toast->setWindowFlags(Qt::SubWindow | Qt::FramelessWindowHint | Qt::WindowMinimizeButtonHint);
    // A window that belongs to another has no entry in the task bar of its own.
    toast->winId();
    toast->windowHandle()->setTransientParent(parent->window()->windowHandle());
    toast->show();
}

ReminderWidget::ReminderWidget(QWidget *parent)
    : QWidget(parent), m_form(std::make_unique<Ui_ReminderWidget>()), m_startTimer(new QTimer(this))
{
    m_form->setupUi(this);
    setAttribute(Qt::WA_TranslucentBackground); // for the rounded corners
    setAttribute(Qt::WA_ShowWithoutActivating); // whoever is typing goes on typing
    // What keeps it out of the task bar on X11, in the words of newer and of older desktops.
    setAttribute(Qt::WA_X11NetWmWindowTypeNotification);
    setAttribute(Qt::WA_X11NetWmWindowTypeSplash);
}

ReminderWidget::~ReminderWidget() = default;

void ReminderWidget::StartQuit()
{
    if (!isAnimated(this)) {
        close();
        return;
    }
    auto *fade = new QPropertyAnimation(this, "windowOpacity");
    fade->setDuration(FadeTime);
    fade->setStartValue(Opacity);
    fade->setEndValue(0);
    connect(
        fade, &QPropertyAnimation::valueChanged, this,
        [this](const QVariant &value) {
            if (value.toDouble() <= 0)
                close();
            // Nothing else repaints, and only with a repaint does the new opacity reach the server.
            update();
        },
        Qt::DirectConnection);
    // It belongs to nobody, so a toast that goes early takes it along.
    connect(this, &QObject::destroyed, fade, [fade] { delete fade; });
    fade->start(QAbstractAnimation::DeleteWhenStopped);
}
