#include "UnInstallPlugin.h"

#include "ApplicationSettings.h"
#include "FileReplacement.h"
#include "Paths.h"
#include "SettingsFile.h"

#include <QDebug>
#include <QFile>
#include <QSettings>
#include <QStringList>

UnInstallPlugin::UnInstallPlugin(QObject *parent) : QObject(parent) {}

void UnInstallPlugin::RemovePluginFiles()
{
    QSettings settings(SettingsFile::readable(), QSettings::IniFormat);
    const QString game = settings.value(ApplicationSettings::KeyGame).toString();
    settings.beginGroup(ApplicationSettings::GroupPlugins);
    const QStringList files = settings.allKeys();
    qDebug() << "filemd5:" << files;
    for (const QString &file : files) {
        // Without a folder the path would start at the root of the drive; and the settings file is
        // anybody's to edit.
        if (game.isEmpty() || !Paths::staysInside(file)) {
            qDebug() << "not in a game folder, left alone:" << file;
            continue;
        }
        const QString path = Paths::inFolder(game, file);
        const bool exists = QFile::exists(path);
        qDebug() << "delete plugin files" << exists;
        if (exists)
            QFile::remove(path);
        FileReplacement::removeLeftover(path);
    }
    settings.endGroup();
}
