#pragma once

#include <QString>

/// What the installation tells the user.
namespace InstallTexts
{
inline const QString Install = QStringLiteral("安装插件");
inline const QString Update = QStringLiteral("更新插件");
inline const QString Failed = QStringLiteral("安装失败\n 请您检查游戏路径并关闭游戏!");

/// The message for a missing game folder, with a link to the game's download page on \a host.
QString noGameFolder(const QString &host);
} // namespace InstallTexts
