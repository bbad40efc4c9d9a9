// tovfakecam: simulated cameras as GigE Vision cameras on the network.
#include "fakecamprogram.h"

int main(int argc, char **argv)
{
    return RunFakeCam(argc, argv);
}
