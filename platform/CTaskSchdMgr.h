#pragma once

/// Registers and removes the one task that the system runs at each logon of a user.
///
/// Both operations block the calling thread while the system answers. Nothing is kept between
/// calls, and a registered task outlives the program. Failures are reported by the result alone.
class CTaskSchdMgr
{
public:
    virtual ~CTaskSchdMgr() = default;

    /// Makes the task \a taskName start \a programPath at each logon, replacing a task of that
    /// name. \a workingDirectory and \a arguments may be null: then they are not set. Returns
    /// whether the task is registered; a null name or path is refused.
    bool CreateTask(const wchar_t *taskName, const wchar_t *programPath,
                    const wchar_t *workingDirectory, const wchar_t *arguments);

    /// Removes the task \a taskName, whose case does not matter, and with \a deleteFolder the
    /// folder that holds our tasks. Returns whether a task of that name was found.
    bool DeleteTask(const wchar_t *taskName, bool deleteFolder);
};
