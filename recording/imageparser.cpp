#include "imageparser.h"

#include "printformat.h"

#include "tovimage.h"

#include <strings.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <stdexcept>
#include <string_view>

namespace {

enum Command { CmdBr, CmdTab, CmdTime, CmdDate, CmdMillis, CmdImageId, CmdImageTime, CmdImageDims, CmdImageType };

constexpr std::size_t ExpansionSize = 4096; // terminator included
constexpr std::size_t TimeSize = 256;
constexpr char Forbidden[] = "<>:\"/\\|?*";

// Runs of separators count as one.
std::vector<std::string> Split(std::string const &text, char separator)
{
    std::vector<std::string> tokens;
    std::size_t end = 0;
    for (std::size_t begin = text.find_first_not_of(separator); begin != std::string::npos;
         begin = text.find_first_not_of(separator, end)) {
        end = std::min(text.find(separator, begin), text.size());
        tokens.push_back(text.substr(begin, end - begin));
    }
    return tokens;
}

int CommandIndex(std::string const &name)
{
    for (int i = 0; ImageParser::COMMANDS[i]; ++i) {
        if (strcasecmp(ImageParser::COMMANDS[i], name.c_str()) == 0)
            return i;
    }
    return -1;
}

// Nothing for a format that does not fit, and for more text than an expansion holds.
template<typename... Values>
std::string Print(std::string const &format, PrintFormat::Kind kind, Values... values)
{
    if (!PrintFormat::Fits(format.c_str(), kind, sizeof...(values), ExpansionSize))
        return {};
    char buffer[ExpansionSize];
// The format was checked against the values.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
    int const length = std::snprintf(buffer, sizeof buffer, format.c_str(), values...);
#pragma GCC diagnostic pop
    // A %c may have written a zero: the text ends there.
    return length >= 0 && static_cast<std::size_t>(length) < sizeof buffer ? std::string(buffer) : std::string();
}

std::string OrElse(std::string const &format, char const *defaultFormat)
{
    return format.empty() ? std::string(defaultFormat) : format;
}

} // namespace

char const *const ImageParser::cmdBeg = "${";
char const *const ImageParser::cmdEnd = "}";
char const *const ImageParser::cmdSep = ":";
char const *const ImageParser::chrRep = " ";
char const *const ImageParser::FORMATTING = "YybBmUWjdeaAwuHIMSf";
char const *const ImageParser::COMMANDS[] = {"br",       "tab",        "time",       "date",       "millis",
                                             "image.id", "image.time", "image.dims", "image.type", nullptr};

ImageParser::ImageParser(std::map<std::string, std::string> const * /*variables*/)
{
}

std::string ImageParser::parse(char const *format, _TovImage *image, bool validate)
{
    if (!format || !*format)
        return {};
    std::string text(format);
    // One reading of the clock, so that all commands of a name give the same instant.
    using namespace std::chrono;
    std::int64_t const now = duration_cast<nanoseconds>(system_clock::now().time_since_epoch()).count();
    m_clockMs = now / 1'000'000;
    m_clockS = now / 1'000'000'000;
    m_millisecond = static_cast<std::int32_t>(m_clockMs - 1000 * m_clockS);
    if (validate) {
        try {
            validateFormatting(text, true, false);
        } catch (std::out_of_range const &) {
            // The lone % at the end stays; the repairs before it count.
        }
    }
    m_image = image;

    // It ends: each pass uses up characters of the template, and no command gives any back.
    std::size_t previous = std::string::npos;
    for (;;) {
        std::size_t const begin = text.find(cmdBeg);
        if (begin == std::string::npos || begin == previous)
            break;
        std::size_t const inside = begin + std::strlen(cmdBeg);
        std::size_t const end = text.find(cmdEnd, inside);
        if (end == std::string::npos)
            break;
        std::string const command = text.substr(inside, end - inside);
        text.replace(begin, end + std::strlen(cmdEnd) - begin, get(command.c_str(), ""));
        previous = begin;
    }
    return text;
}

