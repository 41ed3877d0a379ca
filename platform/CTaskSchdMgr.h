#pragma once

#ifdef _WIN32
struct IRegisteredTaskCollection;
struct ITaskFolder;
struct ITaskService;
#endif

/// Registers and removes the one task that the system runs at each logon of a user: on Windows a
/// task of the Task Scheduler in a folder of our own, elsewhere an entry of the desktop's autostart
/// folder.
///
/// Both operations block the calling thread while the system answers. Nothing is kept between
/// calls, and a registered task outlives the program. Failures are reported by the result alone.
class CTaskSchdMgr
{
public:
    virtual ~CTaskSchdMgr() = default;

    /// Makes the task \a taskName start \a programPath at each logon, replacing a task of that
    /// name. \a workingDirectory and \a arguments may be null: then they are not set. The
    /// arguments are the rest of a command line: blanks part them, double quotes hold them
    /// together. Returns whether the task is registered; a null name or path is refused.
    bool CreateTask(const wchar_t *taskName, const wchar_t *programPath,
                    const wchar_t *workingDirectory, const wchar_t *arguments);

    /// Removes the task \a taskName, whose case does not matter, and with \a deleteFolder the
    /// folder that holds our tasks; the autostart folder is shared with other programs and stays.
    /// Returns whether a task of that name was found.
    bool DeleteTask(const wchar_t *taskName, bool deleteFolder);

    /// Removes the task \a taskName with our folder when it starts \a programPath; that of another
    /// copy of the program stays. Returns false when something is left because the system refused,
    /// which an administrator's rights may change; a null name or path is refused, too.
    bool DeleteTaskOf(const wchar_t *taskName, const wchar_t *programPath);

#ifdef _WIN32
private:
    /// Connects to the scheduler and opens our folder and the list of its tasks, hidden ones
    /// included. On success the caller releases all three, on failure there is nothing to release.
    /// COM must be initialised for the calling thread until then.
    bool OpenTaskFolder(ITaskService **service, ITaskFolder **folder,
                        IRegisteredTaskCollection **tasks);
#endif
};
