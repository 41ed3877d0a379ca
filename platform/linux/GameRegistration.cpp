#include "GameRegistration.h"

QVariant GameRegistration::installLocation() const
{
    return {};
}
