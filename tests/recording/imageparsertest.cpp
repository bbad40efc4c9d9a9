#include "imageparser.h"

#include "tovimage.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <sstream>

namespace {

_TovImage TestImage()
{
    _TovImage image{};
    image.frameID = 42;
    image.timestamp = 18'000'000'000'000'000'000u;
    image.width = 640;
    image.height = 4294967295u;
    image.pixelType = TV_PIXEL_MONO12;
    return image;
}

// `pattern` is one of strftime for the instant, with @1, @2 and @3 for tenths, hundredths and milliseconds.
std::string AtInstant(std::string pattern, long long milliseconds)
{
    for (int digits = 1; digits <= 3; ++digits) {
        char fraction[8];
        std::snprintf(fraction, sizeof fraction, "%03d", static_cast<int>(milliseconds % 1000));
        fraction[digits] = 0;
        std::string const token = "@" + std::to_string(digits);
        for (std::size_t at = pattern.find(token); at != std::string::npos; at = pattern.find(token))
            pattern.replace(at, 2, fraction);
    }
    std::time_t const seconds = milliseconds / 1000;
    std::tm const *const time = std::localtime(&seconds);
    char text[6000];
    return std::string(text, std::strftime(text, sizeof text, pattern.c_str(), time));
}

// All in one run of the clock: the milliseconds stand before the template.
TEST(ImageParser, ExpandsTemplates)
{
    _TovImage image = TestImage();
    std::pair<char const *, char const *> const rows[] = {
        {"image_${image.id}", "image_00000042"},
        {"${IMAGE.ID}${Br}x${tab}", "00000042\nx\t"},
        {"${image.time},${image.dims},${image.type}", "18000000000000000000,640x4294967295,0x1100306"},
        {"${date}_${time}", "%Y%m%d_%H%M%S"},
        {"${date:%Y-%b-%d}_${time:%H%M%S_%fff}", "%Y-%b-%d_%H%M%S_@3"},
        {"${time:%f}${time:%ff}${time:%fff}", "@1@2@3"},
        {"${time:%ffff}", "@3f"},                   // the fourth letter stays
        {"${time:%H%M%fff_x}", "%H%M@3"},           // as many behind it go as stand before it
        {"${time:%H%fff_xyz}", "%H@3yz"},           // no more
        {"${time:%f%S}${time:%S%f%f}", "@1%S%S@1"}, // a second one is swallowed here
        {"${time:%ffxxxx%f}", "@2xxxx%%f"},         // and left to strftime there
        {"${time:}${time::}", "%H%M%S%H%M%S"},      // no format
        {"${time:%H:%M}${::time:%S}", "%H%S"},      // no colons in a format
        {"${time:%Q}${date:%1d}", "#Q#1d"},         // repaired
        {"${TIME:%Q}", "%%Q"},                      // but not in capitals
        {"${time:}%%%Y%q", "%H%M%S##%%Y#q"},        // to the end of the text
        {"${date:%Y}_100%", "%Y_100%%"},            // a lone % there
        {"${image.id:%lu}${time:%H}${image.id:%04lu}", "42%H#04lu"},
        {"${}${unknown}", "${unknown}"}, // behind a command that gave nothing
        {"a${}b${unknown}c", "abc"},
        {"a${image.id", "a${image.id"},
        {"${image.${image.id}", ""}, // one command up to the first brace
        {"$${unknown}{tab}", "\t"},  // what is put together is expanded
        {"a/b:c*", "a/b:c*"},
        {"}{$", "}{$"},
        // Formats that fit
        {"${image.id:[%-6lu]}${image.id:[%+.3lld]}", "[42    ][+042]"},
        {"${image.id:%#lx}${image.id:%jo}${image.id:%zX}", "0x2a522A"},
        {"${image.dims:%u}${image.dims:wide}${image.dims:%2$u-%1$u}", "640wide4294967295-640"},
        {"${image.dims:%hhu %5.4d}", "128 -0001"},
        {"${image.type:%c}|", "\x06|"},
        {"${image.id:100%%}", "100%%"},
    };
    for (auto const &[templated, expected] : rows) {
        SCOPED_TRACE(templated);
        std::string const text = ImageParser().parse((std::string("${millis}|") + templated).c_str(), &image, true);
        std::size_t const bar = text.find('|');
        ASSERT_NE(bar, std::string::npos);
        EXPECT_EQ(text.substr(bar + 1), AtInstant(expected, std::atoll(text.c_str())));
    }
}

TEST(ImageParser, LeavesOutWhatHasNoFittingFormat)
{
    _TovImage image = TestImage();
    std::istringstream formats("id:%s id:%d id:%lu%lu id:%ln id:%*lu id:%lf id:%Lf id:%#ld id:%l id:% id:%hlu id:%lc "
                               "dims:%lu dims:%u%u%u dims:%2$u dims:%1$u%u dims:%3$u%2$u%1$u type:%p id:%4096lu "
                               "id:%99999999999999999999lu id:%.4096lu dims:%4000u%4000u");
    for (std::string text; formats >> text;)
        EXPECT_EQ(ImageParser().parse(("<${image." + text + "}>").c_str(), &image, true), "<>") << text;
}

TEST(ImageParser, HoldsExpansionsUpToItsBuffer)
{
    _TovImage image = TestImage();
    EXPECT_EQ(ImageParser().parse("${image.id:%4095lu}", &image, true).size(), 4095u);
    EXPECT_EQ(ImageParser().parse("${image.id:%4094lux}", &image, true).size(), 4095u);
    EXPECT_EQ(ImageParser().parse("${image.id:%4094luxy}", &image, true), "");
    EXPECT_EQ(ImageParser().parse("${TIME:%300d}", &image, true), "") << "longer than a time may be";
}

TEST(ImageParser, DoesWithoutImageAndTemplate)
{
    ImageParser parser;
    EXPECT_EQ(parser.parse(nullptr, nullptr, true), "");
    EXPECT_EQ(parser.parse("", nullptr, true), "");
    EXPECT_EQ(parser.parse("x${image.id}y${image.dims}z", nullptr, true), "xyz");
    EXPECT_EQ(parser.parse("${time:%Q}", nullptr, false), "%Q") << "not validated";
    EXPECT_EQ(parser.parse("${millis:%015ld}", nullptr, true).size(), 15u);
}

TEST(ImageParser, TellsWhatItRepaired)
{
    struct
    {
        std::string text;
        bool replaceForbidden, clean;
        std::string repaired;
    } const rows[] = {
        {"%q${time:%H}", false, true, "%q${time:%H}"},
        {"${date:%%}", false, false, "${date:##}"}, // the brace is no letter either
        {"${Time:%q}", false, true, "${Time:%q}"},
        {"plain", true, true, "plain"},
        {"a<b>c:d\"e/f\\g|h?i*j", true, false, "a b c d e f g h i j"},
    };
    for (auto const &row : rows) {
        std::string text = row.text;
        bool const clean = ImageParser().validateFormatting(text, true, row.replaceForbidden);
        EXPECT_EQ(clean, row.clean) << row.text;
        EXPECT_EQ(text, row.repaired);
    }
    std::string text = "${time:%q%";
    EXPECT_THROW(ImageParser().validateFormatting(text, true, false), std::out_of_range);
}

} // namespace
