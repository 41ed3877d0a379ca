// Started by the system at each logon. It stands between the system and the program so that the
// registered path stays the same whatever the program becomes.

#include <QCoreApplication>
#include <QProcess>

#include <cstdio>

#ifdef _WIN32
static const char programName[] = "/Brekka.exe";
#else
static const char programName[] = "/Brekka";
#endif

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    const QString folder = QCoreApplication::applicationDirPath();
    const QString program = folder + programName;
    if (!QProcess::startDetached(program, QCoreApplication::arguments().mid(1), folder)) {
        std::fprintf(stderr, "BrekkaUpdater: can't start %s\n", qPrintable(program));
        return 1;
    }
    return 0;
}
