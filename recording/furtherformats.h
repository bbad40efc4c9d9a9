// The formats that the capture panel offers on request, behind the one that it always has, and what each of them makes
// of a picture, in words for the operator. GUI thread only.
#pragma once

#include "imagewriter.h"

#include <QString>

#include <vector>

struct OfferedFormat
{
    ImageWriter::FileFormat format;
    QString caption, tip;
};

// In the order of the list; without the raw one.
std::vector<OfferedFormat> FurtherFormats();
QString RawFormatTip();
// Of a compressor by its name in "movie.compressors"; empty for one that is not known.
QString CompressorTip(QString const &name);
