#include "wirescript.h"

#include "protocol/socketaddress.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <utility>

namespace {

using Line = WireScriptLine;

constexpr double LongestTime = 1e6; // s
constexpr std::uint64_t MostFrames = 1'000'000'000'000;
constexpr std::string_view Blanks = " \t";

// What a line's error is, without the place.
struct Wrong
{
    std::string what;
};

std::string Quoted(std::string_view word)
{
    return '"' + std::string(word) + '"';
}

// The words of a line, one after the other.
class Words
{
public:
    explicit Words(std::string_view line) : m_rest(line)
    {
        Trim();
    }

    bool IsEmpty() const
    {
        return m_rest.empty();
    }
    std::string_view Peek() const
    {
        return m_rest.substr(0, m_rest.find_first_of(Blanks));
    }
    std::string_view Take(char const *what)
    {
        if (m_rest.empty())
            throw Wrong{std::string(what) + " is missing"};
        std::string_view const word = Peek();
        m_rest.remove_prefix(word.size());
        Trim();
        return word;
    }
    bool TakeIf(std::string_view word)
    {
        bool const found = Peek() == word;
        if (found)
            Take("");
        return found;
    }
    std::string_view TakeRest()
    {
        return std::exchange(m_rest, {});
    }

private:
    void Trim()
    {
        m_rest.remove_prefix(std::min(m_rest.find_first_not_of(Blanks), m_rest.size()));
        m_rest = m_rest.substr(0, m_rest.find_last_not_of(Blanks) + 1);
    }

    std::string_view m_rest;
};

std::uint64_t ParseNumber(std::string_view word, std::uint64_t least, std::uint64_t most)
{
    std::uint64_t number = 0;
    auto const [end, error] = std::from_chars(word.data(), word.data() + word.size(), number);
    if (error != std::errc() || end != word.data() + word.size() || number < least || number > most)
        throw Wrong{Quoted(word) + " is no number from " + std::to_string(least) + " to " + std::to_string(most)};
    return number;
}

std::chrono::nanoseconds ParseTime(std::string_view word)
{
    double seconds = 0.0;
    auto const [end, error] =
        std::from_chars(word.data(), word.data() + word.size(), seconds, std::chars_format::fixed);
    // Written so that what is no number fails.
    if (error != std::errc() || end != word.data() + word.size() || !(seconds >= 0.0 && seconds <= LongestTime))
        throw Wrong{Quoted(word) + " is no time in seconds"};
    return std::chrono::nanoseconds(std::llround(seconds * 1e9));
}

std::string ParseFeature(std::string_view word)
{
    auto const isLetter = [](char c) {
        return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_';
    };
    auto const isPart = [&](char c) {
        return isLetter(c) || (c >= '0' && c <= '9');
    };
    if (!isLetter(word[0]) || !std::all_of(word.begin(), word.end(), isPart))
        throw Wrong{Quoted(word) + " is no name of a feature"};
    return std::string(word);
}

Line ParseWait(Words &words)
{
    Line line{};
    if (words.TakeIf("client")) {
        line.command = Line::WaitClient;
    } else if (words.TakeIf("no")) {
        if (!words.TakeIf("client"))
            throw Wrong{"\"wait no\" is followed by \"client\""};
        line.command = Line::WaitNoClient;
    } else if (words.TakeIf("frames")) {
        line.command = Line::WaitFrames;
        line.number = ParseNumber(words.Take("the number of frames"), 1, MostFrames);
    } else {
        line.command = Line::WaitTime;
        line.time = ParseTime(words.Take("what to wait for"));
        return line;
    }
    if (words.TakeIf("up")) {
        if (!words.TakeIf("to"))
            throw Wrong{"\"up\" is followed by \"to\""};
        line.limit = ParseTime(words.Take("the time"));
    }
    return line;
}

Line ParseReturn(Words &words)
{
    Line line{};
    line.command = Line::Return;
    if (!words.IsEmpty() && words.Peek() != "reset") {
        line.text = words.Take("");
        if (!ParseAddress(line.text))
            throw Wrong{Quoted(line.text) + " is no IPv4 address"};
    }
    line.reset = words.TakeIf("reset");
    return line;
}

Line ParseSet(Words &words)
{
    Line line{};
    line.command = Line::Set;
    line.name = ParseFeature(words.Take("the feature"));
    if (words.IsEmpty())
        throw Wrong{"the value is missing"};
    line.text = words.TakeRest();
    if (line.text == "\"\"")
        line.text.clear();
    return line;
}

Line ParseLine(Words &words, std::size_t cameras)
{
    Line line{};
    std::string_view const command = words.Take("the command");
    if (command == "camera") {
        line.command = Line::Camera;
        line.number = ParseNumber(words.Take("the number of the camera"), 1, cameras) - 1;
    } else if (command == "wait") {
        line = ParseWait(words);
    } else if (command == "set") {
        line = ParseSet(words);
    } else if (command == "execute") {
        line.command = Line::Execute;
        line.name = ParseFeature(words.Take("the feature"));
    } else if (command == "die") {
        line.command = Line::Die;
    } else if (command == "return") {
        line = ParseReturn(words);
    } else if (command == "say") {
        line.command = Line::Say;
        line.text = words.TakeRest();
    } else if (command == "end") {
        line.command = Line::End;
        line.number = words.IsEmpty() ? 0 : ParseNumber(words.Take(""), 0, 255);
    } else if (command == "repeat") {
        line.command = Line::Repeat;
    } else {
        throw Wrong{"there is no command " + Quoted(command)};
    }
    if (!words.IsEmpty())
        throw Wrong{Quoted(words.Peek()) + " is too much"};
    return line;
}

std::string_view WithoutComment(std::string_view text)
{
    for (std::size_t at = text.find('#'); at != std::string_view::npos; at = text.find('#', at + 1)) {
        if (at == 0 || Blanks.find(text[at - 1]) != std::string_view::npos)
            return text.substr(0, at);
    }
    return text;
}

void CheckText(std::string_view text)
{
    if (text.size() > WireScript::LongestLine)
        throw Wrong{"the line is longer than " + std::to_string(WireScript::LongestLine) + " bytes"};
    for (char const c : text) {
        if ((static_cast<unsigned char>(c) < ' ' && c != '\t') || c == '\x7F')
            throw Wrong{"the line has a control character"};
    }
}

} // namespace

