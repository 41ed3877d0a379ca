// The interfaces as tables of functions, whose slots can be counted.
#define CINTERFACE

#include "RecordingScheduler.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <utility>
#include <windows.h>

#include <taskschd.h>

namespace
{

/// The parameters, one character each, are a (s)tring, (n)umber, (b)oolean, (v)ariant, (o)bject,
/// (i)nterface id or do not (m)atter; handed out are a new object (>), the number of tasks (c) or
/// the object's own name (t).
struct Method {
    std::wstring interfaceName;
    size_t offset;
    std::wstring name;
    std::string parameters;
    std::wstring handedOut;
};

#define METHOD(Interface, name, ...)                                                               \
    {                                                                                              \
        L## #Interface, offsetof(Interface##Vtbl, name), L## #name, __VA_ARGS__                    \
    }

// clang-format off
const std::vector<Method> methods = {
    METHOD(IClassFactory, CreateInstance, "mi>", L"ITaskService"),
    METHOD(ITaskService, Connect, "vvvv", {}),
    METHOD(ITaskService, GetFolder, "s>", L"ITaskFolder"),
    METHOD(ITaskService, NewTask, "n>", L"ITaskDefinition"),
    METHOD(ITaskFolder, GetFolder, "s>", L"ITaskFolder"),
    METHOD(ITaskFolder, CreateFolder, "sv>", L"ITaskFolder"),
    METHOD(ITaskFolder, DeleteFolder, "sn", {}),
    METHOD(ITaskFolder, GetTasks, "n>", L"IRegisteredTaskCollection"),
    METHOD(ITaskFolder, DeleteTask, "sn", {}),
    METHOD(ITaskFolder, RegisterTaskDefinition, "sonvvnv>", L"IRegisteredTask"),
    METHOD(ITaskDefinition, get_Settings, ">", L"ITaskSettings"),
    METHOD(ITaskDefinition, get_Triggers, ">", L"ITriggerCollection"),
    METHOD(ITaskDefinition, get_Actions, ">", L"IActionCollection"),
    METHOD(ITaskDefinition, get_Principal, ">", L"IPrincipal"),
    METHOD(ITaskSettings, put_DisallowStartIfOnBatteries, "b", {}),
    METHOD(ITaskSettings, put_StopIfGoingOnBatteries, "b", {}),
    METHOD(ITaskSettings, put_RestartCount, "n", {}),
    METHOD(ITaskSettings, put_RestartInterval, "s", {}),
    METHOD(ITaskSettings, get_IdleSettings, ">", L"IIdleSettings"),
    METHOD(IIdleSettings, put_StopOnIdleEnd, "b", {}),
    METHOD(ITriggerCollection, Create, "n>", L"ITrigger"),
    METHOD(IActionCollection, Create, "n>", L"IAction"),
    METHOD(IAction, QueryInterface, "i>", L"IExecAction"),
    METHOD(IExecAction, put_Path, "s", {}),
    METHOD(IExecAction, put_Arguments, "s", {}),
    METHOD(IExecAction, put_WorkingDirectory, "s", {}),
    METHOD(IPrincipal, put_GroupId, "s", {}),
    METHOD(IPrincipal, put_RunLevel, "n", {}),
    METHOD(IRegisteredTaskCollection, get_Count, "c", {}),
    METHOD(IRegisteredTaskCollection, get_Item, "v>", L"IRegisteredTask"),
    METHOD(IRegisteredTask, get_Name, "t", {}),
    METHOD(IRegisteredTask, put_Enabled, "b", {}),
};
// clang-format on

struct Object {
    const void *const *functions;
    std::wstring interfaceName;
    std::wstring name; // of a registered task
    long references = 1;
};

RecordingScheduler *current = nullptr;
extern const std::array<const void *, 64> functions;

std::wstring textOf(char parameter, uintptr_t value)
{
    if (parameter == 's')
        return reinterpret_cast<BSTR>(value);
    if (parameter == 'n')
        return std::to_wstring(static_cast<int32_t>(value));
    if (parameter == 'b')
        return static_cast<VARIANT_BOOL>(value) == VARIANT_FALSE ? L"false" : L"true";
    if (parameter == 'o')
        return reinterpret_cast<Object *>(value)->interfaceName;
    if (parameter == 'i')
        return IsEqualIID(*reinterpret_cast<IID *>(value), IID_ITaskService)  ? L"ITaskService"
               : IsEqualIID(*reinterpret_cast<IID *>(value), IID_IExecAction) ? L"IExecAction"
                                                                              : L"?";
    // A variant is larger than a register, so the caller passes the address of a copy.
    const auto *variant = reinterpret_cast<VARIANT *>(value);
    return variant->vt == VT_I4      ? std::to_wstring(variant->lVal)
           : variant->vt == VT_EMPTY ? L"empty"
                                     : L"?";
}

/// Takes the call down and carries it out. Every parameter of these interfaces takes one register
/// or one place on the stack, so eight of them cover the longest call.
HRESULT perform(Object *self, size_t slot, const uintptr_t (&values)[8])
{
    const auto method = std::find_if(methods.begin(), methods.end(), [&](const Method &known) {
        return self->interfaceName == known.interfaceName && known.offset == slot * sizeof(void *);
    });
    std::wstring line = self->interfaceName + L".";
    line += method == methods.end() ? L"unexpected " + std::to_wstring(slot) : method->name;
    for (size_t i = 0; method != methods.end() && i < method->parameters.size(); ++i) {
        if (!std::strchr("m>ct", method->parameters[i]))
            line += L" " + textOf(method->parameters[i], values[i]);
    }
    current->calls.push_back(line);
    const bool fails = current->failing.count(current->calls.size() - 1) > 0;
    const char last = method == methods.end() ? ' ' : method->parameters.back();
    const uintptr_t out = method == methods.end() ? 0 : values[method->parameters.size() - 1];
    // The true number also with a failure: it must not be used then.
    if (last == 'c')
        *reinterpret_cast<LONG *>(out) = static_cast<LONG>(current->taskNames.size());
    if (last == 't' && !fails)
        *reinterpret_cast<BSTR *>(out) = SysAllocString(self->name.c_str());
    if (last == '>' && !fails) {
        auto *object = new Object{functions.data(), method->handedOut, {}};
        if (method->name == L"get_Item")
            object->name = current->taskNames.at(reinterpret_cast<VARIANT *>(values[0])->lVal - 1);
        current->live.push_back(object);
        *reinterpret_cast<Object **>(out) = object;
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
    if (self->interfaceName == L"IAction")
        return perform(self, 0, {uintptr_t(id), uintptr_t(out)});
    const bool known = self->interfaceName == L"IClassFactory" &&
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

template <size_t... slots>
std::array<const void *, 64> makeFunctions(std::index_sequence<slots...>)
{
    return {reinterpret_cast<void *>(query), reinterpret_cast<void *>(addReference),
            reinterpret_cast<void *>(release), reinterpret_cast<void *>(call<slots + 3>)...};
}
const std::array<const void *, 64> functions = makeFunctions(std::make_index_sequence<61>());

// COM holds references to it, so it lives as long as the process.
Object classObject = {functions.data(), L"IClassFactory", {}};

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
