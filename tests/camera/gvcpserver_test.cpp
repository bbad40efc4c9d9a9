// The control channel of a camera: what it answers to datagrams, and when, and what it does to the camera.
#include "gvcpserver.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cinttypes>
#include <initializer_list>
#include <sstream>
#include <string>

using namespace gvcp::bootstrap;
using namespace std::chrono_literals;

namespace {

constexpr GvcpPeer Hosts[] = {{0x0A000002, 1000}, {0x0A000002, 1001}, {0x0A000003, 1000}, {0xAC100001, 5000}};
constexpr char Take[] = "82 A00 2", Free[] = "82 A00 0", Done[] = "A 83 1";

std::string Hex(std::uint64_t value, int bytes = 4)
{
    char text[17];
    std::snprintf(text, sizeof text, "%0*" PRIX64, 2 * bytes, value);
    return text;
}

std::string Hex(std::span<std::uint8_t const> bytes)
{
    std::string text;
    for (std::uint8_t const byte : bytes)
        text += Hex(byte, 1);
    return text;
}

// A host sends commands, after a while. Each: its code, "/" and flags where it does not just ask for an acknowledge,
// its body, in which a word of 4 digits has 16 bits and a shorter one 32. "again" is the one before, "!" begins a
// datagram as it is. A small letter broadcasts.
struct Step
{
    int ms;
    char host;            // A to D, '.' for none
    std::string commands; // with '|' between them
    // Of each command that differs from the one before, in order: the camera's registers that change, other calls of
    // the camera, datagrams: to whom, code and body, or what is wrong and the body if it is not zero. "@" is the time
    // where it was before the command.
    std::string expected = "none";
};

class Rig : public GvcpCamera
{
public:
    Rig()
    {
        memory.Set(CurrentIpAddress, 0x0A000001);
        memory.Set(CurrentSubnetMask, 0xFFFFFF00);
        memory.Set(DeviceMacAddressHigh, 0x0002);
        memory.Set(DeviceMacAddressLow, 0x03040506);
    }

    void Run(std::initializer_list<Step> steps)
    {
        for (Step const &step : steps) {
            std::istringstream commands(step.commands);
            std::string seen, last;
            int ms = step.ms;
            for (std::string command; std::getline(commands, command, '|'); ms = 0) {
                std::string const what = Do(ms, step.host, command);
                if (what != last)
                    seen += (last.empty() ? "" : "; ") + what;
                last = what;
            }
            EXPECT_EQ(seen, step.expected) << step.host << " " << step.commands;
        }
    }
    std::string Do(int ms, char host, std::string const &command)
    {
        m_log.clear();
        Advance(std::chrono::milliseconds(ms));
        bool const broadcast = host >= 'a';
        if (host != '.')
            server.Handle(Datagram(command), Hosts[host - (broadcast ? 'a' : 'A')], broadcast, now);
        Collect();
        EXPECT_GT(server.NextDue().value_or(GvcpServer::Clock::time_point::max()), now);
        return m_log.empty() ? "none" : m_log;
    }

    BootstrapMemory memory;
    GvcpServer server{memory, *this};
    GvcpServer::Clock::time_point now;

private:
    gvcp::Status Read(std::uint32_t address, std::span<std::uint8_t> out) override
    {
        std::fill(out.begin(), out.end(), 0xAB);
        return address < 0x20000 ? gvcp::GEV_STATUS_SUCCESS : gvcp::GEV_STATUS_INVALID_ADDRESS;
    }
    gvcp::Status Write(std::uint32_t address, std::span<std::uint8_t const> bytes) override
    {
        Log(Hex(address) + "=" + Hex(bytes));
        return address < 0x20000 ? gvcp::GEV_STATUS_SUCCESS : gvcp::GEV_STATUS_BUSY;
    }
    // 100 ms for the second register from here, 200 ms for the third.
    std::chrono::milliseconds DelayOf(std::uint32_t address, std::uint32_t) override
    {
        return 25ms * (address >= 0x11000 && address < 0x12000 ? address - 0x11000 : 0);
    }
    gvcp::Status React(std::uint32_t address) override
    {
        Log(Hex(address, 0) + "=" + Hex(memory.Get(address), 0));
        return memory.Get(address) == 0xBAD ? gvcp::GEV_STATUS_INVALID_PARAMETER : gvcp::GEV_STATUS_SUCCESS;
    }
    void Resend(GvcpResend const &request) override
    {
        Log("resend " + Hex(request.blockId, 8) + " " + Hex(request.first) + "-" + Hex(request.last) +
            (request.extended ? " extended" : ""));
    }
    void ControlEnded() override
    {
        Log("ended");
    }
    void Act(std::uint32_t action) override
    {
        Log("act " + std::to_string(action));
    }
    bool TakeAddress(std::uint32_t address, std::uint32_t, std::uint32_t) override
    {
        Log("take " + Hex(address));
        return address % 2 == 0;
    }

