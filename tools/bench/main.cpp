// Does one worker's job once, the way the controller has it done, and prints the process's peak
// memory in KiB:
//   brekka-bench check FOLDER LIST    LIST as md5sum prints it
//   brekka-bench unpack ZIP FOLDER
//   brekka-bench download URL         to the package's place beside this program
// Exit code 0 when the worker reports success, 1 when it doesn't, 2 for a wrong call.

#include "CheckPluginFile.h"
#include "Paths.h"
#include "PluginDownloader.h"
#include "PluginFileList.h"
#include "ZipCpp.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QTextCodec>

#include <cstdio>

#include <sys/resource.h>

namespace
{
PluginFileList readList(const QString &path)
{
    constexpr int HashLength = 32;
    constexpr int NameStart = HashLength + 2;
    PluginFileList list;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return list;
    for (QByteArray line = file.readLine(); !line.isEmpty(); line = file.readLine())
        list.insert(QString::fromUtf8(line.mid(NameStart).trimmed()),
                    QString::fromLatin1(line.left(HashLength)));
    return list;
}

bool check(const QString &folder, const QString &list)
{
    const PluginFileList files = readList(list);
    bool right = false;
    CheckPluginFile checker;
    QObject::connect(&checker, &CheckPluginFile::ReturnPluginsCheckResult,
                     [&](const QString &, bool isRight) { right = isRight; });
    checker.CheckFilesMd5(folder, QVariant::fromValue(files));
    return right && !files.isEmpty();
}

bool unpack(const QString &zip, const QString &folder)
{
    EC::ErrorCode result = EC::FILE_NOT_FOUND;
    ZipCpp extractor;
    QObject::connect(&extractor, &ZipCpp::OnExtractingResult,
                     [&](const QString &, EC::ErrorCode code) { result = code; });
    extractor.OnUnzipFile(zip, folder);
    return result == EC::SUCCESS;
}

bool download(const QString &url)
{
    QDir().mkpath(Paths::downloadFolder());
    bool failed = false;
    PluginDownloader downloader;
    QObject::connect(&downloader, &PluginDownloader::DownloadPluginError,
                     [&](EC::ErrorCode, const QString &) { failed = true; });
    QObject::connect(&downloader, &PluginDownloader::DownloadPluginFinished, qApp,
                     &QCoreApplication::quit, Qt::QueuedConnection);
    downloader.DownloadPlugin(url);
    QCoreApplication::exec();
    return !failed && QFile::exists(Paths::packageFile());
}

long peakMemory()
{
    rusage usage = {};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}
} // namespace

int main(int argc, char *argv[])
{
    QTextCodec::setCodecForLocale(QTextCodec::codecForName("UTF-8"));
    const QCoreApplication app(argc, argv);
    const QStringList words = QCoreApplication::arguments().mid(1);
    const QString job = words.value(0);

    bool success = false;
    if (job == QLatin1String("check") && words.size() == 3)
        success = check(words[1], words[2]);
    else if (job == QLatin1String("unpack") && words.size() == 3)
        success = unpack(words[1], words[2]);
    else if (job == QLatin1String("download") && words.size() == 2)
        success = download(words[1]);
    else
        return 2;
    std::printf("%ld\n", peakMemory());
    return success ? 0 : 1;
}
