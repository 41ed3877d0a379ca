#pragma once

#include <QString>
#include <QStringList>

#include <optional>

namespace PackageNames
{
/// The names of the files in the package at \a path, as its directory lists them. Nothing when it
/// does not end as ZipWriter ends it: other readers might then find another directory in it.
std::optional<QStringList> in(const QString &path);
} // namespace PackageNames
