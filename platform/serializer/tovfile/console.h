// What tovfile says: results on the standard output, complaints and progress on the standard error.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>

// A line each. What is on the line of the progress makes way.
void Tell(char const *format, ...) __attribute__((format(printf, 1, 2)));
void Complain(char const *format, ...) __attribute__((format(printf, 1, 2)));

// A name out of a file, without characters that a terminal would obey.
std::string Shown(std::string_view name);

// From the first Ctrl-C (SIGINT) or SIGTERM on; a second one ends the process at once.
void WatchInterrupts();
bool IsInterrupted();

// How far a long work is, on a terminal alone: at its first frame, and then once a second.
class Progress
{
public:
    Progress(std::string name, std::uint64_t frames);
    ~Progress();
    Progress(Progress const &) = delete;
    Progress &operator=(Progress const &) = delete;

    void Done(std::uint64_t frames);

private:
    using Clock = std::chrono::steady_clock;

    std::string const m_name;
    std::uint64_t const m_frames;
    Clock::time_point const m_begin;
    Clock::time_point m_next;
};
