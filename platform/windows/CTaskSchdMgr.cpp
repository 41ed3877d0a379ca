#include "CTaskSchdMgr.h"

#include "ComHolders.h"

// The scheduler's header needs the Windows types that the holders bring along.
#include <taskschd.h>

namespace
{

const wchar_t rootFolderPath[] = L"\\";
const wchar_t ourFolderPath[] = L"\\Brekka";

bool connectToScheduler(ComPointer<ITaskService> &service)
{
    const ComVariant server, user, domain, password;
    return SUCCEEDED(CoCreateInstance(CLSID_TaskScheduler, nullptr, CLSCTX_SERVER, IID_ITaskService,
                                      service.outVoid())) &&
           SUCCEEDED(service->Connect(server.get(), user.get(), domain.get(), password.get()));
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
    ComPointer<ITaskService> m_service;
    ComPointer<ITaskFolder> m_rootFolder;
    ComPointer<ITaskFolder> m_folder;
    ComPointer<ITaskDefinition> m_definition;
    ComPointer<ITaskSettings> m_settings;
    ComPointer<IIdleSettings> m_idleSettings;
    ComPointer<ITriggerCollection> m_triggers;
    ComPointer<ITrigger> m_trigger;
    ComPointer<IActionCollection> m_actions;
    ComPointer<IAction> m_action;
    ComPointer<IExecAction> m_execAction;
    ComPointer<IPrincipal> m_principal;
    ComPointer<IRegisteredTask> m_registered;
};

bool TaskRegistration::openFolder()
{
    if (!connectToScheduler(m_service) ||
        FAILED(m_service->GetFolder(ComString(rootFolderPath).get(), m_rootFolder.out())))
        return false;
    if (SUCCEEDED(m_rootFolder->GetFolder(ComString(ourFolderPath).get(), m_folder.out())))
        return true;
    const ComVariant securityDescriptor;
    return SUCCEEDED(m_rootFolder->CreateFolder(ComString(ourFolderPath).get(),
                                                securityDescriptor.get(), m_folder.out()));
}

bool TaskRegistration::applySettings()
{
    return SUCCEEDED(m_service->NewTask(0, m_definition.out())) &&
           SUCCEEDED(m_definition->get_Settings(m_settings.out())) &&
           SUCCEEDED(m_settings->put_DisallowStartIfOnBatteries(VARIANT_FALSE)) &&
           SUCCEEDED(m_settings->put_StopIfGoingOnBatteries(VARIANT_FALSE)) &&
           SUCCEEDED(m_settings->put_RestartCount(3)) &&
           SUCCEEDED(m_settings->put_RestartInterval(ComString(L"PT3M").get())) &&
           SUCCEEDED(m_settings->get_IdleSettings(m_idleSettings.out())) &&
           SUCCEEDED(m_idleSettings->put_StopOnIdleEnd(VARIANT_FALSE));
}

bool TaskRegistration::addLogonTrigger()
{
    return SUCCEEDED(m_definition->get_Triggers(m_triggers.out())) &&
           SUCCEEDED(m_triggers->Create(TASK_TRIGGER_LOGON, m_trigger.out()));
}

bool TaskRegistration::addAction(const wchar_t *programPath, const wchar_t *workingDirectory,
                                 const wchar_t *arguments)
{
    if (FAILED(m_definition->get_Actions(m_actions.out())) ||
        FAILED(m_actions->Create(TASK_ACTION_EXEC, m_action.out())) ||
        FAILED(m_action->QueryInterface(IID_IExecAction, m_execAction.outVoid())) ||
        FAILED(m_execAction->put_Path(ComString(programPath).get())))
        return false;
    if (arguments && FAILED(m_execAction->put_Arguments(ComString(arguments).get())))
        return false;
    return !workingDirectory ||
           SUCCEEDED(m_execAction->put_WorkingDirectory(ComString(workingDirectory).get()));
}

bool TaskRegistration::setPrincipal()
{
    return SUCCEEDED(m_definition->get_Principal(m_principal.out())) &&
           SUCCEEDED(m_principal->put_GroupId(ComString(L"Users").get())) &&
           SUCCEEDED(m_principal->put_RunLevel(TASK_RUNLEVEL_HIGHEST));
}

bool TaskRegistration::registerAs(const wchar_t *taskName)
{
    const ComVariant user, password, securityDescriptor;
    return SUCCEEDED(m_folder->RegisterTaskDefinition(
        ComString(taskName).get(), m_definition.get(), TASK_CREATE_OR_UPDATE, user.get(),
        password.get(), TASK_LOGON_INTERACTIVE_TOKEN, securityDescriptor.get(),
        m_registered.out()));
}

/// Looks for the task at the 1-based \a position; when it is \a taskName, removes it.
bool deleteTaskAt(LONG position, const wchar_t *taskName, ITaskFolder *folder,
                  IRegisteredTaskCollection *tasks)
{
    ComPointer<IRegisteredTask> task;
    ComString name;
    if (FAILED(tasks->get_Item(ComVariant(position).get(), task.out())) ||
        FAILED(task->get_Name(name.out())) || !name.get())
        return false;
    if (CompareStringOrdinal(name.get(), -1, taskName, -1, TRUE) != CSTR_EQUAL)
        return false;
    // A task that is already disabled can't start while it is being removed.
    task->put_Enabled(VARIANT_FALSE);
    folder->DeleteTask(name.get(), 0);
    return true;
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
    ComPointer<ITaskService> openedService;
    ComPointer<ITaskFolder> openedFolder;
    if (!connectToScheduler(openedService) ||
        FAILED(openedService->GetFolder(ComString(ourFolderPath).get(), openedFolder.out())) ||
        FAILED(openedFolder->GetTasks(TASK_ENUM_HIDDEN, tasks)))
        return false;
    *service = openedService.take();
    *folder = openedFolder.take();
    return true;
}

bool CTaskSchdMgr::DeleteTask(const wchar_t *taskName, bool deleteFolder)
{
    if (!taskName)
        return false;
    const ComApartment apartment;
    ComPointer<ITaskService> service;
    ComPointer<ITaskFolder> folder;
    ComPointer<IRegisteredTaskCollection> tasks;
    if (!OpenTaskFolder(service.out(), folder.out(), tasks.out()))
        return false;

    LONG count = 0;
    if (FAILED(tasks->get_Count(&count)))
        count = 0;
    bool found = false;
    for (LONG position = 1; position <= count && !found; ++position)
        found = deleteTaskAt(position, taskName, folder.get(), tasks.get());

    if (deleteFolder) {
        ComPointer<ITaskFolder> rootFolder;
        if (SUCCEEDED(service->GetFolder(ComString(rootFolderPath).get(), rootFolder.out())))
            rootFolder->DeleteFolder(ComString(ourFolderPath).get(), 0);
    }
    return found;
}
