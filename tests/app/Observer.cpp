// A plugin that the tests have the program load: tells on the debug output when the main window
// comes and goes, which shows nowhere else without a display. With "close" it closes the window,
// too.

#include <QCoreApplication>
#include <QDebug>
#include <QEvent>
#include <QGenericPlugin>

class Observer : public QObject
{
public:
    explicit Observer(bool closes) : m_closes(closes) { qApp->installEventFilter(this); }

    bool eventFilter(QObject *object, QEvent *event) override
    {
        if (!object->inherits("MainWindow"))
            return false;
        if (event->type() == QEvent::Hide)
            qDebug() << "window hidden";
        if (event->type() != QEvent::Show)
            return false;
        qDebug() << "window shown";
        if (m_closes)
            QMetaObject::invokeMethod(object, "close", Qt::QueuedConnection);
        return false;
    }

private:
    const bool m_closes;
};

class ObserverPlugin : public QGenericPlugin
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID QGenericPluginFactoryInterface_iid FILE "observer.json")
public:
    QObject *create(const QString &, const QString &specification) override
    {
        return new Observer(specification == "close");
    }
};

#include "Observer.moc"
