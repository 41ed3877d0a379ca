#include "TerminationSignal.h"

TerminationSignal::TerminationSignal(std::function<void()>) {}

TerminationSignal::~TerminationSignal() = default;
