#include "Interruption.h"

#include <csignal>

namespace
{
volatile std::sig_atomic_t caught = 0;

void remember(int)
{
    caught = 1;
}
} // namespace

void Interruption::watch()
{
    std::signal(SIGINT, remember);
    std::signal(SIGTERM, remember);
}

bool Interruption::requested()
{
    return caught != 0;
}
