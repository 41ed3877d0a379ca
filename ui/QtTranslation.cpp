#include "QtTranslation.h"

#include <QCoreApplication>
#include <QLibraryInfo>
#include <QTranslator>

void QtTranslation::load()
{
    static const QString name = QStringLiteral("qtbase_zh_CN");
    if (qApp->findChild<QTranslator *>(name))
        return;
    auto *translator = new QTranslator(qApp);
    translator->setObjectName(name);
    // Whatever the system speaks: the window is Chinese on all of them.
    for (const QString &folder : {QCoreApplication::applicationDirPath() + "/translations",
                                  QLibraryInfo::location(QLibraryInfo::TranslationsPath)}) {
        if (translator->load(name, folder)) {
            QCoreApplication::installTranslator(translator);
            return;
        }
    }
}
