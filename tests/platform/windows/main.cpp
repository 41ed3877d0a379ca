#include "RecordingScheduler.h"

#include "CTaskSchdMgr.h"
#include "FileVersion.h"
#include "UserName.h"

#include <cstdio>
#include <cstdlib>
#include <thread>

#include <objbase.h>

namespace
{

using Calls = std::vector<Call>;

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
              bool expectedResult, const Calls &expected,
              const std::vector<std::wstring> &taskNames = {}, const wchar_t *started = L"")
{
    RecordingScheduler scheduler(expected);
    scheduler.failing = failing;
    scheduler.taskNames = taskNames;
    scheduler.program = started;
    check(operation() == expectedResult, what + ": result");
    check(scheduler.calls == expected.size() && !scheduler.surprised, what + ": calls");
    check(scheduler.live.empty() && scheduler.classReferences() == 0,
          what + ": all released in reverse order");
}

Calls cut(const Calls &calls, size_t count)
{
    return {calls.begin(), calls.begin() + count};
}

const wchar_t program[] = L"C:/Games/App\\BrekkaUpdater.exe";

bool create()
{
    return CTaskSchdMgr().CreateTask(L"BrekkaTask", program, L"C:/Games/App", L"-s");
}

void testCreateTask()
{
    // clang-format off
    const Calls all = {
        {METHOD(IClassFactory, CreateInstance), "mi>", L"ITaskService", L"ITaskService"},
        {METHOD(ITaskService, Connect), "vvvv", L"empty empty empty empty"},
        {METHOD(ITaskService, GetFolder), "s>", L"\\", L"ITaskFolder"},
        {METHOD(ITaskFolder, GetFolder), "s>", L"\\Brekka", L"ITaskFolder"},
        {METHOD(ITaskService, NewTask), "n>", L"0", L"ITaskDefinition"},
        {METHOD(ITaskDefinition, get_Settings), ">", L"", L"ITaskSettings"},
        {METHOD(ITaskSettings, put_DisallowStartIfOnBatteries), "b", L"false"},
        {METHOD(ITaskSettings, put_StopIfGoingOnBatteries), "b", L"false"},
        {METHOD(ITaskSettings, put_RestartCount), "n", L"3"},
        {METHOD(ITaskSettings, put_RestartInterval), "s", L"PT3M"},
        {METHOD(ITaskSettings, get_IdleSettings), ">", L"", L"IIdleSettings"},
        {METHOD(IIdleSettings, put_StopOnIdleEnd), "b", L"false"},
        {METHOD(ITaskDefinition, get_Triggers), ">", L"", L"ITriggerCollection"},
        {METHOD(ITriggerCollection, Create), "n>", L"9", L"ITrigger"},
        {METHOD(ITaskDefinition, get_Actions), ">", L"", L"IActionCollection"},
        {METHOD(IActionCollection, Create), "n>", L"0", L"IAction"},
        {METHOD(IAction, QueryInterface), "i>", L"IExecAction", L"IExecAction"},
        {METHOD(IExecAction, put_Path), "s", program},
        {METHOD(IExecAction, put_Arguments), "s", L"-s"},
        {METHOD(IExecAction, put_WorkingDirectory), "s", L"C:/Games/App"},
        {METHOD(ITaskDefinition, get_Principal), ">", L"", L"IPrincipal"},
        {METHOD(IPrincipal, put_GroupId), "s", L"Users"},
        {METHOD(IPrincipal, put_RunLevel), "n", L"1"},
        {METHOD(ITaskFolder, RegisterTaskDefinition), "sonvvnv>",
         L"BrekkaTask ITaskDefinition 6 empty empty 3 empty", L"IRegisteredTask"},
    };
    const Call createFolder =
        {METHOD(ITaskFolder, CreateFolder), "sv>", L"\\Brekka empty", L"ITaskFolder"};
    // clang-format on
    const size_t ourFolder = 3, arguments = 18;
    checkRun("create", create, {}, true, all);
    for (size_t i = 0; i < all.size(); ++i)
        if (i != ourFolder)
            checkRun("create " + std::to_string(i), create, {i}, false, cut(all, i + 1));
    Calls newFolder = all;
    newFolder.insert(newFolder.begin() + ourFolder + 1, createFolder);
    checkRun("create, no folder yet", create, {ourFolder}, true, newFolder);
    checkRun("create, folder refused", create, {ourFolder, ourFolder + 1}, false,
             cut(newFolder, ourFolder + 2));

    Calls pathAlone = all;
    pathAlone.erase(pathAlone.begin() + arguments, pathAlone.begin() + arguments + 2);
    const auto given = [](const wchar_t *name, const wchar_t *path) {
        return [=] { return CTaskSchdMgr().CreateTask(name, path, nullptr, nullptr); };
    };
    checkRun("create, path alone", given(L"BrekkaTask", program), {}, true, pathAlone);
    checkRun("create, no name", given(nullptr, program), {}, false, {});
    checkRun("create, no path", given(L"BrekkaTask", nullptr), {}, false, {});
}

