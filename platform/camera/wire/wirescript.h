// Scripts for cameras on the network: what they do when, a command a line.
//
//   camera N                 the lines below are about the N-th camera; about the first at the beginning
//   wait SECONDS
//   wait client              until a host has control of the camera, or has had it since the wait began
//   wait no client
//   wait frames N            until the camera has sent N further frames
//   set FEATURE VALUE        VALUE goes to the end of the line; "" is the empty text
//   execute FEATURE
//   die                      the camera is gone, as if unplugged
//   return [ADDRESS] [reset] it is back: at another address, with the settings of its start
//   say TEXT
//   end [CODE]               ends the program
//   repeat                   from the first line, with the first camera
//
// A wait but that for SECONDS may end in "up to SECONDS": the script fails where it takes longer. What follows a "#" at
// the beginning of a word is a comment.
//
// Used by one thread at a time.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

// The text is for the user, and begins with the place: "FILE:LINE: what".
class WireScriptError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

// What a script is about. Cameras count from 0. An operation that fails says why.
class WireScriptHost
{
public:
    virtual ~WireScriptHost() = default;

    virtual bool HasClient(std::size_t camera) = 0;
    // How many hosts have had control so far: none that came and went between two steps is missed.
    virtual std::uint64_t GetClients(std::size_t camera) = 0;
    virtual std::uint64_t GetFrames(std::size_t camera) = 0; // sent, since the camera began
    virtual bool SetFeature(std::size_t camera, std::string const &name, std::string const &value,
                            std::string &why) = 0;
    virtual bool Execute(std::size_t camera, std::string const &name, std::string &why) = 0;
    virtual bool Die(std::size_t camera, std::string &why) = 0;
    virtual bool Return(std::size_t camera, std::string const &address, bool reset, std::string &why) = 0;
    virtual void Say(std::string const &text) = 0;
};

struct WireScriptLine
{
    enum Command {
        Camera,
        WaitTime,
        WaitClient,
        WaitNoClient,
        WaitFrames,
        Set,
        Execute,
        Die,
        Return,
        Say,
        End,
        Repeat
    };

    Command command;
    unsigned line;            // in the file, from 1
    std::uint64_t number = 0; // the camera from 0, frames, or the exit code
    std::string name, text;   // feature and value; address; what is said
    bool reset = false;       // of a return
    std::chrono::nanoseconds time{0};
    std::optional<std::chrono::nanoseconds> limit; // of a wait
};

class WireScript
{
public:
    static constexpr std::size_t LongestLine = 1000, MostLines = 10000;

    // `file` is the name for messages. Throws WireScriptError about the first line that is wrong.
    WireScript(std::string_view text, std::string file, std::size_t cameras);

    std::vector<WireScriptLine> const &GetLines() const
    {
        return m_lines;
    }
    std::string const &GetFile() const
    {
        return m_file;
    }

private:
    std::string const m_file;
    std::vector<WireScriptLine> m_lines;
};

// Runs a script, as far as it goes each time it is asked.
class WireScriptRun
{
public:
    using Clock = std::chrono::steady_clock;

    // Both outlive the run.
    WireScriptRun(WireScript const &script, WireScriptHost &host);

    // Whether there is more to do; ask again after a while. A "repeat" waits for the next time, so that a script
    // without waits does not keep its caller. Throws WireScriptError where an operation fails or a wait takes too long.
    bool Step(Clock::time_point now);
    // That of "end"; nothing where the script has ended otherwise.
    std::optional<int> GetExitCode() const
    {
        return m_exitCode;
    }

private:
    [[noreturn]] void Fail(WireScriptLine const &line, std::string const &what) const;
    bool IsOver(WireScriptLine const &line, Clock::duration waited) const;
    bool Wait(WireScriptLine const &line, Clock::time_point now);
    void Do(WireScriptLine const &line);

    WireScript const &m_script;
    WireScriptHost &m_host;
    std::size_t m_next = 0, m_camera = 0;
    // The wait at m_next, once it has begun.
    bool m_waits = false;
    Clock::time_point m_waitsSince;
    std::uint64_t m_countBefore = 0;
    std::optional<int> m_exitCode;
};
