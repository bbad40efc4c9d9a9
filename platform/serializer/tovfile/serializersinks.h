// Exported frames as the files of the serializer. `problem` is filled for what no frame could be written to.
#pragma once

#include "exportsink.h"

std::unique_ptr<ExportSink> MakeImageSink(ExportTarget const &target, std::string &problem);
std::unique_ptr<ExportSink> MakeMovieSink(ExportTarget const &target, std::string &problem);
std::unique_ptr<ExportSink> MakeAviSink(ExportTarget const &target, std::string &problem);
