// File names from templates: plain text with commands "${command}" or "${command:format}".
//
//   br, tab        a line feed, a tab
//   time, date     the clock of this computer, format of strftime, and %f, %ff, %fff for tenths to milliseconds
//   millis         milliseconds since the epoch, printf format for one 64-bit value
//   image.id       frame identifier, printf format for one 64-bit value
//   image.time     timestamp, the same
//   image.dims     width and height, printf format for two 32-bit values
//   image.type     code of the pixel type, printf format for one 32-bit value
//
// A format that does not fit its values makes its command expand to nothing. One parser serves one expansion at a time,
// on any thread.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

struct _TovImage;

class ImageParser
{
public:
    static char const *const cmdBeg;
    static char const *const cmdEnd;
    static char const *const cmdSep;
    static char const *const chrRep;     // in place of characters that a file name cannot have
    static char const *const FORMATTING; // what may follow a % in a format of time or date
    static char const *const COMMANDS[]; // null-terminated

    // The argument is ignored: the table of variables starts empty.
    explicit ImageParser(std::map<std::string, std::string> const *variables = nullptr);
    virtual ~ImageParser() = default;

    // Null and the empty template give the empty string. `image` may be null. With `validate` formats of time and date
    // are repaired first. What a command gives is expanded as well. A command directly after one that expanded to
    // nothing is left unexpanded.
    virtual std::string parse(char const *format, _TovImage *image, bool validate);
    // Repairs `format` in place; true when there was nothing to repair. Throws std::out_of_range, with the repairs done
    // so far, for a % at the end of the text that a format of time or date would reach. `replaceForbidden` is for
    // names, not for templates: it takes the colons too.
    virtual bool validateFormatting(std::string &format, bool, bool replaceForbidden);
    // What one command, without its braces, gives; `defaultValue` for an unknown one.
    virtual std::string get(char const *command, char const *defaultValue);
    // Looks into the table of variables, which go before the commands.
    virtual bool find(char const *name, std::string &value);

    // The clock of this expansion; null stands for "%Y%m%d%H%M%S".
    std::string formatTime(char const *format);

private:
    std::map<std::string, std::string> m_variables;
    _TovImage *m_image = nullptr; // not owned
    std::int64_t m_clockMs = 0;   // milliseconds since the epoch at the start of parse
    std::int64_t m_clockS = 0;    // the same in seconds
    std::int32_t m_millisecond = 0;
};

class ImageParserUtils
{
public:
    // Replaces each character of `chars` by the whole replacement (null: ImageParser::chrRep), in place, and returns
    // the result. A replacement that holds a character of `chars` itself leaves the text as it is.
    static std::string replaceChars(std::string &text, char const *replacement, char const *chars);
    // Appends the commands of `text`, without their braces, and returns their number. It sees the first command alone,
    // and none at the very beginning of the text.
    static int buildCommandsList(std::string const &text, std::vector<std::string> &list);
};
