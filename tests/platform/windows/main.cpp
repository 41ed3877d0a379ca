#include "CTaskSchdMgr.h"
#include "FileVersion.h"
#include "RecordingScheduler.h"
#include "UserName.h"

#include <cstdio>
#include <cstdlib>
#include <thread>
#include <windows.h>

#include <objbase.h>

namespace
{

int passed = 0;
int failed = 0;

void check(bool good, const std::string &what, const std::string &detail = {})
{
    good ? ++passed : ++failed;
    if (!good)
        std::printf("FAIL %s\n%s", what.c_str(), detail.c_str());
}

using Calls = std::vector<std::wstring>;

std::string difference(const Calls &expected, const Calls &actual)
{
    std::string text;
    for (size_t i = 0; i < std::max(expected.size(), actual.size()); ++i) {
        const std::wstring left = i < expected.size() ? expected[i] : L"-";
        const std::wstring right = i < actual.size() ? actual[i] : L"-";
        if (left != right)
            text += "  expected " + std::string(left.begin(), left.end()) + "\n    actual " +
                    std::string(right.begin(), right.end()) + '\n';
    }
    return text;
}

/// Runs \a operation against a recording scheduler whose calls numbered in \a failing fail.
template <typename Operation>
void checkRun(const std::string &what, Operation operation, const std::set<size_t> &failing,
              bool expectedResult, const Calls &expected,
              const std::vector<std::wstring> &taskNames = {})
{
    RecordingScheduler scheduler;
    scheduler.failing = failing;
    scheduler.taskNames = taskNames;
    check(operation() == expectedResult, what + ": result");
    check(scheduler.calls == expected, what + ": calls", difference(expected, scheduler.calls));
    check(scheduler.live.empty() && scheduler.classReferences() == 0, what + ": all released");
    check(!scheduler.releasedOutOfOrder, what + ": released in reverse order");
}

const Calls createCalls = {
    L"class.CreateInstance ITaskService",
    L"service.Connect empty empty empty empty",
    L"service.GetFolder \\",
    L"folder.GetFolder \\Brekka",
    L"service.NewTask 0",
    L"definition.get_Settings",
    L"settings.put_DisallowStartIfOnBatteries false",
    L"settings.put_StopIfGoingOnBatteries false",
    L"settings.put_RestartCount 3",
    L"settings.put_RestartInterval PT3M",
    L"settings.get_IdleSettings",
    L"idle.put_StopOnIdleEnd false",
    L"definition.get_Triggers",
    L"triggers.Create 9",
    L"definition.get_Actions",
    L"actions.Create 0",
    L"action.QueryInterface IExecAction",
    L"exec.put_Path C:/Games/App\\BrekkaUpdater.exe",
    L"exec.put_Arguments -s",
    L"exec.put_WorkingDirectory C:/Games/App",
    L"definition.get_Principal",
    L"principal.put_GroupId Users",
    L"principal.put_RunLevel 1",
    L"folder.RegisterTaskDefinition BrekkaTask definition 6 empty empty 3 empty",
};
const size_t openOurFolder = 3;

bool create()
{
    return CTaskSchdMgr().CreateTask(L"BrekkaTask", L"C:/Games/App\\BrekkaUpdater.exe",
                                     L"C:/Games/App", L"-s");
}

void testCreateTask()
{
    checkRun("create", create, {}, true, createCalls);
    for (size_t i = 0; i < createCalls.size(); ++i) {
        if (i != openOurFolder)
            checkRun("create, failing call " + std::to_string(i), create, {i}, false,
                     Calls(createCalls.begin(), createCalls.begin() + i + 1));
    }

    Calls withNewFolder = createCalls;
    withNewFolder.insert(withNewFolder.begin() + openOurFolder + 1,
                         L"folder.CreateFolder \\Brekka empty");
    checkRun("create, no folder yet", create, {openOurFolder}, true, withNewFolder);
    withNewFolder.resize(openOurFolder + 2);
    checkRun("create, folder refused", create, {openOurFolder, openOurFolder + 1}, false,
             withNewFolder);

    Calls pathAlone = createCalls;
    pathAlone.erase(pathAlone.begin() + 18, pathAlone.begin() + 20);
    const auto createPathAlone = [] {
        return CTaskSchdMgr().CreateTask(L"BrekkaTask", L"C:/Games/App\\BrekkaUpdater.exe", nullptr,
                                         nullptr);
    };
    checkRun("create, path alone", createPathAlone, {}, true, pathAlone);

    const auto nothing = [] {
        return CTaskSchdMgr().CreateTask(nullptr, L"C:\\a.exe", nullptr, nullptr) ||
               CTaskSchdMgr().CreateTask(L"BrekkaTask", nullptr, nullptr, nullptr) ||
               CTaskSchdMgr().DeleteTask(nullptr, true);
    };
    checkRun("null name or path", nothing, {}, false, {});
}

void testDeleteTask()
{
    const Calls open = {L"class.CreateInstance ITaskService",
                        L"service.Connect empty empty empty empty", L"service.GetFolder \\Brekka",
                        L"folder.GetTasks 1", L"tasks.get_Count"};
    const Calls deleteFolder = {L"service.GetFolder \\", L"folder.DeleteFolder \\Brekka 0"};
    const Calls first = {L"tasks.get_Item 1", L"task.get_Name"};
    const Calls second = {L"tasks.get_Item 2", L"task.get_Name", L"task.put_Enabled false",
                          L"folder.DeleteTask brekkatask 0"};
    const Calls third = {L"tasks.get_Item 3", L"task.get_Name", L"task.put_Enabled false",
                         L"folder.DeleteTask BrekkaTask 0"};
    const auto join = [](std::initializer_list<Calls> parts) {
        Calls all;
        for (const Calls &part : parts)
            all.insert(all.end(), part.begin(), part.end());
        return all;
    };
    const auto cut = [](Calls calls, size_t count) {
        calls.resize(count);
        return calls;
    };
    const Calls all = join({open, first, second, deleteFolder});

    const struct {
        const char *what;
        std::set<size_t> failing;
        bool result;
        Calls calls;
        std::vector<std::wstring> tasks;
    } cases[] = {
        {"delete", {}, true, all, {L"Other", L"brekkatask", L"BrekkaTask"}},
        {"delete, no such task", {}, false, join({open, first, deleteFolder}), {L"Other"}},
        {"delete, no tasks", {}, false, join({open, deleteFolder}), {}},
        {"delete, no service", {0}, false, cut(open, 1), {L"BrekkaTask"}},
        {"delete, no connection", {1}, false, cut(open, 2), {L"BrekkaTask"}},
        {"delete, no folder", {2}, false, cut(open, 3), {L"BrekkaTask"}},
        {"delete, no list", {3}, false, cut(open, 4), {L"BrekkaTask"}},
        {"delete, no count", {4}, false, join({open, deleteFolder}), {L"BrekkaTask"}},
        {"delete, no first task",
         {5},
         true,
         join({open, cut(first, 1), second, deleteFolder}),
         {L"Other", L"brekkatask"}},
        {"delete, no name",
         {8},
         true,
         join({open, first, cut(second, 2), third, deleteFolder}),
         {L"Other", L"brekkatask", L"BrekkaTask"}},
        {"delete, not disabled", {9}, true, all, {L"Other", L"brekkatask"}},
        {"delete, not deleted", {10}, true, all, {L"Other", L"brekkatask"}},
        {"delete, no root", {11}, true, cut(all, 12), {L"Other", L"brekkatask"}},
        {"delete, folder stays", {12}, true, all, {L"Other", L"brekkatask"}},
    };
    for (const auto &row : cases)
        checkRun(
            row.what, [] { return CTaskSchdMgr().DeleteTask(L"BrekkaTask", true); }, row.failing,
            row.result, row.calls, row.tasks);
    checkRun("delete the task alone",
             [] { return CTaskSchdMgr().DeleteTask(L"BrekkaTask", false); }, {}, true, cut(all, 11),
             {L"Other", L"brekkatask"});
}

/// The emulated scheduler knows no logon triggers. On a thread that never set COM up.
void testSchedulerWithoutLogonTriggers()
{
    const HMODULE library = GetModuleHandleW(L"ntdll.dll");
    if (!library || !GetProcAddress(library, "wine_get_version")) {
        std::printf("On real Windows the scheduler is left alone.\n");
        return;
    }
    std::thread([] {
        check(!create(), "create with the emulated scheduler");
        check(!CTaskSchdMgr().DeleteTask(L"BrekkaTask", true),
              "delete with the emulated scheduler");
        APTTYPE type;
        APTTYPEQUALIFIER qualifier;
        check(CoGetApartmentType(&type, &qualifier) == CO_E_NOTINITIALIZED,
              "COM is left as it was found");
    }).join();
}

void testFileVersion(const std::string &folder, const char *made, const char *madeVersion)
{
    const std::pair<std::string, std::string> cases[] = {
        {folder + "/versioned.dll", "1.6.1.1023"},
        {folder + "/plain.dll", ""},
        {folder + "/CMakeCache.txt", ""},
        {folder + "/missing.dll", ""},
        {made, madeVersion},
    };
    for (const auto &[path, version] : cases)
        check(fileVersion(path) == version, "version of " + path, "  " + fileVersion(path) + '\n');
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
    testSchedulerWithoutLogonTriggers();
    testFileVersion(argv[1], argv[2], argv[3]);
    const char *user = std::getenv("USERNAME");
    check(user && *user && currentUserName() == user, "user name", currentUserName() + '\n');
    CoUninitialize();
    std::printf("%d passed, %d failed\n", passed, failed);
    return failed == 0 ? 0 : 1;
}
