// A plugin that the tests have the program load: tells on the debug output that the main window
// comes, which shows nowhere without a display. With "hide" it does what a click on its cross does.

#include <QCoreApplication>
#include <QDebug>
#include <QEvent>
#include <QGenericPlugin>
#include <QWindow>

class Observer : public QGenericPlugin
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID QGenericPluginFactoryInterface_iid FILE "observer.json")
public:
    QObject *create(const QString &, const QString &specification) override
    {
        m_hides = specification == "hide";
        qApp->installEventFilter(this);
        return new QObject;
    }

    bool eventFilter(QObject *object, QEvent *event) override
    {
        if (event->type() != QEvent::Show)
            return false;
        if (object->inherits("CustMessagebox"))
            qDebug() << "box" << object->findChild<QObject *>("m_pLabel")->property("text");
        if (!object->inherits("MainWindow"))
            return false;
        qDebug() << "window shown";
        if (m_hides)
            QMetaObject::invokeMethod(
                object, [=] { hide(object); }, Qt::QueuedConnection);
        return false;
    }

private:
    /// A toast may outlive the window for some seconds.
    static void hide(QObject *window)
    {
        QWindow toast;
        toast.show();
        window->setProperty("visible", false);
        toast.close();
        qDebug() << "toast gone";
    }

    bool m_hides = false;
};

#include "Observer.moc"
