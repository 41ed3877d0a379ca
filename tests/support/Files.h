#pragma once

#include <QByteArray>
#include <QMap>
#include <QString>

/// File helpers of the tests. A failure to read or write fails loudly: the result is then unusable.
namespace Files
{
/// Path below a root, with slashes, to content.
using Tree = QMap<QString, QByteArray>;

void write(const QString &path, const QByteArray &content); ///< makes the folder, too
QByteArray read(const QString &path);
/// Every file below \a root; folders and links do not count.
Tree readTree(const QString &root);
QString md5(const QByteArray &content);
/// An archive with these entries, folders of their own not included.
QByteArray zip(const Tree &tree);
} // namespace Files
