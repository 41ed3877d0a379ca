#pragma once

#include <QFileDevice>

/// Files that a web server reads and that outlive a power cut.
namespace Durable
{
/// Whatever the publisher's own mask says, the server must be able to read what is offered.
constexpr QFileDevice::Permissions ServedFile(QFileDevice::ReadOwner | QFileDevice::WriteOwner |
                                              QFileDevice::ReadGroup | QFileDevice::ReadOther);
constexpr QFileDevice::Permissions ServedFolder(ServedFile | QFileDevice::ExeOwner |
                                                QFileDevice::ExeGroup | QFileDevice::ExeOther);

/// Has the system write the open \a file to the disk itself. False if it can't.
bool sync(QFileDevice &file);
/// The same for the names in a folder, where the system knows of that.
bool syncFolder(const QString &path);
} // namespace Durable
