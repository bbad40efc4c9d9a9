// The way up for parameter changes: components register ParamChanged as their onChange function, and the panels, which
// are above, hand in the handler that hears of it.
#pragma once

#include "tovmisc.h"

using ParamChangedHandler = unsigned int (*)(unsigned int component, _TovStParam *param);

// Set on the GUI thread before the first session; null ends it.
void SetParamChangedHandler(ParamChangedHandler handler);

// The onChange function of the engines. Any thread.
unsigned int ComponentParamChanged(unsigned int component, _TovStParam *param);
