// The user's guide, a file beside the program.
#pragma once

#include <QString>

namespace Guide {

// The guide of the installation, or of the source tree, that an executable in this folder belongs to; empty without
// one.
QString Find(QString const &programFolder);
// Asks the desktop to open it, and says in a notice where it is, because the desktop does not report whether a viewer
// has opened. GUI thread.
void Open();

} // namespace Guide