bool ImageParser::validateFormatting(std::string &format, bool /*unused*/, bool replaceForbidden)
{
    bool clean = true;
    for (char const *prefix : {"${time:", "${date:"}) {
        for (std::size_t found = format.find(prefix); found != std::string::npos;
             found = format.find(prefix, found + 1)) {
            // To the end of the text, not only to the closing brace: a % in what follows may become # too.
            for (std::size_t i = found + std::strlen(prefix); i < format.size(); ++i) {
                if (format[i] == '%' && std::string_view(FORMATTING).find(format.at(i + 1)) == std::string_view::npos) {
                    format[i] = '#';
                    clean = false;
                }
            }
        }
    }
    if (replaceForbidden) {
        std::string const before = format;
        ImageParserUtils::replaceChars(format, chrRep, Forbidden);
        clean = clean && format == before;
    }
    return clean;
}

std::string ImageParser::get(char const *command, char const *defaultValue)
{
    std::string const fallback = defaultValue ? defaultValue : "";
    if (!command)
        return fallback;
    std::vector<std::string> tokens = Split(command, *cmdSep);
    if (tokens.empty())
        tokens.emplace_back(command);
    if (std::string value; !m_variables.empty() && find(tokens[0].c_str(), value))
        return value;

    int const index = CommandIndex(tokens[0]);
    if (index < 0)
        return fallback;
    // Everything after a second colon is dropped.
    std::string const format = tokens.size() > 1 ? tokens[1] : std::string();
    switch (index) {
    case CmdBr:
        return "\n";
    case CmdTab:
        return "\t";
    case CmdTime:
        return formatTime(OrElse(format, "%H%M%S").c_str());
    case CmdDate:
        return formatTime(OrElse(format, "%Y%m%d").c_str());
    case CmdMillis:
        return Print(OrElse(format, "%ld"), PrintFormat::Integer64, m_clockMs);
    default:
        break;
    }
    if (!m_image)
        return {};
    switch (index) {
    case CmdImageId:
        return Print(OrElse(format, "%08lu"), PrintFormat::Integer64, m_image->frameID);
    case CmdImageTime:
        return Print(OrElse(format, "%lu"), PrintFormat::Integer64, m_image->timestamp);
    case CmdImageDims:
        return Print(OrElse(format, "%ux%u"), PrintFormat::Unsigned32, m_image->width, m_image->height);
    default:
        return Print(OrElse(format, "0x%X"), PrintFormat::Unsigned32, m_image->pixelType);
    }
}

bool ImageParser::find(char const *name, std::string &value)
{
    auto const found = m_variables.find(name ? name : "");
    if (found == m_variables.end())
        return false;
    value = found->second;
    return true;
}

std::string ImageParser::formatTime(char const *format)
{
    std::string text = format ? format : "%Y%m%d%H%M%S";
    if (std::size_t const position = text.find("%f"); position != std::string::npos) {
        std::size_t const letters = std::min(text.find_first_not_of('f', position + 1), text.size()) - position - 1;
        std::size_t const count = std::min<std::size_t>(letters, 3);
        int value = m_millisecond;
        for (std::size_t digits = count; digits < 3; ++digits)
            value /= 10;
        char fraction[16];
        std::snprintf(fraction, sizeof fraction, "%0*d", static_cast<int>(count), value);
        // As many characters after the token are removed as there are before it: "%H%f%S" loses its "%S".
        text.replace(position, count + position + 1, fraction);
    }
    std::time_t const seconds = m_clockS;
    std::tm local{};
    if (!localtime_r(&seconds, &local))
        return {};
    char buffer[TimeSize];
    return std::string(buffer, std::strftime(buffer, sizeof buffer, text.c_str(), &local));
}

std::string ImageParserUtils::replaceChars(std::string &text, char const *replacement, char const *chars)
{
    std::string const with = replacement ? replacement : ImageParser::chrRep;
    std::string const set = chars ? chars : "";
    // A replacement that holds one of them would be replaced again and again.
    if (with.find_first_of(set) != std::string::npos)
        return text;
    for (std::size_t at = text.find_first_of(set); at != std::string::npos;
         at = text.find_first_of(set, at + with.size()))
        text.replace(at, 1, with);
    return text;
}

int ImageParserUtils::buildCommandsList(std::string const &text, std::vector<std::string> &list)
{
    int count = 0;
    std::size_t previous = 0;
    for (;;) {
        std::size_t const begin = text.find(ImageParser::cmdBeg);
        if (begin == std::string::npos || begin == previous)
            break;
        std::size_t const inside = begin + std::strlen(ImageParser::cmdBeg);
        std::size_t const end = text.find(ImageParser::cmdEnd, inside);
        if (end == std::string::npos)
            break;
        list.push_back(text.substr(inside, end - inside));
        ++count;
        previous = begin;
    }
    return count;
}
