#include "tovlog.h"

#include <log4cpp/Category.hh>
#include <log4cpp/Priority.hh>
#include <log4cpp/PropertyConfigurator.hh>

#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <cwchar>
#include <exception>
#include <memory>
#include <string>
#include <vector>

#include <syslog.h>
#include <unistd.h>

namespace {

using log4cpp::Category;
using log4cpp::Priority;

constexpr char ProgramCategory[] = "TOVSCP";
constexpr std::size_t FirstCapacity = 512;
// A format that fails for a reason other than lack of room (a wide character without an encoding) fails at any size.
constexpr std::size_t LargestCapacity = std::size_t{1} << 24;

// Categories live until the process ends; looking one up takes a lock and a copy of its name.
Category &Program()
{
    static Category &category = Category::getInstance(ProgramCategory);
    return category;
}

Category &CategoryOf(char const *name)
{
    return name == ProgramCategory || std::strcmp(name, ProgramCategory) == 0 ? Program() : Category::getInstance(name);
}

int FormatInto(char *buffer, std::size_t capacity, char const *format, va_list arguments)
{
    return std::vsnprintf(buffer, capacity, format, arguments);
}

int FormatInto(wchar_t *buffer, std::size_t capacity, wchar_t const *format, va_list arguments)
{
    return std::vswprintf(buffer, capacity, format, arguments);
}

template<typename Char>
Char *FormatText(Char const *format, va_list arguments)
{
    std::size_t capacity = FirstCapacity;
    for (;;) {
        std::unique_ptr<Char[]> buffer(new Char[capacity]);
        va_list pass;
        va_copy(pass, arguments);
        int const result = FormatInto(buffer.get(), capacity, format, pass);
        va_end(pass);
        if (result >= 0 && static_cast<std::size_t>(result) < capacity)
            return buffer.release();
        if (result < 0 && capacity >= LargestCapacity) {
            buffer[0] = Char{};
            return buffer.release();
        }
        capacity = result >= 0 ? static_cast<std::size_t>(result) + 1 : capacity * 2;
    }
}

// One line each, whatever a camera or a path has in its name.
std::unique_ptr<char[]> FormatLine(char const *format, va_list arguments)
{
    std::unique_ptr<char[]> text(FormatText(format, arguments));
    for (char *c = text.get(); *c != '\0'; ++c) {
        if ((*c > 0 && *c < ' ') || *c == 0x7f)
            *c = ' ';
    }
    return text;
}

using CodedFunction = void (*)(char const *, unsigned long, char *);

void LogCoded(Priority::Value level, CodedFunction function, unsigned long code, char const *format, va_list arguments)
{
    if (!Program().isPriorityEnabled(level))
        return;
    std::unique_ptr<char[]> const text = FormatLine(format, arguments);
    function(ProgramCategory, code, text.get());
}

std::string ExecutableFolder()
{
    char path[4096];
    ssize_t const length = readlink("/proc/self/exe", path, sizeof path);
    std::string folder(path, length > 0 ? static_cast<std::size_t>(length) : 0);
    std::size_t const slash = folder.rfind('/');
    folder.resize(slash == std::string::npos ? 0 : slash);
    return folder;
}

// A file with an error half way down leaves appenders behind, and levels at which texts would be formatted for nobody.
void DisableLogging()
{
    std::unique_ptr<std::vector<Category *>> const categories(Category::getCurrentCategories());
    for (Category *category : *categories) {
        category->removeAllAppenders();
        category->setPriority(Priority::FATAL);
    }
    Category::setRootPriority(Priority::FATAL);
}

} // namespace

void TovLog4Cpp_configure(char const *file, char const * /*category*/)
{
    std::string const path = ExecutableFolder() + "/" + file;
    syslog(LOG_WARNING, "TovLog4Cpp: trying to load %s\n", path.c_str());
    try {
        log4cpp::PropertyConfigurator::configure(path);
        syslog(LOG_WARNING, "TovLog4Cpp: PropertyConfigurator::configure succeeded!\n");
    } catch (std::exception const &) {
        // ConfigureFailure, or whatever the library lets through over a value that it cannot read.
        DisableLogging();
        syslog(LOG_WARNING, "TovLog4Cpp: PropertyConfigurator::configure failed, logging is disabled!");
    }
}

char *help_str(char const *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    char *const text = FormatText(format, arguments);
    va_end(arguments);
    return text;
}

wchar_t *help_str(wchar_t const *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    wchar_t *const text = FormatText(format, arguments);
    va_end(arguments);
    return text;
}

void TovLog4Cpp_Debug(char const *category, unsigned long code, char *message)
{
    CategoryOf(category).debug("%s, code=%lu", message, code);
}

void TovLog4Cpp_Info(char const *category, unsigned long code, char *message)
{
    CategoryOf(category).info("%s, code=%lu", message, code);
}

void TovLog4Cpp_Notice(char const *category, char *message)
{
    CategoryOf(category).notice("%s", message);
}

void TovLog4Cpp_Warning(char const *category, unsigned long code, char *message)
{
    CategoryOf(category).warn("%s, code=%lu", message, code);
}

void TovLog4Cpp_Error(char const *category, unsigned long code, char *message)
{
    CategoryOf(category).error("%s, code=%lu", message, code);
}

void TovLog4Cpp_Fatal(char const *category, unsigned long code, char *message)
{
    CategoryOf(category).fatal("%s, code=%lu", message, code);
}

namespace TovLog {

void Debug(unsigned long code, char const *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    LogCoded(Priority::DEBUG, TovLog4Cpp_Debug, code, format, arguments);
    va_end(arguments);
}

void Info(unsigned long code, char const *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    LogCoded(Priority::INFO, TovLog4Cpp_Info, code, format, arguments);
    va_end(arguments);
}

void Notice(char const *format, ...)
{
    if (!Program().isPriorityEnabled(Priority::NOTICE))
        return;
    va_list arguments;
    va_start(arguments, format);
    std::unique_ptr<char[]> const text = FormatLine(format, arguments);
    va_end(arguments);
    TovLog4Cpp_Notice(ProgramCategory, text.get());
}

void Warning(unsigned long code, char const *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    LogCoded(Priority::WARN, TovLog4Cpp_Warning, code, format, arguments);
    va_end(arguments);
}

void Error(unsigned long code, char const *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    LogCoded(Priority::ERROR, TovLog4Cpp_Error, code, format, arguments);
    va_end(arguments);
}

void Fatal(unsigned long code, char const *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    LogCoded(Priority::FATAL, TovLog4Cpp_Fatal, code, format, arguments);
    va_end(arguments);
}

} // namespace TovLog
