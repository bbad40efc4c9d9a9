// HDF5 files, read by the HDF5 library as any program does, and by h5py while they grow.
#include "hdf5contents.h"
#include "hdf5file.h"
#include "serializerfixture.h"

#include <libdeflate.h>

#include <cerrno>
#include <cmath>
#include <vector>

#include <sys/socket.h>

namespace {

class Hdf5Test : public SerializerTest
{
protected:
    // Frame `i`, different from all others.
    static Picture Frame(unsigned i, std::uint32_t type = TV_PIXEL_MONO8, TovImageSize size = {900, 700})
    {
        return {type, size.width, size.height, i + 1};
    }
    int Append(unsigned i)
    {
        return file.Append(*Frame(i).Image(), {});
    }
    void Open(std::string const &path, unsigned frames)
    {
        ASSERT_EQ(file.Open(path, *Frame(0).Image(), {}), 0);
        for (unsigned i = 0; i < frames; ++i)
            ASSERT_EQ(Append(i), 0);
    }
    // The frames that all datasets have are those that Frame gives; their number, -1 for what is no HDF5 file.
    static int Readable(std::string const &path, unsigned how = H5F_ACC_RDONLY)
    {
        auto const found = ReadHdf5(path, how);
        if (!found.opened)
            return -1;
        unsigned const frames = unsigned(found.Frames());
        Bytes expected;
        for (unsigned i = 0; i < frames; ++i) {
            expected += Frame(i).Lines();
            EXPECT_EQ(found.ids[i], i + 1);
        }
        EXPECT_TRUE(found.pixels.compare(0, expected.size(), expected) == 0) << path;
        return int(frames);
    }
    Hdf5File file;
};

TEST_F(Hdf5Test, KeepsWhatIsKnownOfEachFrame)
{
    constexpr unsigned Frames = 5000; // more than a chunk of the columns
    file.SetConfiguration("at the start");
    Picture const picture(TV_PIXEL_MONO8, 2, 2);
    ASSERT_EQ(file.Open(Path("x.h5"), *picture.Image(), {.rate = 25}), 0);
    for (std::uint64_t i = 0; i < Frames; ++i) {
        picture.Image()->frameID = ~i;
        picture.Image()->timestamp = i << 40;
        TovFrameNote facts;
        if (i % 3)
            facts = {std::int64_t(i) - 7, double(i) / 4, -double(i), i % 3 == 1, i, i + 1};
        ASSERT_EQ(file.Append(*picture.Image(), facts), 0);
    }
    EXPECT_EQ(ReadHdf5(Path("x.h5"), H5F_ACC_RDONLY | H5F_ACC_SWMR_READ).configuration, "at the start");
    Bytes const configuration(300'000, 'c'); // larger than any block of the file
    file.SetConfiguration(configuration);
    ASSERT_EQ(file.Close(), 0);
    EXPECT_EQ(file.ReadableFrames(), Frames);
    auto const found = ReadHdf5(Path("x.h5"));
    ASSERT_TRUE(found.opened);
    ASSERT_EQ(found.Frames(), Frames);
    EXPECT_EQ(found.configuration, configuration);
    for (std::uint64_t i = 0; i < Frames; ++i) {
        EXPECT_EQ(found.ids[i], ~i);
        EXPECT_EQ(found.timestamps[i], i << 40);
        EXPECT_EQ(found.arrivals[i], i % 3 ? std::int64_t(i) - 7 : 0);
        if (i % 3 == 0)
            EXPECT_TRUE(std::isnan(found.exposures[i]) && std::isnan(found.gains[i]));
        else
            EXPECT_TRUE(found.exposures[i] == double(i) / 4 && found.gains[i] == -double(i));
        EXPECT_EQ(found.incomplete[i], i % 3 == 1);
        EXPECT_EQ(found.missing[i], i % 3 ? i : 0);
        EXPECT_EQ(found.gaps[i], i % 3 ? i + 1 : 0);
    }
}

// Whether there are companions or not. A frame that could not be written is part of the gap.
TEST_F(Hdf5Test, MovieOfTheSerializerKeepsWhatItIsTold)
{
    for (bool const companions : {false, true}) {
        serializer->SetCompanions(companions);
        serializer->SetConfiguration("of the next movie");
        ASSERT_EQ(serializer->StartMovie(Frame(0).Image(), Path("m.h5").c_str(), 25), TOV_SERIALIZER_OK);
        for (unsigned i = 0; i < 4; ++i) {
            serializer->NoteFrame({.arrival = 70 + i,
                                   .exposure = 0.5,
                                   .incomplete = i == 3,
                                   .gapBefore = i,
                                   .lossCause = i == 3 ? "network+recording" : ""});
            Picture const frame = Frame(i, TV_PIXEL_MONO8, i == 2 ? TovImageSize{9, 9} : TovImageSize{900, 700});
            EXPECT_EQ(serializer->WriteFrame(frame.Image(), nullptr),
                      i == 2 ? TOV_SERIALIZER_ERR_ARGUMENT : TOV_SERIALIZER_OK);
        }
        if (companions)
            serializer->SetConfiguration("of this movie");
        EXPECT_EQ(serializer->Stop(), TOV_SERIALIZER_OK);
        auto const found = ReadHdf5(Path("m.h5"));
        ASSERT_TRUE(found.opened);
        EXPECT_EQ(found.arrivals, (std::vector<std::int64_t>{70, 71, 73}));
        EXPECT_EQ(found.exposures, std::vector<double>(3, 0.5));
        EXPECT_EQ(found.incomplete, (std::vector<std::uint64_t>{0, 0, 1}));
        EXPECT_EQ(found.gaps, (std::vector<std::uint64_t>{0, 1, 2 + 1 + 3}));
        EXPECT_EQ(found.causes, (std::vector<std::string>{"", "", "network+recording"}));
        EXPECT_EQ(found.configuration, companions ? "of this movie" : "of the next movie");
        fs::remove(Path("m.h5"));
    }
}

TEST_F(Hdf5Test, MovieOfTheSerializerMayBeEmptyAndTakesAFreeName)
{
    for (char const *name : {"m.h5", "m_1.h5"}) {
        ASSERT_EQ(serializer->StartMovie(Frame(0).Image(), Path("m.h5").c_str(), 25), TOV_SERIALIZER_OK);
        EXPECT_EQ(serializer->Stop(), TOV_SERIALIZER_OK);
        auto const found = ReadHdf5(Path(name));
        ASSERT_TRUE(found.opened);
        EXPECT_EQ(found.extent, (std::vector<hsize_t>{0, 700, 900}));
    }
}

// A program of which a line is asked, and one read, at a time.
class Talk
{
public:
    explicit Talk(std::vector<char const *> words)
    {
        int ends[2];
        socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends);
        m_child = fork();
        if (m_child == 0) {
            dup2(ends[1], 0);
            dup2(ends[1], 1);
            words.push_back(nullptr);
            execvp(words[0], const_cast<char **>(words.data()));
            _exit(127);
        }
        close(ends[1]);
        m_stream = ends[0];
    }
    ~Talk()
    {
        close(m_stream);
        waitpid(m_child, nullptr, 0);
    }
    std::string Ask()
    {
        std::string line;
        char c = '\n';
        if (write(m_stream, &c, 1) == 1) {
            while (read(m_stream, &c, 1) == 1 && c != '\n')
                line += c;
        }
        return line;
    }

private:
    pid_t m_child = -1;
    int m_stream = -1;
};

TEST_F(Hdf5Test, GrowsBeforeTheEyesOfH5py)
{
    // Debian's own, which has Debian's packages.
    char const *const python = "/usr/bin/python3";
    if (std::system("/usr/bin/python3 -c 'import h5py' 2>/dev/null") != 0)
        GTEST_SKIP() << "no h5py here (python3-h5py): nothing has followed a file while it grew";
    Open(Path("x.h5"), 3);
    ASSERT_EQ(file.Flush(), 0);
    char const *const script = "import h5py, sys, zlib\n"
                               "file = h5py.File(sys.argv[1], 'r', swmr=True)\n"
                               "frames, ids = file['frames'], file['frame_id']\n"
                               "for _ in sys.stdin:\n"
                               "    frames.refresh(); ids.refresh()\n"
                               "    check = zlib.crc32(frames[-1].tobytes())\n"
                               "    print(len(frames), len(ids), ids[-1], check, flush=True)\n";
    Talk reader({python, "-c", script, Path("x.h5").c_str()});
    auto const answer = [](unsigned frames) {
        Bytes const last = Frame(frames - 1).Lines();
        return std::to_string(frames) + " " + std::to_string(frames) + " " + std::to_string(frames) + " " +
               std::to_string(libdeflate_crc32(0, last.data(), last.size()));
    };
    EXPECT_EQ(reader.Ask(), answer(3));
    for (unsigned frames = 3; frames < 40;) {
        for (unsigned const end = frames + 6; frames < end; ++frames)
            ASSERT_EQ(Append(frames), 0);
        ASSERT_EQ(file.Flush(), 0);
        EXPECT_EQ(reader.Ask(), answer(frames));
    }
    file.SetConfiguration("the camera's");
    ASSERT_EQ(file.Close(), 0);
    EXPECT_EQ(reader.Ask(), answer(45)) << "after the end";
    EXPECT_EQ(Readable(Path("x.h5")), 45);
}

// The child is killed behind a flush, with frames that have not been flushed.
TEST_F(Hdf5Test, KilledWriterLeavesWhatWasFlushed)
{
    std::string const path = Path("x.h5");
    EXPECT_EQ(InChild([&] {
                  Open(path, 7);
                  EXPECT_EQ(file.Flush(), 0);
                  for (unsigned i = 7; i < 10; ++i)
                      EXPECT_EQ(Append(i), 0);
                  return HasFailure() ? 2 : raise(SIGKILL);
              }),
              -1);
    EXPECT_GE(Readable(path, H5F_ACC_RDONLY | H5F_ACC_SWMR_READ), 7);
    EXPECT_EQ(Readable(path), -1) << "the docs say that it cannot be opened like this";
    if (std::system(("h5clear -s " + path + " 2>/dev/null").c_str()) != 0)
        GTEST_SKIP() << "no h5clear here (hdf5-tools): nothing has cleared the mark of the writer";
    EXPECT_GE(Readable(path), 7);
}

TEST_F(Hdf5Test, DeletedFileHasNoFrames)
{
    Open(Path("gone/x.h5"), 2);
    EXPECT_FALSE(file.IsLost());
    fs::remove_all(Path("gone"));
    EXPECT_TRUE(file.IsLost());
    EXPECT_NE(file.Close(), 0);
    EXPECT_EQ(file.ReadableFrames(), 0);
}

// As where room cannot be taken ahead.
TEST_F(Hdf5Test, FrameThatFailsLeavesNoTrace)
{
    Open(Path("x.h5"), 3);
    {
        FileSizeLimit const limit(4096);
        EXPECT_EQ(Append(3), EFBIG);
    }
    EXPECT_EQ(Append(3), 0);
    EXPECT_EQ(Append(4), 0);
    EXPECT_EQ(file.Close(), 0);
    EXPECT_EQ(Readable(Path("x.h5")), 5);
    EXPECT_EQ(ReadHdf5(Path("x.h5")).extent[0], 5u);
}

// A disk that takes nothing from one moment on, the library's tables least of all.
TEST_F(Hdf5Test, BrokenDiskKeepsWhatWasFlushed)
{
    for (rlim_t const limit : {0, 1000, 4096, 100'000}) {
        std::string const path = Path("x.h5");
        EXPECT_EQ(InChild([&] {
                      Open(path, 5);
                      EXPECT_EQ(file.Flush(), 0);
                      EXPECT_EQ(Append(5), 0);
                      EXPECT_EQ(Append(6), 0);
                      FileSizeLimit const none(limit);
                      EXPECT_EQ(Append(7), EFBIG);
                      EXPECT_EQ(file.Flush(), EFBIG);
                      EXPECT_EQ(Append(8), EFBIG);
                      EXPECT_EQ(file.Close(), EFBIG);
                      EXPECT_GE(file.ReadableFrames(), 5);
                      return HasFailure() ? 2 : 0;
                  }),
                  0);
        EXPECT_GE(Readable(path, H5F_ACC_RDONLY | H5F_ACC_SWMR_READ), 5) << limit;
        fs::remove(path);
    }
}

} // namespace
