// The interfaces as tables of functions, whose slots can be counted.
#define CINTERFACE

#include "RecordingScheduler.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <windows.h>

#include <taskschd.h>

namespace
{

RecordingScheduler *current = nullptr;

struct Object {
    const void *functions;
    /// Which interface it plays, as in the table of methods.
    std::wstring kind;
    /// What it stands for, where that matters: a folder's path, a task's name.
    std::wstring name;
    long references = 1;
};

struct Method {
    const wchar_t *kind;
    size_t offset;
    const wchar_t *name;
    /// One character a parameter: a (s)tring, (n)umber, (b)oolean, (v)ariant, (o)bject, (i)nterface
    /// id or something that does not (m)atter; what is handed out is a new object (>), the number
    /// of tasks (c) or the object's own name (t).
    const char *parameters;
    const wchar_t *handedOut;
};

#define METHOD(kind, Interface, name, parameters, handedOut)                                       \
    {                                                                                              \
        kind, offsetof(Interface##Vtbl, name), L## #name, parameters, handedOut                    \
    }

const Method methods[] = {
    METHOD(L"class", IClassFactory, CreateInstance, "mi>", L"service"),
    METHOD(L"service", ITaskService, Connect, "vvvv", nullptr),
    METHOD(L"service", ITaskService, GetFolder, "s>", L"folder"),
    METHOD(L"service", ITaskService, NewTask, "n>", L"definition"),
    METHOD(L"folder", ITaskFolder, GetFolder, "s>", L"folder"),
    METHOD(L"folder", ITaskFolder, CreateFolder, "sv>", L"folder"),
    METHOD(L"folder", ITaskFolder, DeleteFolder, "sn", nullptr),
    METHOD(L"folder", ITaskFolder, GetTasks, "n>", L"tasks"),
    METHOD(L"folder", ITaskFolder, DeleteTask, "sn", nullptr),
    METHOD(L"folder", ITaskFolder, RegisterTaskDefinition, "sonvvnv>", L"task"),
    METHOD(L"definition", ITaskDefinition, get_Settings, ">", L"settings"),
    METHOD(L"definition", ITaskDefinition, get_Triggers, ">", L"triggers"),
    METHOD(L"definition", ITaskDefinition, get_Actions, ">", L"actions"),
    METHOD(L"definition", ITaskDefinition, get_Principal, ">", L"principal"),
    METHOD(L"settings", ITaskSettings, put_DisallowStartIfOnBatteries, "b", nullptr),
    METHOD(L"settings", ITaskSettings, put_StopIfGoingOnBatteries, "b", nullptr),
    METHOD(L"settings", ITaskSettings, put_RestartCount, "n", nullptr),
    METHOD(L"settings", ITaskSettings, put_RestartInterval, "s", nullptr),
    METHOD(L"settings", ITaskSettings, get_IdleSettings, ">", L"idle"),
    METHOD(L"idle", IIdleSettings, put_StopOnIdleEnd, "b", nullptr),
    METHOD(L"triggers", ITriggerCollection, Create, "n>", L"trigger"),
    METHOD(L"actions", IActionCollection, Create, "n>", L"action"),
    METHOD(L"action", IAction, QueryInterface, "i>", L"exec"),
    METHOD(L"exec", IExecAction, put_Path, "s", nullptr),
    METHOD(L"exec", IExecAction, put_Arguments, "s", nullptr),
    METHOD(L"exec", IExecAction, put_WorkingDirectory, "s", nullptr),
    METHOD(L"principal", IPrincipal, put_GroupId, "s", nullptr),
    METHOD(L"principal", IPrincipal, put_RunLevel, "n", nullptr),
    METHOD(L"tasks", IRegisteredTaskCollection, get_Count, "c", nullptr),
    METHOD(L"tasks", IRegisteredTaskCollection, get_Item, "v>", L"task"),
    METHOD(L"task", IRegisteredTask, get_Name, "t", nullptr),
    METHOD(L"task", IRegisteredTask, put_Enabled, "b", nullptr),
};

std::wstring textOf(char kind, uintptr_t value)
{
    switch (kind) {
    case 's':
        return reinterpret_cast<BSTR>(value);
    case 'n':
        return std::to_wstring(static_cast<int32_t>(value));
    case 'b':
        return static_cast<VARIANT_BOOL>(value) == VARIANT_FALSE ? L"false" : L"true";
    case 'o':
        return reinterpret_cast<Object *>(value)->kind;
    case 'v': {
        // A variant is larger than a register, so the caller passes the address of a copy.
        const auto *variant = reinterpret_cast<const VARIANT *>(value);
        return variant->vt == VT_I4      ? std::to_wstring(variant->lVal)
               : variant->vt == VT_EMPTY ? L"empty"
                                         : L"?";
    }
    case 'i': {
        const auto &id = *reinterpret_cast<const IID *>(value);
        return IsEqualIID(id, IID_ITaskService)  ? L"ITaskService"
               : IsEqualIID(id, IID_IExecAction) ? L"IExecAction"
                                                 : L"?";
    }
    default:
        return {};
    }
}

extern const void *const functions[64];

Object *newObject(const Method &method, const std::wstring &argument)
{
    auto *object = new Object{functions, method.handedOut, argument};
    if (object->kind == L"task" && std::wstring(method.name) == L"get_Item")
        object->name = current->taskNames.at(std::stoul(argument) - 1);
    current->live.push_back(object);
    return object;
}

/// Takes the call down and carries it out. Every parameter of these interfaces takes one register
/// or one place on the stack, so eight of them cover the longest call.
HRESULT perform(Object *self, size_t slot, const uintptr_t (&values)[8])
{
    const auto method =
        std::find_if(std::begin(methods), std::end(methods), [&](const Method &candidate) {
            return self->kind == candidate.kind && candidate.offset == slot * sizeof(void *);
        });
    if (method == std::end(methods)) {
        current->calls.push_back(L"unexpected call " + std::to_wstring(slot) + L" of " +
                                 self->kind);
        return E_NOTIMPL;
    }
    std::wstring line = self->kind + L"." + method->name, argument;
    for (size_t i = 0; method->parameters[i]; ++i) {
        const std::wstring text = textOf(method->parameters[i], values[i]);
        line += text.empty() ? text : L" " + text;
        argument = i == 0 ? text : argument;
    }
    current->calls.push_back(line);
    const bool fails = current->failing.count(current->calls.size() - 1) > 0;
    for (size_t i = 0; method->parameters[i]; ++i) {
        auto *out = reinterpret_cast<void **>(values[i]);
        // The true number also with a failure: it must not be used then.
        if (method->parameters[i] == 'c')
            *reinterpret_cast<LONG *>(out) = static_cast<LONG>(current->taskNames.size());
        if (method->parameters[i] == 't' && !fails)
            *reinterpret_cast<BSTR *>(out) = SysAllocString(self->name.c_str());
        if (method->parameters[i] == '>' && !fails)
            *out = newObject(*method, argument);
    }
    return fails ? E_FAIL : S_OK;
}

template <size_t slot>
HRESULT call(Object *self, uintptr_t a, uintptr_t b, uintptr_t c, uintptr_t d, uintptr_t e,
             uintptr_t f, uintptr_t g, uintptr_t h)
{
    return perform(self, slot, {a, b, c, d, e, f, g, h});
}

HRESULT query(Object *self, const IID *id, void **out)
{
    if (self->kind == L"action")
        return perform(self, 0, {uintptr_t(id), uintptr_t(out)});
    const bool known = self->kind == L"class" &&
                       (IsEqualIID(*id, IID_IUnknown) || IsEqualIID(*id, IID_IClassFactory));
    *out = known ? self : nullptr;
    self->references += known;
    return known ? S_OK : E_NOINTERFACE;
}

ULONG addReference(Object *self)
{
    return ++self->references;
}

ULONG release(Object *self)
{
    if (--self->references > 0)
        return self->references;
    auto &live = current->live;
    current->releasedOutOfOrder |= live.empty() || live.back() != self;
    live.erase(std::remove(live.begin(), live.end(), self), live.end());
    delete self;
    return 0;
}

template <size_t slot>
const void *functionFor()
{
    switch (slot) {
    case 0:
        return reinterpret_cast<const void *>(query);
    case 1:
        return reinterpret_cast<const void *>(addReference);
    case 2:
        return reinterpret_cast<const void *>(release);
    default:
        return reinterpret_cast<const void *>(call<slot>);
    }
}

// The only object that lives as long as the process; COM holds references to it.
Object classObject = {functions, L"class", {}};

#define EIGHT(n)                                                                                   \
    functionFor<n>(), functionFor<n + 1>(), functionFor<n + 2>(), functionFor<n + 3>(),            \
        functionFor<n + 4>(), functionFor<n + 5>(), functionFor<n + 6>(), functionFor<n + 7>()
const void *const functions[64] = {EIGHT(0),  EIGHT(8),  EIGHT(16), EIGHT(24),
                                   EIGHT(32), EIGHT(40), EIGHT(48), EIGHT(56)};

} // namespace

RecordingScheduler::RecordingScheduler()
{
    current = this;
    CoRegisterClassObject(CLSID_TaskScheduler, reinterpret_cast<IUnknown *>(&classObject),
                          CLSCTX_INPROC_SERVER, REGCLS_MULTIPLEUSE, &m_registration);
    m_referencesBefore = classObject.references;
}

RecordingScheduler::~RecordingScheduler()
{
    CoRevokeClassObject(m_registration);
    current = nullptr;
}

long RecordingScheduler::classReferences() const
{
    return classObject.references - m_referencesBefore;
}
