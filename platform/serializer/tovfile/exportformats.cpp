#include "exportformats.h"

#include "hdf5sink.h"
#include "serializersinks.h"

#include <algorithm>

namespace {

constexpr struct
{
    char const *format;
    std::unique_ptr<ExportSink> (*make)(ExportTarget const &target, std::string &problem);
} Formats[] = {
    {"png", MakeImageSink}, {"tif", MakeImageSink}, {"raw", MakeImageSink},
    {"avi", MakeAviSink},   {"tvm", MakeMovieSink}, {"h5", MakeHdf5Sink},
};

} // namespace

bool IsExportFormat(std::string const &format)
{
    return std::any_of(std::begin(Formats), std::end(Formats),
                       [&](auto const &entry) { return format == entry.format; });
}

std::unique_ptr<ExportSink> MakeExportSink(ExportTarget const &target, std::string &problem)
{
    for (auto const &entry : Formats) {
        if (target.format != entry.format)
            continue;
        std::unique_ptr<ExportSink> sink = entry.make(target, problem);
        return problem.empty() ? std::move(sink) : nullptr;
    }
    return nullptr;
}
