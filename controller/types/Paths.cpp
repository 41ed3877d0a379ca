#include "Paths.h"

#include <QCoreApplication>
#include <QDir>
#include <QStringList>
#include <QTemporaryFile>

QString Paths::inFolder(const QString &folder, const QString &relative)
{
#ifdef Q_OS_WIN
    return folder + QDir::separator() + relative;
#else
    QString native = relative;
    native.replace(QLatin1String("\\\\"), QLatin1String("\\"));
    native.replace(QLatin1Char('\\'), QDir::separator());
    return folder + QDir::separator() + native;
#endif
}

bool Paths::staysInside(const QString &relative)
{
    QString path = relative;
    path.replace(QLatin1Char('\\'), QLatin1Char('/'));
    if (path.isEmpty() || path.startsWith(QLatin1Char('/')))
        return false;
    // A colon names a drive at the start and an alternate data stream elsewhere.
    if (path.contains(QLatin1Char(':')) || path.contains(QChar::Null))
        return false;

    int depth = 0;
    const QStringList parts = path.split(QLatin1Char('/'), Qt::SkipEmptyParts);
    for (const QString &part : parts) {
        if (part == QLatin1String(".."))
            --depth;
        else if (part != QLatin1String("."))
            ++depth;
        if (depth < 0)
            return false;
    }
    return depth > 0;
}

QString Paths::downloadFolder()
{
    return inFolder(QCoreApplication::applicationDirPath(), QStringLiteral("plugins"));
}

QString Paths::packageFile()
{
    return inFolder(downloadFolder(), QStringLiteral("pluginsconfig"));
}

QString Paths::unwritableFolder()
{
    for (const QString &folder : {QCoreApplication::applicationDirPath(), QDir::currentPath()}) {
        if (!QTemporaryFile(folder + QLatin1String("/brekka-XXXXXX")).open())
            return folder;
    }
    return {};
}

QString Paths::unreadableFolder()
{
    for (const QString &folder : {QCoreApplication::applicationDirPath(), QDir::currentPath()}) {
        if (folder.contains(QChar::ReplacementCharacter))
            return folder;
    }
    return {};
}

QString Paths::updaterProgram()
{
#ifdef Q_OS_WIN
    const QString name = QStringLiteral("BrekkaUpdater.exe");
#else
    const QString name = QStringLiteral("BrekkaUpdater");
#endif
    return inFolder(QCoreApplication::applicationDirPath(), name);
}
