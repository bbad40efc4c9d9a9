// tovscope-capture: opens one capture for the program that started it, and ends. It alone has the right to capture; it
// is not meant to be started by hand.
#include "captureservice.h"

#include "capturerequest.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

int main(int argc, char **argv)
{
    clearenv();
    if (argc == 2 && std::strcmp(argv[1], "--version") == 0)
        return std::puts("tovscope-capture " TOV_VERSION) < 0;
    if (argc == 2 && std::strcmp(argv[1], "--help") == 0) {
        return std::puts("Opens the capture of one camera's packets for tovscope, which starts this program by "
                         "itself.\nIt needs the right to capture: setcap cap_net_raw=ep tovscope-capture") < 0;
    }
    return argc == 1 ? ServeCapture() : CaptureUsage;
}
