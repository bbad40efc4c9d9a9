// What the soak of the program is told on its command line.
#pragma once

#include <QString>

class QCoreApplication;

struct SoakOptions
{
    double minutes = 120, warmup = 10, share = 60, capacity = 0, loss = 0.2;
    int deaths = 20, width = 1024, height = 768;
    QString folder;
};

// Ends the program where they are wrong.
SoakOptions ParseSoakOptions(QCoreApplication const &application);
