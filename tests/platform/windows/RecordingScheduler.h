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

    /// One line a call, such as "service.GetFolder(\Brekka)".
    std::vector<std::wstring> calls;
    /// Numbers of the calls, from 0, that answer E_FAIL.
    std::set<size_t> failing;
    /// The registered tasks that our folder holds.
    std::vector<std::wstring> taskNames;
    /// Objects handed out and not given back, the latest last.
    std::vector<const void *> live;
    /// Whether an object was given back while a later one was still held.
    bool releasedOutOfOrder = false;
    /// References to the class object that were taken and not given back.
    long classReferences() const;

private:
    unsigned long m_registration = 0;
    long m_referencesBefore = 0;
};
