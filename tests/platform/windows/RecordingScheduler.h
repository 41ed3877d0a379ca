#pragma once

#include <set>
#include <string>
#include <vector>

/// A Task Scheduler of the test process: what CoCreateInstance finds on this thread while the
/// object lives. It takes down every call with its values and fails those that it is told to.
class RecordingScheduler
{
public:
    RecordingScheduler();
    ~RecordingScheduler();

    std::vector<std::wstring> calls;     ///< such as "ITaskService.GetFolder \Brekka"
    std::set<size_t> failing;            ///< numbers of the calls, from 0, that answer E_FAIL
    std::vector<std::wstring> taskNames; ///< the tasks that our folder holds
    std::vector<const void *> live;      ///< objects not given back yet, the latest last
    bool releasedOutOfOrder = false;     ///< whether one was given back before a later one
    long classReferences() const;        ///< references to the class object not given back

private:
    unsigned long m_registration = 0;
    long m_referencesBefore = 0;
};
