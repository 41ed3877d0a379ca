#include "FileVersion.h"

#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>

std::string fileVersion(const std::string &path)
{
    constexpr int LongestLine = 32;
    static const QRegularExpression version(QStringLiteral("^(\\d{1,5}\\.){3}\\d{1,5}$"));

    QFile file(QFile::decodeName(path.c_str()));
    // Opening a pipe would wait for its writer.
    if (!QFileInfo(file).isFile() || !file.open(QIODevice::ReadOnly))
        return {};
    const QByteArray line = file.readLine(LongestLine).trimmed();
    return version.match(QString::fromLatin1(line)).hasMatch() ? line.toStdString() : std::string();
}