    void Log(std::string const &what)
    {
        m_log +=
            (m_log.empty() ? "" : "; ") + (m_marks ? "@" + std::to_string((now - m_begin) / 1ms) + " " : "") + what;
    }
    // Everything that is due, at the time that NextDue says, and nothing before it.
    void Advance(std::chrono::milliseconds time)
    {
        m_begin = now;
        m_marks = true;
        for (auto due = server.NextDue(); due && *due <= m_begin + time; due = server.NextDue()) {
            std::string const before = m_log;
            server.Poll(*due - 1ns);
            Collect();
            EXPECT_EQ(m_log, before) << "before its time";
            now = *due;
            server.Poll(now);
            Collect();
        }
        now = m_begin + time;
        m_marks = false;
    }
    std::vector<std::uint8_t> const &Datagram(std::string const &command)
    {
        if (command == "again")
            return m_last;
        std::istringstream words(command);
        std::string head, text;
        words >> head;
        for (std::string word; words >> word; text += word)
            text.append(word.size() < 8 && word.size() != 4 ? 8 - word.size() : 0, '0');
        if (head != "!") {
            m_id = gvcp::NextRequestId(m_id);
            std::string const flags = head.find('/') < head.size() ? head.substr(head.find('/') + 1) : "01";
            text = "42" + flags + Hex(std::stoul(head, nullptr, 16), 2) + Hex(text.size() / 2, 2) + Hex(m_id, 2) + text;
        }
        m_last.clear();
        for (std::size_t i = 0; i < text.size(); i += 2)
            m_last.push_back(static_cast<std::uint8_t>(std::stoul(text.substr(i, 2), nullptr, 16)));
        return m_last;
    }
    void Collect()
    {
        for (GvcpDatagram const &sent : server.TakeOutgoing()) {
            auto const host = std::find(std::begin(Hosts), std::end(Hosts), sent.to);
            std::string const bytes = Hex(sent.bytes), status = bytes.substr(0, 4);
            std::string const body = bytes.size() > 80    ? std::to_string(sent.bytes.size() - 8)
                                     : bytes.size() == 24 ? Hex(LoadBig32(&sent.bytes[8]), 0)
                                                          : bytes.substr(16);
            Log((host != std::end(Hosts) ? std::string(1, "ABCD"[host - Hosts]) : Hex(sent.to.address)) +
                (sent.message ? " event " : " ") + (status == "0000" ? bytes.substr(6, 2) : status) +
                (status != "0000" && body.find_first_not_of('0') == body.npos ? "" : " " + body) +
                (LoadBig16(&sent.bytes[4]) != sent.bytes.size() - 8 ? " of another length" : "") +
                (!sent.message && LoadBig16(&sent.bytes[6]) > m_id + 1 ? " to another request" : ""));
        }
    }

    std::string m_log;
    std::vector<std::uint8_t> m_last;
    std::uint16_t m_id = 0;
    GvcpServer::Clock::time_point m_begin;
    bool m_marks = false;
};

} // namespace

TEST(GvcpServer, IgnoresWhatIsNoCommandAndSaysWhatIsWrong)
{
    std::string const longest = "80 " + std::string(8 * 135, '0');
    Rig().Run({{0, 'A', "!|! 4201 0080 0004|! 4101 0080 0004 0001 00000000|! 4201 0080 0004 0000 00000000"},
               {0, 'A', "! 4200 0080 0008 0001 00000000|40 00010000|2/00"},
               {0, 'a', "80 0|100 10000|2 0"},
               {0, 'A', "99 10000|C0 10000", "A 8001"},
               {0, 'A', "! 4201 0080 0000 0001 00000000|80|80 0000|82 A00|84 0|86 10000|100 10000", "A 800E"},
               {0, 'A', longest + " 0|" + longest, "A 800E; A 81 540"}});
}

