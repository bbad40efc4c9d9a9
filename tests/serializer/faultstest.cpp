// Recordings with what stands beside them, hit by faults at many points: what is listed can be read, what can be read
// is listed, and tovfile says exactly what is not.
#include "hdf5contents.h"
#include "ownmounts.h"
#include "seriesfixture.h"

#include <csignal>
#include <functional>
#include <set>
#include <sstream>

#include <fcntl.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>

namespace {

constexpr int NotAllowed = 77;

struct Case
{
    std::string format;
    TovImageSize size;
    bool folders;             // each frame in one of its own
    int smallest, step, most; // disks, in KB
};
constexpr TovImageSize Small{32, 20}, Large{600, 500}; // through the page cache, and past it
Case const Cases[] = {{"raw", Small, false, 4, 12, 200},     {"raw", Small, true, 1000, 1, 1000},
                      {"tvm", Small, false, 4, 16, 200},     {"avi", Small, false, 100, 28, 400},
                      {"h5", Small, false, 1000, 52, 1500},  {"tvm", Large, false, 300, 172, 2000},
                      {"avi", Large, false, 300, 172, 2000}, {"h5", Large, false, 1300, 220, 3500}};
constexpr int ForAllRows = 700; // KB, of which the table and the list of a series take their part ahead

class FaultsTest : public SeriesTest
{
protected:
    std::string const home = Path("d");

