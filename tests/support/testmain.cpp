// main of the tests that need no QApplication.
#include "testmain.h"

int main(int argc, char **argv)
{
    return RunTests(argc, argv);
}
