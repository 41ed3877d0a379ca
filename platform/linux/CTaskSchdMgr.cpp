#include "CTaskSchdMgr.h"

#include "FileReplacement.h"

#include <QDir>
#include <QProcess>

namespace
{

constexpr char EntrySuffix[] = ".desktop";

QString autostartFolder()
{
    // The desktops ignore a folder that is not absolute, and so must we.
    QString base = qEnvironmentVariable("XDG_CONFIG_HOME");
    if (!base.startsWith('/'))
        base = QDir::homePath() + "/.config";
    return base + "/autostart";
}

/// Paths of the entries for \a taskName, whose case does not matter.
QStringList entriesOf(const QString &taskName)
{
    const QDir folder(autostartFolder());
    QStringList entries;
    for (const QString &file : folder.entryList(QDir::Files | QDir::Hidden | QDir::System)) {
        if (file.compare(taskName + EntrySuffix, Qt::CaseInsensitive) == 0)
            entries.append(folder.filePath(file));
    }
    return entries;
}

/// Masks what a desktop entry gives a meaning in any value.
QString maskedValue(QString value)
{
    return value.replace('\\', "\\\\")
        .replace('\n', "\\n")
        .replace('\r', "\\r")
        .replace('\t', "\\t");
}

/// One word of a command: in quotes, within which four characters need a backslash; a percent sign
/// would start a placeholder.
QString quotedWord(const QString &word)
{
    QString quoted;
    for (const QChar c : word) {
        if (c == '"' || c == '`' || c == '$' || c == '\\')
            quoted += '\\';
        quoted += c;
        if (c == '%')
            quoted += '%';
    }
    return '"' + quoted + '"';
}

QString commandLine(const QString &programPath, const QString &arguments)
{
    QStringList words{programPath};
    words += QProcess::splitCommand(arguments);
    // Common desktops look for the program before they turn "%%" back into "%", and an equals sign
    // is not allowed in its name; the shell takes both as an argument.
    if (programPath.contains('%') || programPath.contains('='))
        words = QStringList{"/bin/sh", "-c", "exec \"$0\" \"$@\""} + words;
    for (QString &word : words)
        word = quotedWord(word);
    return words.join(' ');
}

} // namespace

bool CTaskSchdMgr::CreateTask(const wchar_t *taskName, const wchar_t *programPath,
                              const wchar_t *workingDirectory, const wchar_t *arguments)
{
    if (!taskName || !programPath)
        return false;
    const QString name = QString::fromWCharArray(taskName);
    if (name.isEmpty() || name.contains('/') || !QDir().mkpath(autostartFolder()))
        return false;

    QString text = "[Desktop Entry]\nType=Application\nName=" + maskedValue(name);
    text += "\nExec=" +
            maskedValue(commandLine(QString::fromWCharArray(programPath),
                                    arguments ? QString::fromWCharArray(arguments) : QString()));
    if (workingDirectory)
        text += "\nPath=" + maskedValue(QString::fromWCharArray(workingDirectory));
    text += '\n';

    QStringList entries = entriesOf(name);
    const QString path =
        entries.isEmpty() ? autostartFolder() + '/' + name + EntrySuffix : entries.takeFirst();
    if (FileReplacement::replace(path, text.toUtf8()) != FileReplacement::Result::Replaced)
        return false;
    // Names that differ only in case are one task, which must not start twice.
    for (const QString &duplicate : entries)
        QFile::remove(duplicate);
    return true;
}

bool CTaskSchdMgr::DeleteTask(const wchar_t *taskName, bool deleteFolder)
{
    Q_UNUSED(deleteFolder)
    if (!taskName)
        return false;
    const QStringList entries = entriesOf(QString::fromWCharArray(taskName));
    for (const QString &entry : entries)
        QFile::remove(entry);
    return !entries.isEmpty();
}

bool CTaskSchdMgr::DeleteTaskOf(const wchar_t *taskName, const wchar_t *programPath)
{
    if (!taskName || !programPath)
        return false;
    const QByteArray start =
        "\nExec=" + maskedValue(commandLine(QString::fromWCharArray(programPath), {})).toUtf8();
    bool isGone = true;
    for (const QString &entry : entriesOf(QString::fromWCharArray(taskName))) {
        QFile file(entry);
        if (!file.open(QIODevice::ReadOnly))
            isGone = false;
        else if (file.readAll().contains(start))
            isGone = file.remove() && isGone;
    }
    return isGone;
}