    static Picture FrameOf(Case const &c, unsigned i)
    {
        return Frame(TV_PIXEL_MONO8, c.size, i);
    }
    // As the engine does it. `before` each frame and the end.
    void Record(Case const &c, unsigned frames, std::function<void(unsigned)> const &before = {})
    {
        serializer->SetCompanions(true);
        serializer->SetCompanionHome(home.c_str());
        bool const movie = c.format != "raw";
        Picture const first = FrameOf(c, 0);
        std::int32_t status = movie ? serializer->StartMovie(first.Image(), (home + "/m." + c.format).c_str(), 25)
                                    : serializer->StartImageSeries(first.Image(), "raw");
        unsigned failed = 0; // a movie ends with the first one, a series goes on
        for (unsigned i = 0; i <= frames && status == TOV_SERIALIZER_OK && failed < 5; ++i) {
            if (before)
                before(i);
            std::string const number = std::to_string(i);
            std::string const name = home + '/' + (c.folders ? number + "/f" : "f_" + number) + ".raw";
            if (i < frames && serializer->WriteFrame(FrameOf(c, i).Image(), movie ? nullptr : name.c_str()) != 0)
                failed += movie ? 5 : 1;
        }
        serializer->SetConfiguration("Gain=1\n"); // an h5 takes it into its file at the end
        serializer->Stop();
        if (!*serializer->GetCompanionFolder())
            return;
        std::string const ledger =
            std::string(serializer->GetCompanionFolder()) + '/' + serializer->GetCompanionName() + ".ledger.txt";
        std::ofstream file(ledger + '~');
        if (file << "[Ledger]\nsaved=" << serializer->GetReadableFrames() << '\n' << std::flush)
            fs::rename(ledger + '~', ledger);
        else
            fs::remove(ledger + '~');
    }
    // What others read, each as it was written: positions in a movie, or names.
    std::set<std::string> Found(Case const &c) const
    {
        std::set<std::string> found;
        Bytes pixels;
        std::string const movie = home + "/m." + c.format;
        std::size_t const bytes = std::size_t(c.size.width) * c.size.height;
        if (c.format == "raw") {
            for (auto const &entry : fs::recursive_directory_iterator(home)) {
                std::string const name = entry.path().lexically_relative(home);
                if (!name.ends_with(".raw"))
                    continue;
                found.insert(name);
                unsigned const i = unsigned(std::stoul(name.substr(name.find_first_of("0123456789"))));
                EXPECT_TRUE(ReadFile(entry.path()) == FrameOf(c, i).Lines()) << name;
            }
        } else if (c.format == "avi" && fs::exists(movie)) {
            pixels = Output("ffmpeg -v quiet -nostdin -i " + movie +
                            " -fps_mode passthrough -f rawvideo -pix_fmt gray - || true");
        } else if (c.format == "h5") {
            Contents contents = ReadHdf5(movie);
            if (!contents.opened)
                contents = ReadHdf5(movie, H5F_ACC_RDONLY | H5F_ACC_SWMR_READ);
            if (contents.opened)
                pixels = contents.pixels.substr(0, contents.Frames() * bytes);
        } else if (FrameFileReader reader; reader.Open(movie) == 0) {
            for (FrameFileReader::Frame const &frame : reader.Frames()) {
                pixels.resize(pixels.size() + bytes);
                EXPECT_EQ(reader.Read(frame, pixels.data() + pixels.size() - bytes), 0);
            }
        }
        for (unsigned i = 0; i < pixels.size() / bytes; ++i) {
            found.insert(std::to_string(i));
            EXPECT_TRUE(pixels.compare(i * bytes, bytes, FrameOf(c, i).Lines()) == 0) << i;
        }
        return found;
    }
    // "" where there is none.
    std::string Series() const
    {
        for (auto const &entry : fs::directory_iterator(fs::exists(home) ? home : folder.string())) {
            if (entry.path().extension() == ".series")
                return entry.path().string();
        }
        return "";
    }
    // Returns how many frames are listed by nobody.
    std::size_t Examine(Case const &c)
    {
        std::string const series = Series(), stem = series + '/' + fs::path(series).stem().string();
        auto const found = fs::exists(home) ? Found(c) : std::set<std::string>();
        auto unlisted = found;
        if (!fs::exists(stem + ".frames.csv"))
            return unlisted.size();
        std::istringstream table(ReadFile(stem + ".frames.csv")), ledger(ReadFile(stem + ".ledger.txt"));
        std::string line;
        unsigned rows = 0;
        Row row;
        for (std::getline(table, line); std::getline(table, line) && !table.eof(); ++rows) {
            EXPECT_TRUE(SeriesFiles::Decode(line, row)) << line;
            std::string const listed = row.position ? std::to_string(*row.position) : row.file.substr(3);
            EXPECT_TRUE(found.contains(listed)) << listed;
            unlisted.erase(listed);
        }
        // What it says of the texts alone is compared with nothing.
        std::set<std::string> missing, said, expected;
        Result const check = Tovfile("check " + series);
        bool ofTexts = false;
        for (std::istringstream output(check.output); std::getline(output, line);) {
            line.erase(0, series.size() + 2);
            unsigned first = 0, last = 0;
            if (line.find(" of the movie ") != line.npos &&
                (std::sscanf(line.c_str(), "frames %u to %u", &first, &last) == 2 ||
                 std::sscanf(line.c_str(), "frame %u", &first) == 1)) {
                for (unsigned i = first; i <= std::max(first, last); ++i)
                    missing.insert(std::to_string(i));
            } else if (line.ends_with(" is not listed")) {
                missing.insert(line.substr(0, line.size() - 14));
            } else if (line.find("header") != line.npos || line.find("cut off or") != line.npos ||
                       line.find("first line") != line.npos) {
                ofTexts = true;
            } else if (line.find(" frames listed, ") == line.npos && !line.starts_with("raw series") &&
                       !line.starts_with("table of a movie")) {
                said.insert(line);
            }
        }
        if (!std::getline(ledger, line) || !std::getline(ledger, line))
            expected.insert("the ledger: missing; the recording was not ended");
        else if (line.substr(6) != std::to_string(rows))
            expected.insert("the ledger counts " + line.substr(6) + " saved frames, the table has " +
                            std::to_string(rows));
        EXPECT_EQ(missing, unlisted) << check.output;
        EXPECT_EQ(said, expected) << check.output;
        EXPECT_EQ(check.status, ofTexts || !said.empty() || !missing.empty()) << check.output;
        return unlisted.size();
    }
};

TEST_F(FaultsTest, FullDisk)
{
    int const status = InChild([this] {
        if (!EnterOwnMounts())
            return NotAllowed;
        fs::create_directory(home);
        for (Case const &c : Cases) {
            for (int room = c.smallest; room <= c.most; room += c.step) {
                SCOPED_TRACE(testing::Message() << c.format << ' ' << c.size.width << " in " << room << " KB");
                if (mount("none", home.c_str(), "tmpfs", 0, ("size=" + std::to_string(room) + "k").c_str()) != 0)
                    return NotAllowed;
                Record(c, 3000);
                std::size_t const unlisted = Examine(c);
                std::int64_t const readable = serializer->GetReadableFrames();
                EXPECT_TRUE(readable < 0 || readable == std::int64_t(Found(c).size())) << readable;
                // What is not listed is told, and happens to small disks alone.
                EXPECT_TRUE(unlisted == 0 || *serializer->GetCompanionFailure());
                EXPECT_TRUE(unlisted == 0 || room < ForAllRows);
                umount(home.c_str());
            }
        }
        return int(HasFailure());
    });
    if (status == NotAllowed)
        GTEST_SKIP() << "no file system of our own here";
    EXPECT_EQ(status, 0);
}

bool ChangesFiles(__ptrace_syscall_info const &info)
{
    static std::set<std::uint64_t> const Calls{SYS_write,     SYS_pwrite64, SYS_pwritev, SYS_ftruncate,
                                               SYS_fallocate, SYS_linkat,   SYS_mkdirat, SYS_renameat,
#ifdef SYS_mkdir
                                               SYS_mkdir,     SYS_rename
#endif
    };
    return Calls.contains(info.entry.nr) || (info.entry.nr == SYS_openat && (info.entry.args[2] & O_CREAT));
}

// Whether the child was killed just before its call number `n` of those; otherwise it has come to its end.
bool IsKilledAt(unsigned n, std::function<void()> const &work)
{
    pid_t const child = fork();
    if (child == 0) {
        ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
        raise(SIGSTOP);
        work();
        _exit(0);
    }
    int status = 0;
    waitpid(child, &status, WUNTRACED);
    if (ptrace(PTRACE_SETOPTIONS, child, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL) != 0) {
        kill(child, SIGKILL);
        waitpid(child, &status, 0);
        return false;
    }
    for (unsigned calls = 0; WIFSTOPPED(status);) {
        __ptrace_syscall_info info{};
        if (WSTOPSIG(status) == (SIGTRAP | 0x80))
            ptrace(PTRACE_GET_SYSCALL_INFO, child, sizeof info, &info);
        if (info.op == PTRACE_SYSCALL_INFO_ENTRY && ChangesFiles(info) && calls++ == n)
            kill(child, SIGKILL);
        else
            ptrace(PTRACE_SYSCALL, child, nullptr, nullptr);
        waitpid(child, &status, 0);
    }
    return WIFSIGNALED(status);
}

TEST_F(FaultsTest, KilledAtEveryCallThatChangesFiles)
{
    constexpr unsigned Frames = 3;
    for (Case const &c : Cases) {
        unsigned n = 0;
        for (bool killed = true; killed && !HasFailure(); ++n) {
            SCOPED_TRACE(testing::Message() << c.format << ' ' << c.size.width << " killed at " << n);
            fs::remove_all(home);
            killed = IsKilledAt(n, [&] { Record(c, Frames); });
            std::size_t const unlisted = Examine(c);
            EXPECT_TRUE(killed || unlisted == 0);
            // One frame comes before what stands beside a series.
            EXPECT_TRUE(!Series().empty() || unlisted <= (c.format == "raw"));
        }
        if (n == 1)
            GTEST_SKIP() << "no process can be traced here";
    }
}

TEST_F(FaultsTest, DeletedFolders)
{
    constexpr unsigned Frames = 4;
    for (Case const &c : Cases) {
        for (unsigned at = 0; at <= Frames; ++at) {
            for (bool const all : {false, true}) {
                SCOPED_TRACE(testing::Message() << c.format << ' ' << c.size.width << " at " << at << ' ' << all);
                fs::remove_all(home);
                Record(c, Frames, [&](unsigned i) {
                    if (i == at)
                        fs::remove_all(all ? home : Series());
                });
                EXPECT_LE(Examine(c), at);
                std::string const told = serializer->GetCompanionFailure();
                EXPECT_EQ(told.find("deleted while it was being written") != told.npos, at > 0 || c.format != "raw");
            }
        }
    }
}

} // namespace
