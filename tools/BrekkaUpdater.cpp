// Started by the system at each logon. It stands between the system and the program so that the
// registered path stays the same whatever the program becomes. With the one argument
// "--remove-logon-task" it starts nothing and removes the task that would start it; it then ends
// with 1 when the system refused that.

#include "CTaskSchdMgr.h"
#include "LogonTask.h"
#include "Paths.h"

#include <QCoreApplication>
#include <QProcess>

#include <cstdio>

#ifdef _WIN32
static const char programName[] = "/Brekka.exe";
#else
static const char programName[] = "/Brekka";
#endif

static bool removeLogonTask()
{
    const std::wstring program = Paths::updaterProgram().toStdWString();
    return CTaskSchdMgr().DeleteTaskOf(LogonTask::Name, program.c_str());
}

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments().mid(1);
    if (arguments == QStringList{QStringLiteral("--remove-logon-task")})
        return removeLogonTask() ? 0 : 1;
    const QString folder = QCoreApplication::applicationDirPath();
    const QString program = folder + programName;
    if (!QProcess::startDetached(program, arguments, folder)) {
        std::fprintf(stderr, "BrekkaUpdater: can't start %s\n", qPrintable(program));
        return 1;
    }
    return 0;
}
