// Exported frames as an HDF5 file, with all that is known of them.
#pragma once

#include "exportsink.h"

std::unique_ptr<ExportSink> MakeHdf5Sink(ExportTarget const &target, std::string &problem);
