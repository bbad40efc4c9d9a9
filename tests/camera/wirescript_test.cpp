// Scripts for cameras on the network: what is refused, and what happens when.
#include "wire/wirescript.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using namespace std::chrono_literals;

// Two cameras that note what is done with them.
struct FakeHost final : WireScriptHost
{
    bool HasClient(std::size_t camera) override
    {
        return camera == 1 && frames % 1000 != 0;
    }
    std::uint64_t GetClients(std::size_t camera) override
    {
        return camera == 1 ? frames / 1000 : 0;
    }
    std::uint64_t GetFrames(std::size_t camera) override
    {
        return camera == 1 ? frames : 0;
    }
    bool SetFeature(std::size_t camera, std::string const &name, std::string const &value, std::string &why) override
    {
        why = "no such feature";
        return Note(camera, "set " + name + "=" + value) && name != "Bad";
    }
    bool Execute(std::size_t camera, std::string const &name, std::string &) override
    {
        return Note(camera, "execute " + name);
    }
    bool Die(std::size_t camera, std::string &) override
    {
        return Note(camera, "die");
    }
    bool Return(std::size_t camera, std::string const &address, bool reset, std::string &) override
    {
        return Note(camera, "return [" + address + "]" + (reset ? " reset" : ""));
    }
    void Say(std::string const &text) override
    {
        done += "say " + text + "; ";
    }
    bool Note(std::size_t camera, std::string const &what)
    {
        done += std::to_string(camera + 1) + ' ' + what + "; ";
        return true;
    }

    // Of the second camera, which has a client unless they are whole thousands, and has had as many as those.
    std::uint64_t frames = 0;
    std::string done;
};

// What is wrong with what is done.
template<typename Function>
std::string ErrorOf(Function const &function)
{
    try {
        function();
    } catch (WireScriptError const &error) {
        return error.what();
    }
    return {};
}

TEST(WireScript, RefusesWhatIsWrongAndSaysWhere)
{
    std::string manyLines;
    for (std::size_t i = 0; i < WireScript::MostLines; ++i)
        manyLines += "die\n";
    std::pair<std::string, std::string> const rows[] = {
        {"\n  # nothing\r\n\t\ncamera 2\nwait 0.25 # s", ""},
        {manyLines, ""},
        {manyLines + "\ndie", "f:10001: there are more than 10000 lines"},
        {"# " + std::string(WireScript::LongestLine, 'x'), "f:1: the line is longer than 1000 bytes"},
        {"die\nsay a\x1B[2J", "f:2: the line has a control character"},
        {"dance", "f:1: there is no command \"dance\""},
        {"wait", "f:1: what to wait for is missing"},
        {"wait no", "f:1: \"wait no\" is followed by \"client\""},
        {"wait client up", "f:1: \"up\" is followed by \"to\""},
        {"set Width", "f:1: the value is missing"},
        {"end\n\nrepeat", "f:3: the line is never reached"},
    };
    for (auto const &[text, error] : rows)
        EXPECT_EQ(ErrorOf([script = text] { WireScript(script, "f", 2); }), error) << text.substr(0, 60);
    struct
    {
        std::string command;
        std::vector<std::string> words;
        std::string error;
    } const words[] = {
        {"die ", {"now"}, "too much"},
        {"camera ", {"0", "3", "1x"}, "no number from 1 to 2"},
        {"wait ", {"-1", "1e3", "nan", "1000001"}, "no time in seconds"},
        {"wait frames ", {"0", "18446744073709551617"}, "no number from 1 to 1000000000000"},
        {"execute ", {"Wire-Die", "3"}, "no name of a feature"},
        {"return ", {"127.0.1"}, "no IPv4 address"},
        {"end ", {"256"}, "no number from 0 to 255"},
    };
    for (auto const &row : words) {
        for (std::string const &word : row.words)
            EXPECT_EQ(ErrorOf([&] { WireScript(row.command + word, "f", 2); }),
                      "f:1: \"" + word + "\" is " + row.error);
    }
}

TEST(WireScript, DoesOneThingAfterTheOther)
{
    struct
    {
        char const *script;
        // The time of each step, and how many frames the second camera has sent by then; none: it has no client.
        std::vector<std::pair<int, std::uint64_t>> steps;
        char const
            *outcome; // what each step does; "..." where it goes on then, and "=>" with the exit status or the error
    } const courses[] = {
        {"", {{0, 0}}, "=> none"},
        {"say  two  words # three\nset  Name  a b\nset Text \"\"\ncamera 2\nexecute Go\ndie\nreturn\n"
         "return 10.0.0.1\nreturn reset\nreturn 10.0.0.1 reset",
         {{0, 0}},
         "say two  words; 1 set Name=a b; 1 set Text=; 2 execute Go; 2 die; 2 return []; 2 return [10.0.0.1]; "
         "2 return [] reset; 2 return [10.0.0.1] reset; => none"},
        {"wait 0.1\nwait 0.1\ndie\nend", {{0, 0}, {99, 0}, {100, 0}, {200, 0}, {300, 0}}, "... ... ... 1 die; => 0"},
        {"camera 2\nwait client\nsay come\nwait no client up to 5\nend 7",
         {{9000, 0}, {9000, 1}, {13999, 1}, {14000, 0}},
         "... say come; ... ... => 7"},
        {"camera 2\nwait client\nsay been", {{0, 0}, {1, 0}, {2, 1000}}, "... ... say been; => none"},
        {"wait client up to 1.5\ndie",
         {{0, 0}, {1499, 0}, {1500, 0}},
         "... ... => f:1: what is waited for does not come"},
        // Counted from the beginning of the wait, and anew for a camera that began anew.
        {"camera 2\nwait frames 10\nsay ten\nwait frames 3\nsay three",
         {{0, 100}, {1, 109}, {2, 110}, {3, 2}, {4, 3}},
         "... ... say ten; ... ... say three; => none"},
        {"die\ncamera 2\ndie\nrepeat", {{0, 0}, {0, 0}}, "1 die; 2 die; ... 1 die; 2 die; ... => none"},
        {"die\n\nset Bad 1\ndie", {{0, 0}}, "1 die; 1 set Bad=1; => f:3: no such feature"},
    };
    for (auto const &course : courses) {
        WireScript const script(course.script, "f", 2);
        FakeHost host;
        WireScriptRun run(script, host);
        std::string error;
        for (auto const &[time, frames] : course.steps) {
            host.frames = frames;
            bool runs = false;
            error = ErrorOf([&] { runs = run.Step(WireScriptRun::Clock::time_point(time * 1ms)); });
            host.done += runs ? "... " : "";
        }
        std::optional<int> const code = run.GetExitCode();
        EXPECT_EQ(host.done + "=> " +
                      (code            ? std::to_string(*code)
                       : error.empty() ? "none"
                                       : error),
                  course.outcome)
            << course.script;
    }
}

} // namespace
