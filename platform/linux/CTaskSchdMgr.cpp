#include "CTaskSchdMgr.h"

bool CTaskSchdMgr::CreateTask(const wchar_t *, const wchar_t *, const wchar_t *, const wchar_t *)
{
    return false;
}

bool CTaskSchdMgr::DeleteTask(const wchar_t *, bool)
{
    return false;
}