TEST(GvcpServer, IsFound)
{
    Rig rig;
    rig.Run({{0, 'd', "2", "D 03 248"},
             {0, 'd', "2/11", "FFFFFFFF 03 248"}, // in another subnet
             {0, 'a', "2/11", "A 03 248"}});
    // Spread over the time that is allowed, each answer but once.
    rig.memory.Set(DiscoveryAckDelay, 1000);
    rig.Run({{0, 'a', "2/11|2/11|2/11|2/11"}});
    std::string const answers = rig.Do(1000, '.', "");
    EXPECT_EQ(std::count(answers.begin(), answers.end(), '@'), 4);
}

TEST(GvcpServer, GivesControlToOneHost)
{
    Rig rig;
    rig.Run({{0, 'A', "82 10000 1|82 95C 123 A00 2|82 A00 2", "A 8006; A 83 1"},
             {0, 'B', "82 10000 1|82 A00 2|82 A00 0", "B 8006"}, // another port is another host
             {0, 'B', "80 A00 A04 A14", "B 81 00000002000003E80A000002"},
             {0, 'A', "82 A00 1", Done}, // exclusive from now on
             {0, 'B', "80 A00 10000|84 A00 8|82 A00 2", "B 8006 1; B 8006"},
             // To be replaced by who knows the key, once that is allowed.
             {0, 'A', "82 A00 2 95C 123 D00 7", "95C=123; D00=7; A 83 3"},
             {0, 'B', "82 A00 01230002", "B 8006"},
             {0, 'A', "82 A00 6", Done},
             {0, 'B', "82 A00 01240002|82 A00 01230000|80 95C", "B 8006"},
             {0, 'B', "82 A00 01230002 B00 8", "B00=8; B 83 2"},
             {0, 'A', "80 A00 A04 D00|82 A00 0", "A 81 00000002000003E900000007; A 8006"},
             {0, 'B', Free, "ended; B 83 1"},
             {0, 'A', "82 A00 0|80 A00 A04 A14 D00 B00", "A 83 1; A 81 " + std::string(40, '0')},
             {0, 'A', "86 A00 2", "A 87 4"}});
    EXPECT_EQ(rig.server.GetController(), Hosts[0]);
    rig.server.Reset();
    EXPECT_FALSE(rig.server.IsControlled());
}

TEST(GvcpServer, ReadsAndWritesWhatIsThere)
{
    Rig().Run({{0, 'A', Take, Done},
               {0, 'A', "80 2|84 10002 8|84 10000 6|82 2 1|86 10000 0001", "A 8005"},
               {0, 'A', "80 18|84 10 C|84 00009FFC 8|84 FFFFFFFC 8|82 18 1|86 F4 0 0|86 FFFFFFFC 2 0", "A 8003"},
               {0, 'A', "84 10000 0|84 10000 21C|82 0 1|86 A00 2 0", "A 8002; A 8004"},
               {0, 'A', "80 0 18 0|80 10000 FFFFFFFC", "A 8003 20001; A 8003 ABABABAB"},
               {0, 'A', "84 200 218", "A 85 540"}, // over both URLs
               {0, 'A', "82 10000 1 20000 2 10004 3", "00010000=00000001; 00020000=00000002; A 8007 1"},
               {0, 'A', "86 E8 4E616D65 0 0 0|82 EC 73000000|84 E8 8",
                "E8=4E616D65; A 87 10; E8=4E616D65; A 83 1; A 85 000000E84E616D6573000000"},
               {0, 'A', "86 D04 5DC 64|82 D08 BAD", "D04=5DC; D08=64; A 87 8; D08=BAD; A 8002"},
               {0, 'A', "82 D04 A0000200", "D04=80000240; A 83 1"}, // the test packet
               {0, 'A', "82 938 1 14 FFFFFFFB D24 FFFFFFFF 944 7", "938=1F4; 14=7; D24=44; 944=3; A 83 4"},
               {0, 'A', "80 D04 D08 938", "A 81 0000024000000064000001F4"}});
}

TEST(GvcpServer, EndsControlWithoutHeartbeat)
{
    Rig().Run({{0, 'A', Take, Done},
               {2999, 'A', "80 A00", "A 81 2"},
               {2000, 'B', "80 A00", "B 81 2"}, // another host's do not count
               {0, 'A', "99", "A 8001"},        // nor what is no command
               {3000, 'B', "80 A00", "@1000 ended; B 81 0"},
               {0, 'A', "82 A00 2 938 200", "938=200; A 83 2"},
               {512, 'A', "again", "@512 ended; 938=200; A 83 2"}, // is no retransmission
               {0, 'A', "82 954 1", "954=1; A 83 1"},
               {9999999, 'B', Take, "B 8006"}, // no heartbeat asked for
               {0, 'A', "82 954 0", "954=0; A 83 1"},
               {512, 'B', Take, "@512 ended; B 83 1"}});
}

