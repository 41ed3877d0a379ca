#pragma once

#include <QMap>
#include <QMetaType>
#include <QString>

/// The files of the plugin: path relative to the game folder, as the server spelled it, to the MD5
/// of the file's content in 32 lowercase hexadecimal digits. Travels between threads in a QVariant.
using PluginFileList = QMap<QString, QString>;
Q_DECLARE_METATYPE(PluginFileList)
