#include "SettingsFile.h"

#include "ApplicationSettings.h"
#include "FileReplacement.h"

#include <QFile>
#include <QFileInfo>
#include <QVariant>

#include <optional>

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

/// Of a missing file, none.
std::optional<QByteArray> bytesOf(const QString &name)
{
    QFile file(name);
    return file.open(QIODevice::ReadOnly) ? std::optional(file.readAll()) : std::nullopt;
}

void keepCopy(const std::optional<QByteArray> &content)
{
    if (content && !content->isEmpty() && bytesOf(copyName()) != content)
        FileReplacement::replace(copyName(), *content);
}

/// What QSettings has written: one line for each key, and headings between them.
bool isWhole(const QByteArray &content, int keys)
{
    int lines = 0;
    for (const QByteArray &line : content.split('\n'))
        lines += int(!line.trimmed().isEmpty() && !line.startsWith('['));
    return lines == keys && (keys == 0 || content.endsWith('\n'));
}

void putBack(const std::optional<QByteArray> &content)
{
    FileReplacement::Options options;
    options.inPlace = true;
    if (!content)
        QFile::remove(fileName());
    else if (FileReplacement::replace(fileName(), *content, options) !=
             FileReplacement::Result::Replaced)
        QFile::resize(fileName(), 0); // the copy stands in for it
}
} // namespace

QString SettingsFile::readable()
{
    const QFileInfo file(fileName());
    const bool isEmptied = file.exists() && file.size() == 0;
    return isEmptied && QFileInfo(copyName()).size() > 0 ? copyName() : fileName();
}

bool SettingsFile::save(QSettings &settings)
{
    if (!hasRoomFor(longestFile(settings)))
        return false;
    const std::optional<QByteArray> before = bytesOf(fileName());
    keepCopy(before);
    QVariantMap values;
    const QStringList keys = settings.allKeys();
    for (const QString &key : keys)
        values[key] = settings.value(key);
    // All objects of one file share what is pending, but a failure sticks to the object.
    QSettings writer(settings.fileName(), QSettings::IniFormat);
    writer.sync();
    if (writer.status() == QSettings::AccessError)
        return false;
    const std::optional<QByteArray> after = bytesOf(fileName());
    if (after && isWhole(*after, writer.allKeys().size())) {
        keepCopy(after);
        return true;
    }
    // The disk has filled up since the trial. QSettings takes it all for saved.
    putBack(before);
    for (auto value = values.cbegin(); value != values.cend(); ++value)
        settings.setValue(value.key(), value.value());
    return false;
}
