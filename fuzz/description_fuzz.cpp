// Where a camera says that its description lies, and the archive that lies there: an input is taken as either.
#include "driver.h"

#include "genicam/xmlcheck.h"
#include "gige/description.h"
#include "gige/ziparchive.h"

namespace {

constexpr std::size_t LongestInput = 2048, UnpackLimit = 4096;

void Demand(bool condition, char const *what)
{
    if (!condition)
        FuzzFail(what);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const *data, std::size_t size)
{
    if (size > LongestInput)
        return FuzzRefused;
    std::optional<DescriptionPlace> const place = ParseDescriptionUrl({reinterpret_cast<char const *>(data), size});
    if (place) {
        Demand(place->size > 0 && place->size <= GenicamXmlLimit, "a size that nobody wants to read");
        Demand(place->address + std::uint64_t{place->size} <= std::uint64_t{1} << 32, "behind the addresses");
    }
    std::optional<std::string> const file = UnpackFirstFile({data, size}, UnpackLimit);
    Demand(!file || file->size() <= UnpackLimit, "unpacked to more than was allowed");
    return place || file ? 0 : FuzzRefused;
}
