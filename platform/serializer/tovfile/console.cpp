#include "console.h"

#include <algorithm>
#include <csignal>
#include <cstdarg>
#include <cstdio>

#include <unistd.h>

namespace {

volatile std::sig_atomic_t s_interrupted = 0;
bool s_lineInUse = false;

void Interrupt(int)
{
    s_interrupted = 1;
}

void ClearLine()
{
    if (!s_lineInUse)
        return;
    std::fputs("\r\033[K", stderr);
    std::fflush(stderr);
    s_lineInUse = false;
}

void Say(FILE *stream, char const *format, std::va_list arguments)
{
    ClearLine();
    std::vfprintf(stream, format, arguments);
    std::fputc('\n', stream);
}

} // namespace

void Tell(char const *format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    Say(stdout, format, arguments);
    va_end(arguments);
}

void Complain(char const *format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    Say(stderr, format, arguments);
    va_end(arguments);
}

std::string Shown(std::string_view name)
{
    std::string shown(name);
    for (char &c : shown) {
        if (static_cast<unsigned char>(c) < ' ' || c == 0x7F)
            c = '?';
    }
    return shown;
}

void WatchInterrupts()
{
    struct sigaction action = {};
    action.sa_handler = Interrupt;
    action.sa_flags = static_cast<int>(SA_RESETHAND) | SA_RESTART;
    for (int const signal : {SIGINT, SIGTERM})
        sigaction(signal, &action, nullptr);
}

bool IsInterrupted()
{
    return s_interrupted != 0;
}

Progress::Progress(std::string name, std::uint64_t frames)
    : m_name(std::move(name)),
      m_frames(frames),
      m_begin(Clock::now()),
      m_next(isatty(STDERR_FILENO) ? m_begin : Clock::time_point::max())
{
}

Progress::~Progress()
{
    ClearLine();
}

void Progress::Done(std::uint64_t frames)
{
    if (m_next == Clock::time_point::max())
        return;
    Clock::time_point const now = Clock::now();
    if (now < m_next)
        return;
    m_next = now + std::chrono::seconds(1);
    double const seconds = std::chrono::duration<double>(now - m_begin).count();
    double const rate = seconds > 0 ? double(frames) / seconds : 0;
    double const share = m_frames > 0 ? 100.0 * double(std::min(frames, m_frames)) / double(m_frames) : 100;
    std::fprintf(stderr, "\r\033[K%s: %.0f %%, %llu of %llu frames", Shown(m_name).c_str(), share,
                 static_cast<unsigned long long>(frames), static_cast<unsigned long long>(m_frames));
    if (seconds >= 1 && rate > 0) {
        double const left = double(m_frames - std::min(frames, m_frames)) / rate;
        std::fprintf(stderr, ", %.4g a second, %.0f s left", rate, left);
    }
    std::fflush(stderr);
    s_lineInUse = true;
}