TEST(GvcpServer, DoesNotRepeatWhatWasOnlyAskedAgain)
{
    Rig rig;
    std::string const write = "82 10000 1", written = "00010000=00000001", both = written + "; A 83 1";
    rig.Run({{0, 'A', Take, Done},
             {0, 'A', write + "|again", both + "; " + Done},
             {0, 'B', "again", "B 8006"},
             {0, 'A', write, both},      // another id
             {2990, 'A', "again", Done}, // and is a sign of life
             {2010, 'A', "again", both}, // the next with this id
             {0, 'A', "82/00 10000 1|again", written},
             {0, 'A', write, both}});
    // The acknowledges of the last hosts are kept, not those of all.
    std::uint8_t const read[] = {0x42, 1, 0, 0x80, 0, 4, 0, 1, 0, 0, 0, 0};
    for (std::uint16_t port = 1; port <= 16; ++port)
        rig.server.Handle(read, {Hosts[1].address, port}, false, rig.now);
    EXPECT_EQ(rig.server.TakeOutgoing().size(), 16u);
    rig.Run({{0, 'A', "again", both}});
}

TEST(GvcpServer, TakesTheTimeThatAnAccessNeeds)
{
    Rig rig;
    std::string const slow = "82 1100C 1"; // 300 ms
    rig.Run({{0, 'A', Take, Done},
             {0, 'A', slow + "|again"},
             {0, 'B', "80 A00"},        // waits
             {0, 'C', "2", "C 03 248"}, // does not
             {300, '.', "-", "@300 0001100C=00000001; @300 A 83 1; @300 B 81 2"},
             {0, 'A', "82 954 2|80 11008", "954=2; A 83 1; none"}, // 200 ms: no reason to say so
             {200, 'A', slow, "@200 A 81 ABABABAB; A 89 12C"},
             {300, 'B', slow, "@300 0001100C=00000001; @300 A 83 1; B 89 12C"},
             {300, '.', "-", "@300 B 8006"},
             // Longer than the heartbeat, and than a packet can tell.
             {0, 'A', "80 11C80", "A 89 FFFF"},
             {83000, '.', "-", "@65535 A 89 3881; @80000 A 81 ABABABAB; @83000 ended"},
             {0, 'B', "80 1100C", "B 89 12C"}});
    // One is done, 16 wait, and no more.
    for (int i = 0; i < 20; ++i)
        rig.Run({{0, 'A', "80 A00"}});
    std::string const answers = rig.Do(300, '.', "");
    EXPECT_EQ(std::count(answers.begin(), answers.end(), '@'), 17) << answers;
}

TEST(GvcpServer, PassesOnWhatIsAskedForAgain)
{
    std::string const request = "40/00 0000 0003 FF000001 FF000009",
                      passed = "resend 0000000000000003 00000001-00000009";
    Rig().Run(
        {{0, 'A', request + "|82 A00 2", "none; A 83 1"},
         {0, 'B', request, passed},
         {0, 'A', "40/10 0000 0000 1 FF000009 0000010000000003", "resend 0000010000000003 00000001-FF000009 extended"},
         {0, 'A', "40/00 0001 0003 1 9|40/00 0000 0000 1 9|40/00 0000 0003 9 1|40/10 0000 0003 9 1"},
         {0, 'C', request},
         {0, 'A', "82 D18 0A000003", "D18=A000003; A 83 1"},
         {0, 'C', request, passed}});
}

TEST(GvcpServer, ActsWhereKeysAndMaskMatch)
{
    std::string const act = "100 1 2 4", later = "100/81 1 2 4 0000000000000000";
    Rig().Run({{0, 'A', "82 A00 2 90C 1 00009810 2 00009814 4 00009830 2 00009834 7",
                "90C=1; 9810=2; 9814=4; 9830=2; 9834=7; A 83 6"},
               {0, 'd', act + "|100/00 1 2 3", "act 1; act 3; D 01 ; act 3"},
               {0, 'D', "100 9 2 4|100 1 3 4|100 1 2 8"},
               {0, 'D', later, "D 8FFF"},
               {0, 'A', "82 954 00040000", "954=40000; A 83 1"},
               {0, 'D', later, "D 8013"},
               {0, 'A', Free, "ended; A 83 1"},
               {0, 'd', act},
               {0, 'A', "82 A00 2 954 8 A00 0", "954=8; ended; A 83 3"},
               {0, 'd', act, "act 1; act 3; D 01 "}});
}

