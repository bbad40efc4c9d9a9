// Templates of file names, with formats for their commands, and printf formats by themselves.
//
// An input is a byte of TemplateFlags, a byte each for the width, the height and the id of an image, and a text.
#include "driver.h"

#include "imageparser.h"
#include "printformat.h"

#include "tovimage.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

namespace {

enum TemplateFlags : std::uint8_t { NoImage = 0x01, Validates = 0x02, IsFormat = 0x04, LargeValues = 0x08 };

constexpr std::size_t HeadSize = 4, Longest = 260, Expansion = 4096;

void Demand(bool condition, char const *what)
{
    if (!condition)
        FuzzFail(what);
}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
// What a format gives that fits its values does not depend on what lies behind them.
template<class Value>
void CheckFormat(char const *format, PrintFormat::Kind kind, Value value)
{
    char once[Expansion], again[Expansion];
    if (PrintFormat::Fits(format, kind, 1, Expansion)) {
        int const length = std::snprintf(once, sizeof once, format, value, Value{7}, Value{9});
        Demand(length == std::snprintf(again, sizeof again, format, value, Value{11}, Value{13}),
               "reads another value");
        Demand(length >= 0 && std::memcmp(once, again, std::min<std::size_t>(length + 1, sizeof once)) == 0,
               "shows another value");
    }
    if (PrintFormat::Fits(format, kind, 2, Expansion)) {
        int const length = std::snprintf(once, sizeof once, format, value, value, Value{9}, Value{10});
        Demand(length == std::snprintf(again, sizeof again, format, value, value, Value{11}, Value{12}),
               "reads a third value");
        Demand(length >= 0 && std::memcmp(once, again, std::min<std::size_t>(length + 1, sizeof once)) == 0,
               "shows a third value");
    }
}
#pragma GCC diagnostic pop

void CheckUtilities(std::string const &text)
{
    std::string name = text;
    Demand(ImageParserUtils::replaceChars(name, nullptr, "<>:\"/\\|?*").find_first_of("<>:\"/\\|?*") ==
               std::string::npos,
           "not all replaced");
    std::vector<std::string> commands;
    Demand(ImageParserUtils::buildCommandsList(text, commands) == static_cast<int>(commands.size()), "a wrong count");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const *data, std::size_t size)
{
    if (size <= HeadSize || size > Longest)
        return FuzzRefused;
    // Otherwise every formatted time asks for the zone's file.
    static int const zone = setenv("TZ", "UTC", 1);
    static_cast<void>(zone);
    std::uint8_t const flags = data[0];
    std::uint64_t const large = (flags & LargeValues) != 0 ? 0xFFFFFFFFFFFFFF00 : 0;
    std::string const text(reinterpret_cast<char const *>(data + HeadSize), size - HeadSize);
    if ((flags & IsFormat) != 0) {
        CheckFormat(text.c_str(), PrintFormat::Unsigned32, static_cast<std::uint32_t>(large | data[1]));
        CheckFormat(text.c_str(), PrintFormat::Integer64, large | data[3]);
        CheckUtilities(text);
        return PrintFormat::Fits(text.c_str(), PrintFormat::Unsigned32, 2, Expansion) ? 0 : FuzzRefused;
    }
    _TovImage image{};
    image.width = static_cast<std::uint32_t>(large | data[1]);
    image.height = static_cast<std::uint32_t>(large | data[2]);
    image.frameID = large | data[3];
    image.timestamp = ~image.frameID;
    ImageParser parser;
    bool const validates = (flags & Validates) != 0;
    std::string const name = parser.parse(text.c_str(), (flags & NoImage) != 0 ? nullptr : &image, validates);
    Demand(name.size() < text.size() + Expansion * (1 + text.size() / 3), "more text than all commands give");
    return name == text ? FuzzRefused : 0;
}
