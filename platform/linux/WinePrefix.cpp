#include "WinePrefix.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>

#include <cstring>

namespace
{

// Registries that have seen years of use are of some ten megabytes.
constexpr qint64 LargestRegistry = 64LL * 1024 * 1024;

/// Reads a number of at most \a most digits at \a position and moves behind it.
QChar takeCode(const QByteArray &line, int &position, int base, int most)
{
    const int start = position;
    const char *digits = base == 16 ? "0123456789abcdefABCDEF" : "01234567";
    while (position < line.size() && position - start < most && line.at(position) &&
           std::strchr(digits, line.at(position)))
        ++position;
    return QChar(line.mid(start, position - start).toUShort(nullptr, base));
}

/// Reads the text between the bracket or quotation mark at \a position and \a end, and moves
/// behind it. Null when there is none, never null otherwise.
QString takeText(const QByteArray &line, int &position, char end)
{
    static const char letters[] = "abtnvfre";
    static const char meanings[] = "\a\b\t\n\v\f\r\x1b";
    QString text = QLatin1String("");
    for (++position; position < line.size();) {
        char c = line.at(position++);
        if (c == end)
            return text;
        if (c != '\\' || position == line.size()) {
            text += QLatin1Char(c);
            continue;
        }
        c = line.at(position++);
        const char *letter = std::strchr(letters, c);
        if (c == 'x') {
            text += takeCode(line, position, 16, 4);
        } else if (c >= '0' && c <= '7') {
            --position;
            text += takeCode(line, position, 8, 3);
        } else {
            text += QLatin1Char(c && letter ? meanings[letter - letters] : c);
        }
    }
    return {};
}

bool isSame(const QString &left, const QString &right)
{
    return left.compare(right, Qt::CaseInsensitive) == 0;
}

/// The string of the line \a line if it is the value \a name, null otherwise.
QString valueIn(const QByteArray &line, const QString &name)
{
    int position = 0;
    if (!line.startsWith('"') || !isSame(takeText(line, position, '"'), name))
        return {};
    // A plain string, or one in which the names of variables stand; other types are no strings.
    for (const char *type : {"=\"", "=str(2):\""}) {
        if (line.mid(position).startsWith(type)) {
            position += static_cast<int>(std::strlen(type)) - 1;
            const QString text = takeText(line, position, '"');
            // What follows the end of a string of the Windows API does not belong to it.
            const int length = text.indexOf(QChar(0));
            return length < 0 ? text : text.left(length);
        }
    }
    return {};
}

/// \a name as the folder \a folder spells it, unchanged when it is not there.
QString existingName(const QString &folder, const QString &name)
{
    if (name.isEmpty() || QFileInfo::exists(folder + '/' + name))
        return name;
    const auto all = QDir::AllEntries | QDir::Hidden | QDir::System;
    for (const QString &candidate : QDir(folder + '/').entryList(all)) {
        if (isSame(candidate, name))
            return candidate;
    }
    return name;
}

} // namespace

WinePrefix::WinePrefix(const QString &folder) : m_folder(folder) {}

WinePrefix WinePrefix::current()
{
    const QString folder = qEnvironmentVariable("WINEPREFIX");
    return WinePrefix(folder.isEmpty() ? QDir::homePath() + "/.wine" : folder);
}

QString WinePrefix::userString(const QString &key, const QString &name) const
{
    QFile file(m_folder + "/user.reg");
    // Opening a pipe would wait for its writer.
    if (!QFileInfo(file).isFile() || file.size() > LargestRegistry ||
        !file.open(QIODevice::ReadOnly) || !file.readLine().startsWith("WINE REGISTRY Version 2"))
        return {};
    bool inKey = false;
    while (!file.atEnd()) {
        const QByteArray line = file.readLine();
        int position = 0;
        if (line.startsWith('[')) {
            inKey = isSame(takeText(line, position, ']'), key);
        } else if (inKey) {
            const QString value = valueIn(line, name);
            if (!value.isNull())
                return value;
        }
    }
    return {};
}

QString WinePrefix::nativePath(const QString &windowsPath) const
{
    static const QRegularExpression absolute(QStringLiteral("^[A-Za-z]:[\\\\/]"));
    static const QRegularExpression separator(QStringLiteral("[\\\\/]"));
    if (!absolute.match(windowsPath).hasMatch())
        return {};
    const QFileInfo drive(m_folder + "/dosdevices/" + windowsPath.left(2).toLower());
    QString path = drive.canonicalFilePath();
    if (path.isEmpty())
        return {};
    if (path == QLatin1String("/"))
        path.clear();
    const QStringList names = windowsPath.mid(3).split(separator);
    for (const QString &name : names)
        path += '/' + existingName(path, name);
    return path;
}
