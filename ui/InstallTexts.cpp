#include "InstallTexts.h"

QString InstallTexts::install()
{
    return QStringLiteral("安装插件");
}

QString InstallTexts::update()
{
    return QStringLiteral("更新插件");
}

QString InstallTexts::failed()
{
    return QStringLiteral("安装失败\n 请您检查游戏路径并关闭游戏!");
}

QString InstallTexts::noGameFolder(const QString &host)
{
    return QStringLiteral("<style> a {text-decoration: none;color: #505287;} </style>  "
                          "<div>您还未设置游戏路径！</div> "
                          "<div>如果未下载游戏，"
                          "<a href=\"https://%1/zh-cn/game/download\">请前往下载 </a></div>")
        .arg(host);
}

QString InstallTexts::notWritable(const QString &folder)
{
    return QStringLiteral("<div>无法写入文件夹 %1</div>"
                          "<div>设置和插件将无法保存，请将程序移到其他文件夹后再启动。</div>")
        .arg(folder.toHtmlEscaped());
}

QString InstallTexts::notUtf8(const QString &folder)
{
    return QStringLiteral("<div>文件夹名称不是UTF-8编码：%1</div>"
                          "<div>请将它重命名，或将程序移到其他文件夹后再启动。</div>")
        .arg(folder.toHtmlEscaped());
}

QString InstallTexts::settingsNotSaved(const QString &folder)
{
    return QStringLiteral(
               "<div>设置无法保存到文件夹 %1</div>"
               "<div>请检查磁盘空间。本次运行中的更改仍然有效，下次能够保存时会一并保存。</div>")
        .arg(folder.toHtmlEscaped());
}
