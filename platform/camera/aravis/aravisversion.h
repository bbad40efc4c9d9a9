// Which Aravis the library runs with.
#pragma once

#include <arv.h>
#include <string>

inline std::string AravisVersion()
{
    return "Aravis " + std::to_string(arv_get_major_version()) + '.' + std::to_string(arv_get_minor_version()) + '.' +
           std::to_string(arv_get_micro_version());
}
