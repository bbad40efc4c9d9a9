// Recognises by a file's name which process made it, also after that has ended.
#pragma once

#include <string>

namespace ProcessMark {

// Of this process: letters, digits and "-".
std::string Own();
// Whether a mark's process has ended for certain: it ran under this kernel since it was started, among the processes
// that can be seen from here, and is none of them. False for other machines, for other containers, and for anything
// that is not a mark.
bool IsOfTheDead(std::string const &mark);

} // namespace ProcessMark
