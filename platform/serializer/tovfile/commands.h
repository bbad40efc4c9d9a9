// What tovfile does with a recording. True for success; what is wrong has been told.
#pragma once

#include "framesource.h"
#include "options.h"

// The line above everything else that is told of a tvi or tvm file.
void Describe(std::string const &name, FrameFileReader const &reader);

// The same of a recording with a table, which is at its first row.
void DescribeSeries(std::string const &name, SeriesReader &reader, TableSummary const &summary);

bool List(Recording &recording);
bool Check(Recording &recording);
bool CheckSeries(SeriesReader &reader, std::string const &name);
bool Export(Recording &recording, Options const &options);
// Of other programs' files, all into one series.
bool Import(Options const &options);
