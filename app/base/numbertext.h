// Numbers as the operator reads them.
#pragma once

#include <QString>

// With a comma between groups of three digits, whatever the system's locale: the sentences around it are English. Any
// thread.
QString GroupedNumber(qlonglong number);
