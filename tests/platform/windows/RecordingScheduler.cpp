#include "RecordingScheduler.h"

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <utility>

namespace
{

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
    if (parameter == 'i') {
        const IID &id = *reinterpret_cast<IID *>(value);
        return IsEqualIID(id, IID_ITaskService)  ? L"ITaskService"
               : IsEqualIID(id, IID_IExecAction) ? L"IExecAction"
                                                 : L"?";
    }
    // A variant is larger than a register, so the caller passes the address of a copy.
    const auto *variant = reinterpret_cast<VARIANT *>(value);
    return variant->vt == VT_I4      ? std::to_wstring(variant->lVal)
           : variant->vt == VT_EMPTY ? L"empty"
                                     : L"?";
}

/// Carries the call out if it is the expected one. Every parameter of these interfaces takes one
/// register or one place on the stack, so eight of them cover the longest call.
HRESULT perform(Object *self, size_t slot, const uintptr_t (&values)[8])
{
    const size_t number = current->calls++;
    const Call wanted = number < current->expected.size() ? current->expected[number] : Call();
    const bool isInTurn =
        wanted.interfaceName == self->interfaceName && wanted.offset == slot * sizeof(void *);
    std::wstring given;
    for (size_t i = 0; isInTurn && i < wanted.parameters.size(); ++i)
        if (!std::strchr("m>ctp", wanted.parameters[i]))
            given += (given.empty() ? L"" : L" ") + textOf(wanted.parameters[i], values[i]);
    if (!isInTurn || given != wanted.values) {
        std::printf("  %ls %d: %ls\n", self->interfaceName.c_str(), int(slot), given.c_str());
        current->surprised = true;
        return E_FAIL;
    }
    const bool fails = current->failing.count(number) > 0;
    const char last = wanted.parameters.back();
    const uintptr_t out = values[wanted.parameters.size() - 1];
    // The true number also with a failure: it must not be used then.
    if (last == 'c')
        *reinterpret_cast<LONG *>(out) = static_cast<LONG>(current->taskNames.size());
    if (last == 't' && !fails)
        *reinterpret_cast<BSTR *>(out) = SysAllocString(self->name.c_str());
    if (last == 'p' && !fails)
        *reinterpret_cast<BSTR *>(out) = SysAllocString(current->program.c_str());
    if (last == '>' && !fails) {
        auto *object = new Object{functions.data(), wanted.handedOut, {}};
        if (wanted.interfaceName == L"IRegisteredTaskCollection")
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
    if (!current->live.empty() && current->live.back() == self)
        current->live.pop_back();
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

RecordingScheduler::RecordingScheduler(const std::vector<Call> &expectedCalls)
    : expected(expectedCalls)
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
