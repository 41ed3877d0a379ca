#pragma once

// The interfaces as tables of functions, whose slots can be counted.
#define CINTERFACE

#include <cstddef>
#include <set>
#include <string>
#include <vector>
#include <windows.h>

#include <taskschd.h>

/// A call of the scheduler. Its parameters, one character each, are a (s)tring, (n)umber,
/// (b)oolean, (v)ariant, (o)bject, (i)nterface id or do not (m)atter; handed out are a new object
/// (>), the number of tasks (c), the object's own name (t) or the path that a task starts (p).
struct Call {
    std::wstring interfaceName;
    size_t offset;
    std::string parameters;
    std::wstring values = {};    ///< what goes in, as text
    std::wstring handedOut = {}; ///< the interface of the new object
};

#define METHOD(Interface, name) L## #Interface, offsetof(Interface##Vtbl, name)

/// A Task Scheduler of the test process: what CoCreateInstance finds on this thread while the
/// object lives. It carries out the calls that it is told to expect, in their order, and refuses
/// all others.
class RecordingScheduler
{
public:
    explicit RecordingScheduler(const std::vector<Call> &expectedCalls);
    ~RecordingScheduler();

    const std::vector<Call> expected;
    size_t calls = 0;                    ///< how many came
    bool surprised = false;              ///< whether one was not the expected one, which is told
    std::set<size_t> failing;            ///< numbers of the calls, from 0, that answer E_FAIL
    std::vector<std::wstring> taskNames; ///< the tasks that our folder holds
    std::wstring program;                ///< what our task starts
    std::vector<const void *> live; ///< objects not given back, or given back before a later one
    long classReferences() const;   ///< references to the class object not given back

private:
    unsigned long m_registration = 0;
    long m_referencesBefore = 0;
};
