#include "TerminationSignal.h"

struct TerminationSignal::State {
};

TerminationSignal::TerminationSignal(std::function<void()>) {}

TerminationSignal::~TerminationSignal() = default;
