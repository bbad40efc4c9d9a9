#include "furtherformats.h"

#include <QCoreApplication>

#include <utility>

namespace {

struct
{
    ImageWriter::FileFormat format;
    char const *caption, *tip;
} const Formats[] = {
    {ImageWriter::FormatTvi, QT_TRANSLATE_NOOP("FurtherFormats", "TVI File"),
     QT_TRANSLATE_NOOP("FurtherFormats", "As the camera sent it, with pixel format, id and time stamp, for tovfile")},
    {ImageWriter::FormatBmp, QT_TRANSLATE_NOOP("FurtherFormats", "BMP File"),
     QT_TRANSLATE_NOOP("FurtherFormats",
                       "Grey or colour of 8 bits, not compressed; deeper samples lose their lower bits")},
    {ImageWriter::FormatJpg, QT_TRANSLATE_NOOP("FurtherFormats", "JPEG File"),
     QT_TRANSLATE_NOOP("FurtherFormats", "Grey or colour of 8 bits, compressed with loss")},
    {ImageWriter::FormatPng, QT_TRANSLATE_NOOP("FurtherFormats", "PNG File"),
     QT_TRANSLATE_NOOP("FurtherFormats", "Compressed without loss; samples of 10 and 12 bits are cut to 8 before")},
    {ImageWriter::FormatTif, QT_TRANSLATE_NOOP("FurtherFormats", "TIFF File"),
     QT_TRANSLATE_NOOP("FurtherFormats", "Grey or colour with all bits, not compressed")},
    {ImageWriter::FormatAvi, QT_TRANSLATE_NOOP("FurtherFormats", "AVI Movie"),
     QT_TRANSLATE_NOOP("FurtherFormats", "One file for all frames; samples of 10 and 12 bits are cut to 8")},
};

std::pair<char const *, char const *> const Compressors[] = {
    {"Uncompressed", QT_TRANSLATE_NOOP("FurtherFormats", "Without loss, 8 bits")},
    {"MJPEG", QT_TRANSLATE_NOOP("FurtherFormats", "With loss, 8 bits, colour at half the resolution")},
    {"FFV1",
     QT_TRANSLATE_NOOP("FurtherFormats", "Compressed without loss; 16 bits where the picture has more than 12")},
    {"H.264", QT_TRANSLATE_NOOP("FurtherFormats", "With loss, 8 bits, colour at half the resolution where the "
                                                  "picture's sides are even")},
};

QString Translated(char const *text)
{
    return QCoreApplication::translate("FurtherFormats", text);
}

} // namespace

std::vector<OfferedFormat> FurtherFormats()
{
    std::vector<OfferedFormat> formats;
    for (auto const &[format, caption, tip] : Formats)
        formats.push_back({format, Translated(caption), Translated(tip)});
    return formats;
}

QString RawFormatTip()
{
    return Translated(QT_TRANSLATE_NOOP("FurtherFormats", "The lines of the picture alone, as the camera sent them"));
}

QString CompressorTip(QString const &name)
{
    for (auto const &[compressor, tip] : Compressors) {
        if (name == QLatin1String(compressor))
            return Translated(tip);
    }
    return {};
}