WireScript::WireScript(std::string_view text, std::string file, std::size_t cameras) : m_file(std::move(file))
{
    for (unsigned number = 1; !text.empty(); ++number) {
        std::string_view line = text.substr(0, text.find('\n'));
        text.remove_prefix(std::min(line.size() + 1, text.size()));
        if (line.ends_with('\r'))
            line.remove_suffix(1);
        try {
            if (number > MostLines)
                throw Wrong{"there are more than " + std::to_string(MostLines) + " lines"};
            CheckText(line);
            Words words(WithoutComment(line));
            if (words.IsEmpty())
                continue;
            if (!m_lines.empty() && (m_lines.back().command == Line::End || m_lines.back().command == Line::Repeat))
                throw Wrong{"the line is never reached"};
            m_lines.push_back(ParseLine(words, cameras));
            m_lines.back().line = number;
        } catch (Wrong const &wrong) {
            throw WireScriptError(m_file + ':' + std::to_string(number) + ": " + wrong.what);
        }
    }
}

WireScriptRun::WireScriptRun(WireScript const &script, WireScriptHost &host) : m_script(script), m_host(host)
{
}

void WireScriptRun::Fail(WireScriptLine const &line, std::string const &what) const
{
    throw WireScriptError(m_script.GetFile() + ':' + std::to_string(line.line) + ": " + what);
}

bool WireScriptRun::Step(Clock::time_point now)
{
    while (m_next < m_script.GetLines().size()) {
        Line const &line = m_script.GetLines()[m_next];
        switch (line.command) {
        case Line::Camera:
            m_camera = line.number;
            break;
        case Line::WaitTime:
        case Line::WaitClient:
        case Line::WaitNoClient:
        case Line::WaitFrames:
            if (!Wait(line, now))
                return true;
            break;
        case Line::End:
            m_exitCode = static_cast<int>(line.number);
            m_next = m_script.GetLines().size();
            return false;
        case Line::Repeat:
            m_next = m_camera = 0;
            return true;
        default:
            Do(line);
            break;
        }
        ++m_next;
    }
    return false;
}

bool WireScriptRun::IsOver(WireScriptLine const &line, Clock::duration waited) const
{
    switch (line.command) {
    case Line::WaitClient:
        return m_host.HasClient(m_camera) || m_host.GetClients(m_camera) != m_countBefore;
    case Line::WaitNoClient:
        return !m_host.HasClient(m_camera);
    case Line::WaitFrames: {
        // A camera that is back from power-up counts anew.
        std::uint64_t const frames = m_host.GetFrames(m_camera);
        return (frames >= m_countBefore ? frames - m_countBefore : frames) >= line.number;
    }
    default:
        return waited >= line.time;
    }
}

// Whether the wait is over.
bool WireScriptRun::Wait(WireScriptLine const &line, Clock::time_point now)
{
    if (!m_waits) {
        m_waits = true;
        m_waitsSince = now;
        m_countBefore = line.command == Line::WaitFrames ? m_host.GetFrames(m_camera) : m_host.GetClients(m_camera);
    }
    Clock::duration const waited = now - m_waitsSince;
    m_waits = !IsOver(line, waited);
    if (m_waits && line.limit && waited >= *line.limit)
        Fail(line, "what is waited for does not come");
    return !m_waits;
}

void WireScriptRun::Do(WireScriptLine const &line)
{
    std::string why;
    bool done = true;
    switch (line.command) {
    case Line::Set:
        done = m_host.SetFeature(m_camera, line.name, line.text, why);
        break;
    case Line::Execute:
        done = m_host.Execute(m_camera, line.name, why);
        break;
    case Line::Die:
        done = m_host.Die(m_camera, why);
        break;
    case Line::Return:
        done = m_host.Return(m_camera, line.text, line.reset, why);
        break;
    default:
        m_host.Say(line.text);
        break;
    }
    if (!done)
        Fail(line, why);
}
