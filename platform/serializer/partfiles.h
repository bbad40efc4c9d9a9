// Files that have no name of their own yet, on file systems that know no files without a name: docs/formats.md has what
// they are called.
#pragma once

#include <string>

// A name that this process has not used before; `mark` is ProcessMark::Own().
std::string NextPartName(std::string const &folder, std::string const &mark);
// Removes those in the folder whose processes have ended for certain.
void RemovePartsOfTheDead(std::string const &folder);
// The same, unless the folder's file system knows files without a name: nothing is left over there.
void RemoveLeftovers(std::string const &folder);
