// main of the tests that need a QApplication.
#include "testmain.h"

#include <QApplication>

#ifdef __SANITIZE_ADDRESS__
// Libraries stay loaded to the end: what only an unloaded plug-in pointed to would count as a leak, from nowhere.
extern "C" __attribute__((visibility("default"))) int dlclose(void *)
{
    return 0;
}
#endif

int main(int argc, char **argv)
{
    QApplication application(argc, argv);
    return RunTests(argc, argv);
}