// clang-format off
const Calls deletion = {
        {METHOD(IClassFactory, CreateInstance), "mi>", L"ITaskService", L"ITaskService"},
        {METHOD(ITaskService, Connect), "vvvv", L"empty empty empty empty"},
        {METHOD(ITaskService, GetFolder), "s>", L"\\Brekka", L"ITaskFolder"},
        {METHOD(ITaskFolder, GetTasks), "n>", L"1", L"IRegisteredTaskCollection"},
        {METHOD(IRegisteredTaskCollection, get_Count), "c"},
        {METHOD(IRegisteredTaskCollection, get_Item), "v>", L"1", L"IRegisteredTask"},
        {METHOD(IRegisteredTask, get_Name), "t"},
        {METHOD(IRegisteredTaskCollection, get_Item), "v>", L"2", L"IRegisteredTask"},
        {METHOD(IRegisteredTask, get_Name), "t"},
        {METHOD(IRegisteredTask, put_Enabled), "b", L"false"},
        {METHOD(ITaskFolder, DeleteTask), "sn", L"brekkatask 0"},
        {METHOD(ITaskService, GetFolder), "s>", L"\\", L"ITaskFolder"},
        {METHOD(ITaskFolder, DeleteFolder), "sn", L"\\Brekka 0"},
};
// clang-format on

void testDeleteTask()
{
    const Calls &all = deletion;
    const auto given = [](const wchar_t *name, bool withFolder) {
        return [=] { return CTaskSchdMgr().DeleteTask(name, withFolder); };
    };
    const std::vector<std::wstring> names = {L"Other", L"brekkatask", L"Another"};
    const auto remove = given(L"BrekkaTask", true);
    checkRun("delete", remove, {}, true, all, names);
    for (size_t i = 0; i < 4; ++i)
        checkRun("delete, not opened", remove, {i}, false, cut(all, i + 1), names);
    Calls noMatch = all, noFirstTask = all, noCount = all;
    noMatch.erase(noMatch.begin() + 7, noMatch.begin() + 11);
    noFirstTask.erase(noFirstTask.begin() + 6);
    noCount.erase(noCount.begin() + 5, noCount.begin() + 11);
    checkRun("delete, no such task", remove, {}, false, noMatch, {L"Other"});
    checkRun("delete, no count", remove, {4}, false, noCount, names);
    checkRun("delete, no first task", remove, {5}, true, noFirstTask, names);
    checkRun("delete, no first name", remove, {6}, true, all, names);
    checkRun("delete, outcomes ignored", remove, {9, 10, 12}, true, all, names);
    checkRun("delete, no root", remove, {11}, true, cut(all, 12), names);
    checkRun("delete the task alone", given(L"BrekkaTask", false), {}, true, cut(all, 11), names);
    checkRun("delete, no name", given(nullptr, true), {}, false, {});
}

