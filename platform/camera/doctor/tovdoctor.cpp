// tovdoctor: what of this computer is unfit for its cameras.
#include "doctorprogram.h"

int main(int argc, char **argv)
{
    return RunDoctor(argc, argv);
}
