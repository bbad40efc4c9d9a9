// The log facade over log4cpp, and the helper that call sites use. Any thread.
#pragma once

// Configures the log library from `file` beside the executable; the outcome goes to the system log. A missing or broken
// file disables logging. `category` is not used. Called once, before any other thread and any Qt object exists.
void TovLog4Cpp_configure(char const *file, char const *category);

// A new char[] with the formatted text; the caller frees it with delete[].
char *help_str(char const *format, ...) __attribute__((format(printf, 1, 2)));
wchar_t *help_str(wchar_t const *format, ...);

void TovLog4Cpp_Debug(char const *category, unsigned long code, char *message);
void TovLog4Cpp_Info(char const *category, unsigned long code, char *message);
void TovLog4Cpp_Notice(char const *category, char *message);
void TovLog4Cpp_Warning(char const *category, unsigned long code, char *message);
void TovLog4Cpp_Error(char const *category, unsigned long code, char *message);
void TovLog4Cpp_Fatal(char const *category, unsigned long code, char *message);

// What call sites use: formats, hands the text to the facade under the program's category, and frees it. A text whose
// level is off is not even formatted.
namespace TovLog {
void Debug(unsigned long code, char const *format, ...) __attribute__((format(printf, 2, 3)));
void Info(unsigned long code, char const *format, ...) __attribute__((format(printf, 2, 3)));
void Notice(char const *format, ...) __attribute__((format(printf, 1, 2)));
void Warning(unsigned long code, char const *format, ...) __attribute__((format(printf, 2, 3)));
void Error(unsigned long code, char const *format, ...) __attribute__((format(printf, 2, 3)));
void Fatal(unsigned long code, char const *format, ...) __attribute__((format(printf, 2, 3)));
} // namespace TovLog
