#pragma once

#include <new>
#include <windows.h>

#include <oleauto.h>

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

/// Owns one reference to an interface and gives it up when it goes out of scope.
template <typename Interface>
class ComPointer
{
public:
    ComPointer() = default;
    ~ComPointer()
    {
        if (m_pointer)
            m_pointer->Release();
    }
    ComPointer(const ComPointer &) = delete;
    ComPointer &operator=(const ComPointer &) = delete;

    Interface *operator->() const { return m_pointer; }
    Interface *get() const { return m_pointer; }
    /// Where a call puts the reference that it hands over; only for a holder that is still empty.
    Interface **out() { return &m_pointer; }
    void **outVoid() { return reinterpret_cast<void **>(&m_pointer); }
    /// Hands the reference to the caller.
    Interface *take()
    {
        Interface *pointer = m_pointer;
        m_pointer = nullptr;
        return pointer;
    }

private:
    Interface *m_pointer = nullptr;
};

/// A COM string. As a temporary it lives exactly as long as the call that it is passed to.
class ComString
{
public:
    ComString() = default;
    explicit ComString(const wchar_t *text) : m_string(SysAllocString(text))
    {
        // A null string would be taken for an empty one, and so name another task or folder.
        if (!m_string)
            throw std::bad_alloc();
    }
    ~ComString() { SysFreeString(m_string); }
    ComString(const ComString &) = delete;
    ComString &operator=(const ComString &) = delete;

    BSTR get() const { return m_string; }
    BSTR *out() { return &m_string; }

private:
    BSTR m_string = nullptr;
};

/// A variant, empty or a whole number.
class ComVariant
{
public:
    ComVariant() { VariantInit(&m_value); }
    explicit ComVariant(LONG number) : ComVariant()
    {
        m_value.vt = VT_I4;
        m_value.lVal = number;
    }
    ~ComVariant() { VariantClear(&m_value); }
    ComVariant(const ComVariant &) = delete;
    ComVariant &operator=(const ComVariant &) = delete;

    const VARIANT &get() const { return m_value; }

private:
    VARIANT m_value;
};
