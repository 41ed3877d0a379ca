#include "CTaskSchdMgr.h"
#include "FileVersion.h"
#include "RecordingScheduler.h"
#include "UserName.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <thread>
#include <windows.h>

#include <objbase.h>

namespace
{

using Calls = std::vector<std::wstring>;

int passed = 0;
int failed = 0;

void check(bool good, const std::string &what)
{
    good ? ++passed : ++failed;
    if (!good)
        std::printf("FAIL %s\n", what.c_str());
}

/// Runs \a operation against a recording scheduler whose calls numbered in \a failing fail.
template <typename Operation>
void checkRun(const std::string &what, Operation operation, const std::set<size_t> &failing,
              bool expectedResult, const Calls &expected, const Calls &taskNames = {})
{
    RecordingScheduler scheduler;
    scheduler.failing = failing;
    scheduler.taskNames = taskNames;
    check(operation() == expectedResult, what + ": result");
    check(scheduler.calls == expected, what + ": calls");
    if (scheduler.calls != expected)
        for (const std::wstring &call : scheduler.calls)
            std::printf("  %ls\n", call.c_str());
    check(scheduler.live.empty() && scheduler.classReferences() == 0, what + ": all released");
    check(!scheduler.releasedOutOfOrder, what + ": released in reverse order");
}

Calls cut(Calls calls, size_t count)
{
    calls.resize(count);
    return calls;
}

bool create()
{
    return CTaskSchdMgr().CreateTask(L"BrekkaTask", L"C:/Games/App\\BrekkaUpdater.exe",
                                     L"C:/Games/App", L"-s");
}

void testCreateTask()
{
    const Calls all = {
        L"IClassFactory.CreateInstance ITaskService",
        L"ITaskService.Connect empty empty empty empty",
        L"ITaskService.GetFolder \\",
        L"ITaskFolder.GetFolder \\Brekka",
        L"ITaskService.NewTask 0",
        L"ITaskDefinition.get_Settings",
        L"ITaskSettings.put_DisallowStartIfOnBatteries false",
        L"ITaskSettings.put_StopIfGoingOnBatteries false",
        L"ITaskSettings.put_RestartCount 3",
        L"ITaskSettings.put_RestartInterval PT3M",
        L"ITaskSettings.get_IdleSettings",
        L"IIdleSettings.put_StopOnIdleEnd false",
        L"ITaskDefinition.get_Triggers",
        L"ITriggerCollection.Create 9",
        L"ITaskDefinition.get_Actions",
        L"IActionCollection.Create 0",
        L"IAction.QueryInterface IExecAction",
        L"IExecAction.put_Path C:/Games/App\\BrekkaUpdater.exe",
        L"IExecAction.put_Arguments -s",
        L"IExecAction.put_WorkingDirectory C:/Games/App",
        L"ITaskDefinition.get_Principal",
        L"IPrincipal.put_GroupId Users",
        L"IPrincipal.put_RunLevel 1",
        L"ITaskFolder.RegisterTaskDefinition BrekkaTask ITaskDefinition 6 empty empty 3 empty",
    };
    const size_t ourFolder = 3, arguments = 18;
    checkRun("create", create, {}, true, all);
    for (size_t i = 0; i < all.size(); ++i) {
        if (i != ourFolder)
            checkRun("create, failing call " + std::to_string(i), create, {i}, false,
                     cut(all, i + 1));
    }
    Calls newFolder = all;
    newFolder.insert(newFolder.begin() + ourFolder + 1, L"ITaskFolder.CreateFolder \\Brekka empty");
    checkRun("create, no folder yet", create, {ourFolder}, true, newFolder);
    checkRun("create, folder refused", create, {ourFolder, ourFolder + 1}, false,
             cut(newFolder, ourFolder + 2));

    Calls pathAlone = all;
    pathAlone.erase(pathAlone.begin() + arguments, pathAlone.begin() + arguments + 2);
    const wchar_t *program = L"C:/Games/App\\BrekkaUpdater.exe";
    const auto createAlone = [=] {
        return CTaskSchdMgr().CreateTask(L"BrekkaTask", program, nullptr, nullptr);
    };
    checkRun("create, path alone", createAlone, {}, true, pathAlone);
    const auto refused = [=] {
        return CTaskSchdMgr().CreateTask(nullptr, program, nullptr, nullptr) ||
               CTaskSchdMgr().CreateTask(L"BrekkaTask", nullptr, nullptr, nullptr) ||
               CTaskSchdMgr().DeleteTask(nullptr, true);
    };
    checkRun("null name or path", refused, {}, false, {});
}

void testDeleteTask()
{
    const Calls all = {
        L"IClassFactory.CreateInstance ITaskService",
        L"ITaskService.Connect empty empty empty empty",
        L"ITaskService.GetFolder \\Brekka",
        L"ITaskFolder.GetTasks 1",
        L"IRegisteredTaskCollection.get_Count",
        L"IRegisteredTaskCollection.get_Item 1",
        L"IRegisteredTask.get_Name",
        L"IRegisteredTaskCollection.get_Item 2",
        L"IRegisteredTask.get_Name",
        L"IRegisteredTask.put_Enabled false",
        L"ITaskFolder.DeleteTask brekkatask 0",
        L"ITaskService.GetFolder \\",
        L"ITaskFolder.DeleteFolder \\Brekka 0",
    };
    const auto without = [&](size_t first, size_t end) {
        Calls calls = all;
        calls.erase(calls.begin() + first, calls.begin() + end);
        return calls;
    };
    const Calls names = {L"Other", L"brekkatask", L"Another"};
    const auto remove = [] { return CTaskSchdMgr().DeleteTask(L"BrekkaTask", true); };
    checkRun("delete", remove, {}, true, all, names);
    checkRun("delete, no such task", remove, {}, false, without(7, 11), {L"Other"});
    for (size_t i = 0; i < 4; ++i)
        checkRun("delete, not opened", remove, {i}, false, cut(all, i + 1), names);
    checkRun("delete, no count", remove, {4}, false, without(5, 11), names);
    checkRun("delete, no first task", remove, {5}, true, without(6, 7), names);
    checkRun("delete, no first name", remove, {6}, true, all, names);
    checkRun("delete, outcomes ignored", remove, {9, 10, 12}, true, all, names);
    checkRun("delete, no root", remove, {11}, true, cut(all, 12), names);
    const auto removeTask = [] { return CTaskSchdMgr().DeleteTask(L"BrekkaTask", false); };
    checkRun("delete the task alone", removeTask, {}, true, cut(all, 11), names);
}

/// Wine's scheduler knows no logon triggers. On a thread that never set COM up.
void testWithoutLogonTriggers()
{
    if (!GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "wine_get_version")) {
        std::printf("The scheduler of a real Windows is left alone.\n");
        return;
    }
    std::thread([] {
        check(!create(), "create with Wine's scheduler");
        check(!CTaskSchdMgr().DeleteTask(L"BrekkaTask", true), "delete with Wine's scheduler");
        APTTYPE type;
        APTTYPEQUALIFIER qualifier;
        check(CoGetApartmentType(&type, &qualifier) == CO_E_NOTINITIALIZED, "COM as it was");
    }).join();
}

} // namespace

/// Takes the folder of the sample files, then a version file and the version that it holds.
int main(int argc, char **argv)
{
    if (argc != 4)
        return 2;
    CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
    testCreateTask();
    testDeleteTask();
    testWithoutLogonTriggers();
    const std::string folder = argv[1];
    const std::pair<std::string, std::string> versions[] = {
        {folder + "/versioned.dll", "1.6.1.1023"},
        {folder + "/plain.dll", ""},
        {folder + "/CMakeCache.txt", ""},
        {folder + "/missing.dll", ""},
        {argv[2], argv[3]}};
    for (const auto &[path, version] : versions)
        check(fileVersion(path) == version, "version of " + path + ": " + fileVersion(path));
    const char *user = std::getenv("USERNAME");
    check(user && *user && currentUserName() == user, "user name " + currentUserName());
    CoUninitialize();
    std::printf("%d passed, %d failed\n", passed, failed);
    return failed == 0 ? 0 : 1;
}
