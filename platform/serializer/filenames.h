// Names of files to come: their folders, and numbers for those that are taken. Operations give 0 or an errno value.
#pragma once

#include <functional>
#include <string>

// "." for a name alone.
std::string FolderOf(std::string const &name);
// With those it stands in.
int MakeFolders(std::string const &folder);
// An error of an operation that a name was given to: of all its arguments only the name can be invalid, which is
// EILSEQ.
int OfName(int error);

// Calls `attempt` with `name`, then with numbers of it ("name_1.ext"), until the answer is not EEXIST; `name` becomes
// the one it was.
int UnderFreeName(std::string &name, std::function<int(std::string const &)> const &attempt);
// EEXIST where `to` is there already.
int MoveWithoutReplacing(std::string const &from, std::string const &to);
