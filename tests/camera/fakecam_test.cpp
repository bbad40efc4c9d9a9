// The program tovfakecam: its options, and what becomes of it. Serving as such has tests of its own.
#include "wireclients.h"

#include <csignal>
#include <fnmatch.h>

namespace {

TEST(FakeCam, SaysWhatItServesAndWhyNot)
{
    struct
    {
        char const *arguments, *script, *pattern; // of all that is written
    } const rows[] = {
        // What is left out is counted up, past what is taken.
        {"-c vg-2048m -c VG-2048M@127.0.0.1,serial=920480118 -c VG-1280C,name=Left -c VG-2048M", "",
         "VG-2048M 920480117 at 127.0.0.2, UDP port 3956\nVG-2048M 920480118 at 127.0.0.1, UDP port 3956\n"
         "VG-1280C 912800058, Left at 127.0.0.3, *\nVG-2048M 920480119 at 127.0.0.4, *\nTo look *=> 0"},
        {"", "say hello\nend 7", "VG-2048M 920480117 at 127.0.0.1, UDP port 3956\nTo look *\nhello\n=> 7"},
        {"-q", "set WireLossBurst 3\nexecute TimestampLatch\ndie\nreturn 127.0.0.5 reset\nend", "=> 0"},
        {"-q", "\nset NoSuch 3\nend", "tovfakecam: standard input:2: no such feature: NoSuch\n=> 1"},
        {"-q", "camera 2", "tovfakecam: standard input:1: \"2\" is no number from 1 to 1\n=> 1"},
        {"-f /nonexistent", "", "tovfakecam: /nonexistent: No such file or directory\n=> 1"},
        {"-c VG-1280C@203.0.113.77", "", "tovfakecam: *\n=> 1"},
        {"-s Width=640 -s No=x=y -c VG-1280C -s Nor=", "", "tovfakecam: no such feature: No\n=> 1"},
        {"-s Width=640 -c VG-1280C -c VG-2048M --set=No=1", "", "tovfakecam: no such feature: No\n=> 1"},
        {"-i nonexistent", "", "tovfakecam: there is no interface nonexistent\n=> 1"},
        {"-i lo -c VG-1280C -c VG-1280C", "", "tovfakecam: the interface lo has too few *: 1 for 2 cameras*\n=> 1"},
        {"-x", "", "tovfakecam: there is no option -x\nTry \"tovfakecam --help\".\n=> 2"},
        {"--nonsense", "", "*: there is no option --nonsense\n*=> 2"},
        {"-c", "", "*: -c needs a value\n*=> 2"},
        {"serve", "", "*: there is no argument serve\n*=> 2"},
        {"-c VG", "", "*: there is no model VG; --list shows them\n*=> 2"},
        {"-c VG-1280C@", "", "*: \"\" is no IPv4 address\n*=> 2"},
        {"-c VG-1280C,serial=", "", "*: \"\" does not have 1 to 15 letters of ASCII\n*=> 2"},
        {"-c VG-1280C,name=0123456789abcdef", "", "*: \"0123456789abcdef\" does not have 1 to 15 letters *=> 2"},
        {"-c VG-1280C,colour=red", "", "*: \"colour=red\" is neither serial=TEXT nor name=TEXT\n*=> 2"},
        {"-s Width", "", "*: \"Width\" is not FEATURE=VALUE\n*=> 2"},
        {"-s =1", "", "*: \"=1\" is not FEATURE=VALUE\n*=> 2"},
        {"-c VG-1280C@10.0.0.1 -c VG-2048M@10.0.0.1", "", "*: two cameras cannot both be at 10.0.0.1\n*=> 2"},
        {"-c VG-1280C,serial=7 -c VG-2048M,serial=7", "", "*: two cameras cannot both have the serial number 7\n*=> 2"},
        {"-i lo -c VG-1280C@127.0.0.1", "",
         "*: a camera has an address from --interface or of its own, not both\n*=> 2"},
        {"--help", "", "Usage: *--script FILE*\n=> 0"},
        {"--version", "", "tovfakecam 1.*\n=> 0"},
        {"--list", "",
         "*VG-2048M *2048 x 1536, Mono8, Mono10, Mono10p, *VG-1280C *1280 x 1024, Mono8, Mono12,*\n"
         "  WireReorderDistance *an overtaken one lets pass. (1 to 1000)\n  WireDuplicate*"
         "(Off, Control,*Stream, All)*(0 to*3600000*ms)*\n=> 0"},
    };
    for (auto const &row : rows) {
        // A script ends the program where it is not refused.
        std::string const script = *row.script ? row.script : "end";
        Outcome const seen = RunShell("printf '" + script + "' | " TOVFAKECAM " -f - " + row.arguments);
        std::string const text = seen.text + "=> " + std::to_string(seen.code);
        EXPECT_EQ(fnmatch(row.pattern, text.c_str(), 0), 0) << row.arguments << '\n' << row.script << '\n' << text;
    }
}

TEST(FakeCam, ServesUntilASignal)
{
    for (int const signal : {SIGINT, SIGTERM}) {
        Client program(TOVFAKECAM " --status -i lo --camera VG-1280C,name=Left");
        EXPECT_EQ(program.ReadLine(), "VG-1280C 912800058, Left at 127.0.0.1, UDP port 3956\n");
        program.ReadLine();
        EXPECT_EQ(program.ReadLine(), "912800058 at 127.0.0.1: 0 frames, 0 packets, 0 resent, 0 refused, no host\n");
        EXPECT_EQ(program.Stop(signal).code, 0);
    }
}

} // namespace
