// Names of files to be made: their folders, and numbers for names that are taken. Operations return 0 or an errno
// value.
#pragma once

#include <functional>
#include <string>

// "." for a name without one.
std::string FolderOf(std::string const &name);
// Including its parents.
int MakeFolders(std::string const &folder);
// The error of an operation on a name, with EILSEQ for EINVAL: of all arguments only the name can be invalid.
int OfName(int error);

// Calls `attempt` with `name`, then with numbers of it ("name_1.ext"), until the answer is not EEXIST; `name` becomes
// the one it was.
int UnderFreeName(std::string &name, std::function<int(std::string const &)> const &attempt);
// A new file under `name` or a number of it, which `name` becomes; missing folders are made. `flags` are those of open,
// O_CREAT and O_EXCL aside. EINVAL may be for a name or for a flag.
int CreateUnderFreeName(std::string &name, int flags, int &file);
// EEXIST where `to` is there already.
int MoveWithoutReplacing(std::string const &from, std::string const &to);
