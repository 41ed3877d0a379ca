#include "CTaskSchdMgr.h"

#include <windows.h>

// These need the Windows types.
#include <comutil.h>
#include <taskschd.h>
#include <wrl/client.h>

using Microsoft::WRL::ComPtr;

namespace
{
constexpr wchar_t RootFolderPath[] = L"\\";
constexpr wchar_t OurFolderPath[] = L"\\Brekka";

/// Keeps COM initialised for the calling thread as a single-threaded apartment. A thread that is
/// already set up, whichever way, is left as it was found.
class ComApartment
{
public:
    ComApartment() : m_result(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED)) {}
    ~ComApartment()
    {
        if (SUCCEEDED(m_result))
            CoUninitialize();
    }
    ComApartment(const ComApartment &) = delete;
    ComApartment &operator=(const ComApartment &) = delete;

private:
    HRESULT m_result;
};

bool connectToScheduler(ComPtr<ITaskService> &service)
{
    return SUCCEEDED(CoCreateInstance(CLSID_TaskScheduler, nullptr, CLSCTX_SERVER, IID_ITaskService,
                                      &service)) &&
           SUCCEEDED(service->Connect(_variant_t(), _variant_t(), _variant_t(), _variant_t()));
}

/// The objects of one registration. They are members in the order in which they are obtained, so
/// that every way out releases them in reverse. Each step returns false at its first failing call,
/// and the steps after it must then not be taken.
class TaskRegistration
{
public:
    bool openFolder();
    bool applySettings();
    bool addLogonTrigger();
    bool addAction(const wchar_t *programPath, const wchar_t *workingDirectory,
                   const wchar_t *arguments);
    bool setPrincipal();
    bool registerAs(const wchar_t *taskName);

private:
    ComPtr<ITaskService> m_service;
    ComPtr<ITaskFolder> m_rootFolder;
    ComPtr<ITaskFolder> m_folder;
    ComPtr<ITaskDefinition> m_definition;
    ComPtr<ITaskSettings> m_settings;
    ComPtr<IIdleSettings> m_idleSettings;
    ComPtr<ITriggerCollection> m_triggers;
    ComPtr<ITrigger> m_trigger;
    ComPtr<IActionCollection> m_actions;
    ComPtr<IAction> m_action;
    ComPtr<IExecAction> m_execAction;
    ComPtr<IPrincipal> m_principal;
    ComPtr<IRegisteredTask> m_registered;
};

bool TaskRegistration::openFolder()
{
    if (!connectToScheduler(m_service) ||
        FAILED(m_service->GetFolder(_bstr_t(RootFolderPath), &m_rootFolder)))
        return false;
    if (SUCCEEDED(m_rootFolder->GetFolder(_bstr_t(OurFolderPath), &m_folder)))
        return true;
    return SUCCEEDED(m_rootFolder->CreateFolder(_bstr_t(OurFolderPath), _variant_t(), &m_folder));
}

bool TaskRegistration::applySettings()
{
    return SUCCEEDED(m_service->NewTask(0, &m_definition)) &&
           SUCCEEDED(m_definition->get_Settings(&m_settings)) &&
           SUCCEEDED(m_settings->put_DisallowStartIfOnBatteries(VARIANT_FALSE)) &&
           SUCCEEDED(m_settings->put_StopIfGoingOnBatteries(VARIANT_FALSE)) &&
           SUCCEEDED(m_settings->put_RestartCount(3)) &&
           SUCCEEDED(m_settings->put_RestartInterval(_bstr_t(L"PT3M"))) &&
           SUCCEEDED(m_settings->get_IdleSettings(&m_idleSettings)) &&
           SUCCEEDED(m_idleSettings->put_StopOnIdleEnd(VARIANT_FALSE));
}

bool TaskRegistration::addLogonTrigger()
{
    return SUCCEEDED(m_definition->get_Triggers(&m_triggers)) &&
           SUCCEEDED(m_triggers->Create(TASK_TRIGGER_LOGON, &m_trigger));
}

bool TaskRegistration::addAction(const wchar_t *programPath, const wchar_t *workingDirectory,
                                 const wchar_t *arguments)
{
    if (FAILED(m_definition->get_Actions(&m_actions)) ||
        FAILED(m_actions->Create(TASK_ACTION_EXEC, &m_action)) ||
        FAILED(m_action->QueryInterface(IID_IExecAction, &m_execAction)) ||
        FAILED(m_execAction->put_Path(_bstr_t(programPath))))
        return false;
    if (arguments && FAILED(m_execAction->put_Arguments(_bstr_t(arguments))))
        return false;
    return !workingDirectory ||
           SUCCEEDED(m_execAction->put_WorkingDirectory(_bstr_t(workingDirectory)));
}

bool TaskRegistration::setPrincipal()
{
    return SUCCEEDED(m_definition->get_Principal(&m_principal)) &&
           SUCCEEDED(m_principal->put_GroupId(_bstr_t(L"Users"))) &&
           SUCCEEDED(m_principal->put_RunLevel(TASK_RUNLEVEL_HIGHEST));
}

