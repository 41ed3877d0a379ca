#pragma once

/// What screen readers and other assistive programs are told of the controls that are our own.
namespace Accessibility
{
/// Once an application; further calls change nothing.
void install();
} // namespace Accessibility
