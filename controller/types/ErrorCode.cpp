#include "ErrorCode.h"

#include <QMetaEnum>

const char *EC::name(ErrorCode code)
{
    return QMetaEnum::fromType<ErrorCode>().valueToKey(code);
}
