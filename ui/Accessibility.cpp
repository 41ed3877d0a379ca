#include "Accessibility.h"

#include "LinkLabel.h"
#include "SwitchButton.h"

#include <QAccessibleWidget>
#include <QTextDocumentFragment>

namespace
{
/// A switch speaks as a check box.
class AccessibleSwitch : public QAccessibleWidget
{
public:
    explicit AccessibleSwitch(SwitchButton *control)
        : QAccessibleWidget(control, QAccessible::CheckBox), m_switch(control)
    {
    }

    QAccessible::State state() const override
    {
        QAccessible::State state = QAccessibleWidget::state();
        state.checkable = true;
        state.checked = m_switch->isChecked();
        return state;
    }

    QStringList actionNames() const override { return {toggleAction(), setFocusAction()}; }

    void doAction(const QString &action) override
    {
        if (action == toggleAction())
            m_switch->flip();
        else
            QAccessibleWidget::doAction(action);
    }

private:
    SwitchButton *m_switch;
};

/// A label with a link speaks as one. The text may change while somebody reads it.
class AccessibleLink : public QAccessibleWidget
{
public:
    explicit AccessibleLink(LinkLabel *label) : QAccessibleWidget(label), m_label(label) {}

    QAccessible::Role role() const override
    {
        return m_label->link().isEmpty() ? QAccessible::StaticText : QAccessible::Link;
    }

    QString text(QAccessible::Text kind) const override
    {
        return kind == QAccessible::Name
                   ? QTextDocumentFragment::fromHtml(m_label->text()).toPlainText().trimmed()
                   : QAccessibleWidget::text(kind);
    }

    QStringList actionNames() const override { return {pressAction(), setFocusAction()}; }

    void doAction(const QString &action) override
    {
        if (action == pressAction())
            m_label->activate();
        else
            QAccessibleWidget::doAction(action);
    }

private:
    LinkLabel *m_label;
};

QAccessibleInterface *create(const QString &className, QObject *object)
{
    // Qt asks for each class up to QObject, and comes to the object's own first.
    if (className != QLatin1String(object->metaObject()->className()))
        return nullptr;
    if (auto *control = qobject_cast<SwitchButton *>(object))
        return new AccessibleSwitch(control);
    if (auto *label = qobject_cast<LinkLabel *>(object))
        return new AccessibleLink(label);
    return nullptr;
}
} // namespace

void Accessibility::install()
{
    QAccessible::installFactory(create);
}
