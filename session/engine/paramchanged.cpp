#include "paramchanged.h"

#include <atomic>

namespace {

std::atomic<ParamChangedHandler> s_handler{nullptr};

}

void SetParamChangedHandler(ParamChangedHandler handler)
{
    s_handler.store(handler, std::memory_order_release);
}

unsigned int ComponentParamChanged(unsigned int component, _TovStParam *param)
{
    ParamChangedHandler const handler = s_handler.load(std::memory_order_acquire);
    return handler ? handler(component, param) : 0;
}