TEST(GvcpServer, SendsEventsUntilTheyAreAcknowledged)
{
    Rig rig;
    auto const send = [&](std::uint16_t event, std::uint64_t block) {
        rig.server.SendEvent(event, block, 9, rig.now);
    };
    send(5, 7); // to nobody
    rig.Run({{0, 'A', "82 A00 2 B10 0A000003 B00 3E8", "B10=A000003; B00=3E8; A 83 3"}});
    send(5, 0x10007);
    send(5, 0);
    rig.Run(
        {{0, '.', "-", "C event 4200 00000005000000080000000000000009; C event 4200 00000005FFFF00000000000000000009"},
         {0, 'A', "82 960 FFFFFFFF B14 64 B18 2", "960=40000000; B14=64; B18=2; A 83 3"}});
    send(5, 0x10007); // the third
    send(6, 1);
    std::string const first = "C event 4211 000000050000000000000000000100070000000000000009";
    std::string const second = "C event 4211 000000060000000000000000000000010000000000000009";
    rig.Run({{0, '.', "-", first},
             {100, '.', "-", "@100 " + first},
             {0, 'A', "! 0000 00C1 0000 0003"}, // of another host
             {0, 'C', "! 0000 00C1 0000 0004"}, // to another event
             {50, 'C', "! 0000 00C1 0000 0003", second},
             {1000, '.', "-", "@100 " + second + "; @200 " + second}}); // and then no more
    // As many wait as there is room for; closing the channel forgets them.
    for (int i = 0; i < 100; ++i)
        send(6, 1);
    rig.Do(0, 'A', "82 B14 0"); // no more waiting
    std::string const all = rig.Do(0, 'C', "! 0000 00C1 0000 0005");
    EXPECT_EQ(std::count(all.begin(), all.end(), 'C'), 63) << all;
    rig.Run({{0, 'A', "82 B14 64", "B14=64; A 83 1"}});
    send(6, 1);
    rig.Run({{0, 'A', "82 B00 0", "B00=0; " + second + "; A 83 1"}, {2000, 'A', "80 A00", "A 81 2"}});
}

TEST(GvcpServer, TakesAnAddressWhileNobodyHasControl)
{
    auto const force = [](std::string const &head, char const *mac, char const *address) {
        std::string const gap(24, '0');
        return head + " 0000 000203040" + mac + gap + address + gap + "FFFF0000" + gap + "0A000009";
    };
    Rig().Run({{0, 'a', force("4", "507", "0A000008")},
               {0, 'd', force("4/11", "506", "00000000"), "FFFFFFFF 05 "},
               {0, 'd', force("4", "506", "0A000008"), "take 0A000008; D 05 "},
               {0, 'd', force("4", "506", "0A000009"), "take 0A000009; D 8FFF"},
               {0, 'A', "80 24 34 44|82 A00 2", "A 81 0A000008FFFF00000A000009; A 83 1"},
               {0, 'd', force("4", "506", "0A000009"), "D 8006"}});
}

TEST(GvcpServer, DoesWrongWhatItIsToldTo)
{
    Rig rig;
    std::pair<ControlFaults, Step> const rows[] = {
        {{.silent = true}, {0, 'A', "82 A00 2|2"}},
        {{}, {0, 'A', "80 A00", "A 81 0"}},
        {{.loss = 1.0}, {0, 'A', "82 A00 2|2"}},
        {{.delay = 70}, {0, 'A', "80 A00"}},
        {{.delay = 70}, {70, 'A', "2", "@70 A 81 2; A 03 248"}},
        {{.delay = 70}, {0, 'A', "80 A00"}},
        {{.silent = true}, {70, '.', "-"}},
        {{.wrongId = 1.0}, {0, 'A', "80 A00", "A 81 2 to another request"}},
        {{.wrongLength = 1.0}, {0, 'A', "80 A00", "A 81 2 of another length"}}};
    for (auto const &[faults, step] : rows) {
        rig.server.SetFaults(faults);
        rig.Run({step});
    }
    rig.server.SetFaults({.loss = 0.25});
    int answers = 0;
    for (int i = 0; i < 1000; ++i)
        answers += rig.Do(0, 'A', "80 A00") != "none";
    EXPECT_NEAR(answers, 750, 60);
}
