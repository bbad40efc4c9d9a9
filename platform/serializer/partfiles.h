// Files that do not have their own name yet, on file systems without nameless files: docs/formats.md describes their
// names.
#pragma once

#include <string>

// A name that this process has not used before; `mark` is ProcessMark::Own().
std::string NextPartName(std::string const &folder, std::string const &mark);
// Removes those in the folder whose processes have ended for certain.
void RemovePartsOfTheDead(std::string const &folder);
// The same, unless the folder's file system has nameless files: nothing is left over there.
void RemoveLeftovers(std::string const &folder);