bool TaskRegistration::registerAs(const wchar_t *taskName)
{
    return SUCCEEDED(m_folder->RegisterTaskDefinition(
        _bstr_t(taskName), m_definition.Get(), TASK_CREATE_OR_UPDATE, _variant_t(), _variant_t(),
        TASK_LOGON_INTERACTIVE_TOKEN, _variant_t(), &m_registered));
}

/// Looks for the task at the 1-based \a position; when it is \a taskName, removes it.
bool deleteTaskAt(LONG position, const wchar_t *taskName, ITaskFolder *folder,
                  IRegisteredTaskCollection *tasks)
{
    ComPtr<IRegisteredTask> task;
    _bstr_t name;
    if (FAILED(tasks->get_Item(_variant_t(position), &task)) ||
        FAILED(task->get_Name(name.GetAddress())) || !name)
        return false;
    if (CompareStringOrdinal(name, -1, taskName, -1, TRUE) != CSTR_EQUAL)
        return false;
    // A task that is already disabled can't start while it is being removed.
    task->put_Enabled(VARIANT_FALSE);
    folder->DeleteTask(name, 0);
    return true;
}

/// The program that the task starts; empty when there is no such task or it can't be looked at.
_bstr_t programOf(const wchar_t *taskName)
{
    ComPtr<ITaskService> service;
    ComPtr<ITaskFolder> folder;
    ComPtr<IRegisteredTask> task;
    ComPtr<ITaskDefinition> definition;
    ComPtr<IActionCollection> actions;
    ComPtr<IAction> action;
    ComPtr<IExecAction> execAction;
    _bstr_t path;
    if (!connectToScheduler(service) ||
        FAILED(service->GetFolder(_bstr_t(OurFolderPath), &folder)) ||
        FAILED(folder->GetTask(_bstr_t(taskName), &task)) ||
        FAILED(task->get_Definition(&definition)) || FAILED(definition->get_Actions(&actions)) ||
        FAILED(actions->get_Item(1, &action)) ||
        FAILED(action->QueryInterface(IID_IExecAction, &execAction)) ||
        FAILED(execAction->get_Path(path.GetAddress())))
        return {};
    return path;
}

bool isOurFolderThere()
{
    ComPtr<ITaskService> service;
    ComPtr<ITaskFolder> folder;
    return connectToScheduler(service) &&
           SUCCEEDED(service->GetFolder(_bstr_t(OurFolderPath), &folder));
}

} // namespace

bool CTaskSchdMgr::CreateTask(const wchar_t *taskName, const wchar_t *programPath,
                              const wchar_t *workingDirectory, const wchar_t *arguments)
{
    if (!taskName || !programPath)
        return false;
    const ComApartment apartment;
    TaskRegistration registration;
    return registration.openFolder() && registration.applySettings() &&
           registration.addLogonTrigger() &&
           registration.addAction(programPath, workingDirectory, arguments) &&
           registration.setPrincipal() && registration.registerAs(taskName);
}

bool CTaskSchdMgr::OpenTaskFolder(ITaskService **service, ITaskFolder **folder,
                                  IRegisteredTaskCollection **tasks)
{
    ComPtr<ITaskService> openedService;
    ComPtr<ITaskFolder> openedFolder;
    if (!connectToScheduler(openedService) ||
        FAILED(openedService->GetFolder(_bstr_t(OurFolderPath), &openedFolder)) ||
        FAILED(openedFolder->GetTasks(TASK_ENUM_HIDDEN, tasks)))
        return false;
    *service = openedService.Detach();
    *folder = openedFolder.Detach();
    return true;
}

bool CTaskSchdMgr::DeleteTask(const wchar_t *taskName, bool deleteFolder)
{
    if (!taskName)
        return false;
    const ComApartment apartment;
    ComPtr<ITaskService> service;
    ComPtr<ITaskFolder> folder;
    ComPtr<IRegisteredTaskCollection> tasks;
    if (!OpenTaskFolder(&service, &folder, &tasks))
        return false;

    LONG count = 0;
    if (FAILED(tasks->get_Count(&count)))
        count = 0;
    bool found = false;
    for (LONG position = 1; position <= count && !found; ++position)
        found = deleteTaskAt(position, taskName, folder.Get(), tasks.Get());

    if (deleteFolder) {
        ComPtr<ITaskFolder> rootFolder;
        if (SUCCEEDED(service->GetFolder(_bstr_t(RootFolderPath), &rootFolder)))
            rootFolder->DeleteFolder(_bstr_t(OurFolderPath), 0);
    }
    return found;
}

bool CTaskSchdMgr::DeleteTaskOf(const wchar_t *taskName, const wchar_t *programPath)
{
    if (!taskName || !programPath)
        return false;
    const ComApartment apartment;
    const _bstr_t program = programOf(taskName);
    if (program.length() > 0 &&
        CompareStringOrdinal(program, -1, programPath, -1, TRUE) != CSTR_EQUAL)
        return true;
    // An administrator's task may be hidden from us, its folder is not.
    DeleteTask(taskName, true);
    return !isOurFolderThere();
}
