#include "outfile.h"

#include "serializerfixture.h"

#include <csignal>

#include <fcntl.h>

namespace {

// Whether this process has it open for writes past the page cache.
bool IsOpenDirect(std::string const &path)
{
    for (auto const &entry : fs::directory_iterator("/proc/self/fd")) {
        std::error_code gone;
        if (fs::read_symlink(entry.path(), gone) != path)
            continue;
        std::ifstream info("/proc/self/fdinfo/" + entry.path().filename().string());
        for (std::string word; info >> word;) {
            if (word == "flags:" && info >> word)
                return (std::stoi(word, nullptr, 8) & O_DIRECT) != 0;
        }
    }
    return false;
}

using OutFileTest = SerializerTest;

// A head that is flushed before the first frame, and corrected later.
TEST_F(OutFileTest, GoesOnPastThePageCacheBehindAnUnalignedFlush)
{
    std::string const path = fs::weakly_canonical(Path("f.bin")).string(), head(6000, 'h');
    OutFile file;
    ASSERT_EQ(file.CreateVisible(path, OutFile::Road::Direct), 0);
    if (!IsOpenDirect(path))
        GTEST_SKIP() << "this file system has no direct writes";
    ASSERT_EQ(file.Append(head.data(), head.size()), 0);
    ASSERT_EQ(file.Flush(), 0);
    ASSERT_EQ(file.WriteAt(20, head.data(), 10), 0);
    EXPECT_TRUE(IsOpenDirect(path));
    EXPECT_EQ(file.Close(), 0);
}

// Appends and changes of all sizes, against the same done in memory.
TEST_F(OutFileTest, HoldsWhatWasWrittenOnEveryRoad)
{
    std::vector<std::uint8_t> memory(3 << 20);
    std::mt19937 random(3);
    for (std::uint8_t &byte : memory)
        byte = std::uint8_t(random());
    OutFile file;
    for (OutFile::Road const road : {OutFile::Road::Direct, OutFile::Road::Cached}) {
        for (OutFile::Birth const birth : {OutFile::Birth::Unnamed, OutFile::Birth::Beside}) {
            for (int round = 0; round < 30; ++round) {
                std::string const path = Path("f.bin");
                Bytes expected;
                bool const visible = round % 3 == 0;
                ASSERT_EQ(visible ? file.CreateVisible(path, road) : file.CreateHidden(path, 4 << 20, road, birth), 0);
                EXPECT_EQ(fs::exists(path), visible);
                for (int step = 0; step < 12; ++step) {
                    std::size_t const size = random() % (step % 3 ? 9000 : 2 << 20),
                                      from = random() % 4096 * (step % 2);
                    auto const *bytes = reinterpret_cast<char const *>(memory.data()) + from;
                    std::size_t const at = random() % (expected.size() + 5000);
                    switch (random() % 5) {
                    case 0:
                        expected.resize(std::max(expected.size(), at + size));
                        expected.replace(at, size, bytes, size);
                        ASSERT_EQ(file.WriteAt(at, bytes, size), 0);
                        break;
                    case 1:
                        ASSERT_EQ(file.Flush(), 0);
                        break;
                    case 2:
                        if (round % 2 && at < expected.size()) {
                            expected.resize(at);
                            ASSERT_EQ(file.CutTo(at), 0);
                        }
                        ASSERT_EQ(file.Reserve(size), 0);
                        break;
                    default:
                        expected.append(bytes, size);
                        ASSERT_EQ(file.Append(bytes, size), 0);
                    }
                    ASSERT_EQ(file.Size(), expected.size());
                }
                ASSERT_EQ(visible ? file.Close() : file.Publish(), 0);
                ASSERT_TRUE(ReadFile(path) == expected) << int(road) << int(birth) << " round " << round;
                fs::remove(path);
            }
        }
    }
    EXPECT_EQ(file.CreateHidden(Path("gone"), 10, OutFile::Road::Direct, OutFile::Birth::Beside), 0);
    EXPECT_EQ(Files(folder), 1);
    file.Abandon();
    EXPECT_EQ(Files(folder), 0);
}

// Of a killed process; not of one that lives, nor what other machines and programs have there.
TEST_F(OutFileTest, RemovesWhatTheDeadLeftUnderTemporaryNames)
{
    auto const begin = [this](OutFile &file, char const *name) {
        return file.CreateHidden(Path(name), 1, OutFile::Road::Cached, OutFile::Birth::Beside);
    };
    OutFile living, file;
    ASSERT_EQ(begin(living, "file.raw"), 0);
    std::string const ours = fs::directory_iterator(folder)->path().filename();
    for (std::size_t const at : {ours.find('-') + 1, ours.rfind('-') - 1}) { // another machine; a number used again
        std::string other = ours;
        other[at] = other[at] == '0' ? '1' : '0';
        std::ofstream(Path(other)) << "x";
    }
    for (char const *name : {".tov-.part", ".tov-1-2.part", ".tov-a-b-c-d.part"})
        std::ofstream(Path(name)) << "x";
    EXPECT_EQ(InChild([&] { return begin(file, "dead") == 0 ? raise(SIGKILL) : 1; }), -1);
    // The child has removed the one with our number and another start, and left its own.
    EXPECT_EQ(Files(folder), 6);
    ASSERT_EQ(begin(file, "file.raw"), 0);
    EXPECT_EQ(Files(folder), 6);
    EXPECT_EQ(living.Publish(), 0);
    EXPECT_EQ(file.Publish(), 0);
    EXPECT_EQ(Files(folder), 6);
    EXPECT_TRUE(fs::exists(Path("file.raw")));
    EXPECT_TRUE(fs::exists(Path("file_1.raw"))); // nothing is replaced
}

} // namespace