void testDeleteTaskOf()
{
    // clang-format off
    const Calls query = {
        {METHOD(IClassFactory, CreateInstance), "mi>", L"ITaskService", L"ITaskService"},
        {METHOD(ITaskService, Connect), "vvvv", L"empty empty empty empty"},
        {METHOD(ITaskService, GetFolder), "s>", L"\\Brekka", L"ITaskFolder"},
        {METHOD(ITaskFolder, GetTask), "s>", L"BrekkaTask", L"IRegisteredTask"},
        {METHOD(IRegisteredTask, get_Definition), ">", L"", L"ITaskDefinition"},
        {METHOD(ITaskDefinition, get_Actions), ">", L"", L"IActionCollection"},
        {METHOD(IActionCollection, get_Item), "n>", L"1", L"IAction"},
        {METHOD(IAction, QueryInterface), "i>", L"IExecAction", L"IExecAction"},
        {METHOD(IExecAction, get_Path), "p"},
    };
    // clang-format on
    const auto remove = [] { return CTaskSchdMgr().DeleteTaskOf(L"BrekkaTask", program); };
    const std::vector<std::wstring> names = {L"Other", L"brekkatask"};
    const Calls look = cut(query, 3);
    const auto sequence = [&](size_t queried) {
        Calls calls = cut(query, queried);
        calls.insert(calls.end(), deletion.begin(), deletion.end());
        calls.insert(calls.end(), look.begin(), look.end());
        return calls;
    };
    const Calls all = sequence(query.size());
    const wchar_t *ours = L"c:/Games/app\\brekkaupdater.exe";
    checkRun("delete ours", remove, {all.size() - 1}, true, all, names, ours);
    checkRun("delete ours, refused", remove, {}, false, all, names, ours);
    checkRun("delete another copy's", remove, {}, true, query, names,
             L"C:/Other\\BrekkaUpdater.exe");
    for (size_t i = 3; i < query.size(); ++i)
        checkRun("delete, hidden " + std::to_string(i), remove, {i}, false, sequence(i + 1), names);
    checkRun("delete, no name", [] { return CTaskSchdMgr().DeleteTaskOf(nullptr, program); }, {},
             false, {});
    checkRun("delete, no path", [] { return CTaskSchdMgr().DeleteTaskOf(L"BrekkaTask", nullptr); },
             {}, false, {});
}

/// On a thread that never set COM up. Wine's scheduler knows no logon triggers; that of a real
/// Windows is left alone.
void testWithoutScheduler()
{
    if (GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "wine_get_version")) {
        check(!create() && !CTaskSchdMgr().DeleteTask(L"BrekkaTask", true), "Wine's scheduler");
        APTTYPE type;
        APTTYPEQUALIFIER qualifier;
        check(CoGetApartmentType(&type, &qualifier) == CO_E_NOTINITIALIZED, "COM as it was");
    }
}

} // namespace

/// Takes the folder of the sample files.
int main(int argc, char **argv)
{
    if (argc != 2)
        return 2;
    CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
    testCreateTask();
    testDeleteTask();
    testDeleteTaskOf();
    std::thread(testWithoutScheduler).join();
    const std::string folder = argv[1];
    SetCurrentDirectoryA(argv[1]);
    CreateDirectoryW(L"坦克", nullptr); // in no code page but UTF-8 and the Chinese ones
    CopyFileW(L"versioned.dll", L"坦克\\versioned.dll", FALSE);
    const std::pair<std::string, std::string> versions[] = {
        {folder + "/versioned.dll", "1.6.1.1023"},
        {folder + "/坦克/versioned.dll", "1.6.1.1023"},
        {folder + "/plain.dll", ""},
        {folder + "/CMakeCache.txt", ""}};
    for (const auto &[path, version] : versions)
        check(fileVersion(path) == version, "version of " + path + ": " + fileVersion(path));
    const char *user = std::getenv("USERNAME");
    check(user && *user && currentUserName() == user, "user name " + currentUserName());
    CoUninitialize();
    std::printf("%d passed, %d failed\n", passed, failed);
    return failed == 0 ? 0 : 1;
}
