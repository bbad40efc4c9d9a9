// The formats of an export. A further one joins the table in exportformats.cpp.
#pragma once

#include "exportsink.h"

bool IsExportFormat(std::string const &format);
// Null, with `problem`, for what no frame could be written to.
std::unique_ptr<ExportSink> MakeExportSink(ExportTarget const &target, std::string &problem);
