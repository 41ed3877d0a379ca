#include "SettingsFile.h"

#include "ApplicationSettings.h"
#include "FileReplacement.h"

#include <QFile>
#include <QFileInfo>

namespace
{
QString fileName()
{
    return QLatin1String(ApplicationSettings::FileName);
}

QString copyName()
{
    return fileName() + QLatin1String(SettingsFile::CopySuffix);
}

/// No character takes more than 7 bytes, escaped.
qint64 longestForm(const QString &text)
{
    qint64 size = 0;
    for (const QChar c : text)
        size += c.unicode() < 0x80 && c.isLetterOrNumber() ? 1 : 7;
    return size;
}

qint64 longestFile(const QSettings &settings)
{
    constexpr int Extra = 32; // quotes, line ends, a group's heading, the type of a value
    qint64 size = QFileInfo(fileName()).size();
    const QStringList keys = settings.allKeys();
    for (const QString &key : keys)
        size += longestForm(key) + longestForm(settings.value(key).toString()) + Extra;
    return size;
}

/// Written and removed again: what a disk says of its free space is not true of quotas and shares.
bool hasRoomFor(qint64 size)
{
    constexpr qint64 Lock =
        8 << 10; // bytes: QSettings' lock file and its own temporary file's rest
    QFile trial(fileName() + QLatin1String(FileReplacement::Suffix));
    trial.remove(); // of an interrupted run
    if (!trial.open(QIODevice::WriteOnly | QIODevice::NewOnly | QIODevice::Unbuffered))
        return false;
    const QByteArray bytes(int(size + Lock), '\n');
    const bool fits = trial.write(bytes) == bytes.size();
    trial.remove();
    return fits;
}

void keepCopy()
{
    QFile file(fileName()), copy(copyName());
    if (!file.open(QIODevice::ReadOnly))
        return;
    const QByteArray content = file.readAll();
    if (!content.isEmpty() && !(copy.open(QIODevice::ReadOnly) && copy.readAll() == content))
        FileReplacement::replace(copyName(), content);
}
} // namespace

QString SettingsFile::readable()
{
    const QFileInfo file(fileName());
    const bool isEmptied = file.exists() && file.size() == 0;
    return isEmptied && QFileInfo(copyName()).size() > 0 ? copyName() : fileName();
}

bool SettingsFile::save(const QSettings &settings)
{
    if (!hasRoomFor(longestFile(settings)))
        return false;
    // All objects of one file share what is pending, but a failure sticks to the object.
    QSettings writer(settings.fileName(), QSettings::IniFormat);
    writer.sync();
    if (writer.status() == QSettings::AccessError)
        return false;
    keepCopy();
    return true;
}
