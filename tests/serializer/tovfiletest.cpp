// tovfile on recordings with a table, its files read back by other programs.
#include "seriesfixture.h"

#include <csignal>
#include <functional>
#include <thread>

namespace {

constexpr std::uint32_t MONO12PACKED = 0x010C1308;

class TovfileTest : public SeriesTest
{
protected:
    static constexpr TovImageSize size{64, 48};

    void Edit(std::string const &name, std::string const &from, std::string const &to)
    {
        Bytes bytes = ReadFile(Path(name));
        std::size_t const at = bytes.find(from);
        ASSERT_NE(at, Bytes::npos) << from;
        Write(name, bytes.replace(at, from.size(), to));
    }
};

TEST_F(TovfileTest, ExportsMoviesWithEveryCodec)
{
    MakeSeries("s", MONO12PACKED, size, 5);
    for (std::string const codec : {"Uncompressed", "MJPEG", "FFV1", "H.264"}) {
        Result const result = Tovfile("export -f avi -o out -q 90 -r 1- -c '" + codec + "' s_0.series");
        EXPECT_EQ(result.status, 0) << result.output;
        EXPECT_EQ(Probe(folder / "out/s_0.avi", "nb_read_frames"), "4") << codec;
        EXPECT_EQ(Probe(folder / "out/s_0.avi", "r_frame_rate"), "50/1"); // by the times of arrival
        fs::remove_all(folder / "out");
    }
    EXPECT_NE(Tovfile("export -f avi -c Nonsense s_0.series").output.find("FFV1"), std::string::npos);
    EXPECT_EQ(Tovfile("export -f tvm -s 12.5 s_0.series").status, 0);
    FrameFileReader reader;
    ASSERT_EQ(reader.Open(Path("s_0.tvm")), 0);
    EXPECT_EQ(reader.Movie().rate * 2, reader.Movie().scale * 25);
    ASSERT_EQ(reader.Frames().size(), 5u);
    Picture const third = Frame(MONO12PACKED, size, 2);
    Bytes pixels(reader.Frames()[2].header.pixelBytes, 0);
    EXPECT_EQ(reader.Read(reader.Frames()[2], pixels.data()), 0);
    EXPECT_TRUE(pixels == third.Lines());
    EXPECT_EQ(reader.Frames()[2].header.frameId, third.Image()->frameID);
    EXPECT_EQ(reader.Frames()[2].header.timestamp, third.Image()->timestamp);
    // Nothing is overwritten.
    EXPECT_EQ(Tovfile("export -f tvm s_0.series").status, 0);
    EXPECT_TRUE(fs::exists(Path("s_0_1.tvm")));
    EXPECT_EQ(Tovfile("export -f raw s_0.series").status, 0);
    EXPECT_TRUE(ReadFile(Path("s_4_1.raw")) == Frame(MONO12PACKED, size, 4).Lines());
}

TEST_F(TovfileTest, CheckSaysExactlyWhatIsWrong)
{
    std::string const table = "s_0.series/s_0.frames.csv", header = "s_0.series/s_0.nhdr",
                      ledger = "s_0.series/s_0.ledger.txt";
    auto const remove = [this](std::string const &name) {
        return [=, this] {
            fs::remove(Path(name));
        };
    };
    auto const shorten = [this](std::string const &name, unsigned bytes) {
        return [=, this] {
            fs::resize_file(Path(name), fs::file_size(Path(name)) - bytes);
        };
    };
    auto const add = [this](std::string const &name, unsigned bytes) {
        return [=, this] {
            Write(name, Bytes(bytes, 0));
        };
    };
    auto const edit = [this](std::string const &name, std::string const &from, std::string const &to) {
        return [=, this] {
            Edit(name, from, to);
        };
    };
    struct
    {
        char const *what; // is said; empty: nothing is wrong
        std::function<void()> harm;
    } const cases[] = {
        {"frame 2: ../s_2.raw: missing", remove("s_2.raw")},
        {"frame 2: ../s_2.raw: has 3000 bytes instead of 3072", shorten("s_2.raw", 72)},
        {"s_17.raw is not listed", add("s_17.raw", 3072)},
        {"", add("s_17.raw", 3000)}, // of another size,
        {"", add("t_17.raw", 3072)}, // or of another name: somebody else's
        {"",
         [this] {
             MakeSeries("s_7", TV_PIXEL_MONO8, size, 2);
         }}, // listed by another recording
        {"line 5 of the table is not whole", shorten(table, 9)},
        {"the header counts 4 frames, the table has 3", shorten(table, 9)},
        {"line 3 of the table cannot be read", edit(table, "1,../s_1.raw", "one,../s_1.raw")},
        {"the header counts 3 frames, the table has 4",
         edit(header, SeriesFiles::NrrdCount(4), SeriesFiles::NrrdCount(3))},
        {"the header lists 3 frames, the table 4", edit(header, "../s_3.raw\n", "")},
        {"frame 1: the header lists ../s_2.raw instead of ../s_1.raw", edit(header, "../s_1.raw\n", "")},
        {"the header: missing", remove(header)},
        {"the table: missing", remove(table)},
        {"the ledger: missing; the recording was not ended", remove(ledger)},
        {"the ledger counts 5 saved frames, the table has 4", edit(ledger, "saved=4", "saved=5")},
        {"the ledger does not tell how many frames were saved", edit(ledger, "saved=4", "saved=")},
        {"frame 1: ../../s_1.raw: refused", edit(table, "../s_1.raw", "../../s_1.raw")},
        {"frame 1: /etc/??[31mpasswd: refused", edit(table, "../s_1.raw", "/etc/\x01\x1b[31mpasswd")},
        {"a file is listed more than once", edit(table, "../s_1.raw", "../s_2.raw")},
        {"frame 9 stands where frame 2 should", edit(table, "2,../s_2.raw", "9,../s_2.raw")},
    };
    for (auto const &[what, harm] : cases) {
        SetUp();
        MakeSeries("s", TV_PIXEL_MONO8, size, 4);
        harm();
        Result const result = Tovfile("check s_0.series");
        EXPECT_NE(result.output.find(what), std::string::npos) << what << '\n' << result.output;
        EXPECT_EQ(result.status, *what ? 1 : 0) << result.output;
    }
    SetUp(); // frames that the camera never brought are no fault of the files
    MakeSeries("s", TV_PIXEL_MONO8, size, 4);
    Edit(table, ",0,0,0,\n3,", ",1,77,5,network\n3,");
    Result const result = Tovfile("check s_0.series");
    EXPECT_NE(result.output.find("frame 2: 5 frames are missing before it, lost by: network"), std::string::npos)
        << result.output;
    EXPECT_NE(result.output.find("4 frames listed, 1 of them incomplete; 1 gaps of 5 frames in all"), std::string::npos)
        << result.output;
    EXPECT_EQ(result.status, 0);
    EXPECT_NE(Tovfile("list s_0.series").output.find("-77 bytes"), std::string::npos);
}

TEST_F(TovfileTest, ChecksMoviesByTheirTables)
{
    for (std::string const &extension : {std::string("tvm"), std::string("avi"), std::string("h5")}) {
        std::string const file = "m." + extension, table = "m.series/m.frames.csv";
        SetUp();
        std::string rows = SeriesFiles::TableHead();
        Record(Path(file), TV_PIXEL_MONO8, size, 3, 10);
        serializer->Stop();
        for (unsigned i = 0; i < 3; ++i) {
            Row row = RowOf(Frame(TV_PIXEL_MONO8, size, i), i, "../" + file);
            row.position = i;
            rows += SeriesFiles::Encode(row);
        }
        fs::create_directory(Path("m.series"));
        Write(table, rows);
        Write("m.series/m.ledger.txt", "[Ledger]\nsaved=3\n");
        EXPECT_EQ(Tovfile("check m.series").status, 0) << Tovfile("check m.series").output;
        EXPECT_EQ(Tovfile("export -f raw -o out -r 2 m.series").status, extension == "tvm" ? 0 : 1);
        if (extension == "tvm") {
            EXPECT_TRUE(ReadFile(Path("out/m_000002.raw")) == Frame(TV_PIXEL_MONO8, size, 2).Lines());
            Edit(table, ",2,1002,", ",2,1003,");
            EXPECT_NE(Tovfile("check m.series").output.find("frame 1: the movie has the id 2 and the timestamp 1002"),
                      std::string::npos);
        }
        Write(table, rows.substr(0, rows.rfind('\n', rows.size() - 2) + 1));
        Write("m.series/m.ledger.txt", "[Ledger]\nsaved=2\n");
        EXPECT_NE(Tovfile("check m.series").output.find("frame 2 of the movie is not listed"), std::string::npos);
    }
}

TEST_F(TovfileTest, ImportsWhatItExported)
{
    for (std::uint32_t const type : {std::uint32_t(TV_PIXEL_MONO8), MONO12PACKED, std::uint32_t(TV_PIXEL_MONO16),
                                     std::uint32_t(TV_PIXEL_BGR8), std::uint32_t(TV_PIXEL_RGB10)}) {
        SetUp();
        MakeSeries("s", type, {641, 479}, 3);
        ASSERT_EQ(Tovfile("export -f tif -o tif s_0.series").status, 0);
        Result const import = Tovfile("import -o raw tif/s_0.tif tif/s_1.tif tif/s_2.tif");
        ASSERT_EQ(import.status, 0) << import.output;
        Result const check = Tovfile("check raw/s_0.series");
        EXPECT_EQ(check.status, 0) << check.output;
        EXPECT_NE(check.output.find("3 frames listed"), std::string::npos) << check.output;
        TovPixelTypeInfo const &info = *TovGetPixelTypeInfo(type);
        std::uint32_t const target = UnpackedOfDepth(info.family != TOV_FAMILY_MONO, info.bitDepth);
        EXPECT_NE(check.output.find(TovGetPixelTypeInfo(target)->name), std::string::npos) << check.output;
        EXPECT_TRUE(ReadFile(Path("raw/s_2.raw")) == Frame(type, {641, 479}, 2).LinesAs(target));
    }
    if (!Has("tiffcp"))
        GTEST_SKIP() << "no tiffcp here to make files as other programs do";
    // A stack, compressed and of another byte order; what is not a picture that we can hold is told.
    Output("cd '" + folder.string() + "/tif' && tiffcp -B -c lzw s_0.tif s_1.tif stack.tif && tiffcp -t s_0.tif t.tif");
    Write("tif/x.tif", "II*");
    MakeSeries("small", TV_PIXEL_MONO8, {3, 5}, 1);
    ASSERT_EQ(Tovfile("export -f tif -o tif small_0.series").status, 0);
    Result const import = Tovfile("import -o stack tif/stack.tif tif/t.tif tif/x.tif tif/small_0.tif");
    EXPECT_EQ(import.status, 1);
    for (char const *told : {"t.tif: only pictures", "x.tif: ", "small_0.tif: The picture's size", ": 2 frames"})
        EXPECT_NE(import.output.find(told), std::string::npos) << told << '\n' << import.output;
    EXPECT_TRUE(ReadFile(Path("stack/stack_000001.raw")) ==
                Frame(TV_PIXEL_RGB10, {641, 479}, 1).LinesAs(TV_PIXEL_RGB10));
    EXPECT_EQ(Tovfile("check stack/*.series").status, 0);
}

TEST_F(TovfileTest, AFrameStandsForItsRecordingOnce)
{
    MakeSeries("s", TV_PIXEL_MONO8, size, 12);
    MakeSeries("t", TV_PIXEL_MONO8, size, 3);
    Write("u.raw", "of nobody");
    Result const result = Tovfile("export -f tif -o out *.raw s_0.series ./s_3.raw");
    EXPECT_EQ(result.status, 1) << result.output;
    EXPECT_NE(result.output.find("u.raw: not a tvi or tvm file"), std::string::npos) << result.output;
    EXPECT_EQ(Files(folder / "out"), 15);
}

TEST_F(TovfileTest, RefusesWrongArguments)
{
    for (char const *arguments :
         {"", "list", "show s", "export", "export -f", "export -f bmp s", "export -r x s", "export -r 1-x s",
          "export -q 101 s", "export -s 0 s", "export -x 1 s", "export -o '' s", "import", "import -f tif s"})
        EXPECT_EQ(Tovfile(arguments).status, 2) << arguments;
    EXPECT_EQ(Tovfile("list nothing.series").status, 1);
}

TEST_F(TovfileTest, AnInterruptedExportEndsWithWhatIsWhole)
{
    // So many rows that it cannot be done before it is interrupted: the same file, again and again.
    MakeSeries("s", TV_PIXEL_MONO8, {1920, 1080}, 1);
    std::string table = SeriesFiles::TableHead();
    for (unsigned i = 0; i < 5'000; ++i)
        table += SeriesFiles::Encode(RowOf(Frame(TV_PIXEL_MONO8, {1, 1}, i), i, "../s_0.raw"));
    Write("s_0.series/s_0.frames.csv", table);
    pid_t const child = fork();
    if (child == 0) {
        std::freopen("/dev/null", "w", stdout);
        std::freopen("/dev/null", "w", stderr);
        execl(TOVFILE, TOVFILE, "export", "-f", "tvm", "-o", folder.c_str(), Path("s_0.series").c_str(), nullptr);
        _exit(99);
    }
    std::error_code none;
    while (fs::file_size(Path("s_0.tvm"), none) < 5'000'000 || none) {
        ASSERT_EQ(waitpid(child, nullptr, WNOHANG), 0);
        std::this_thread::yield();
    }
    kill(child, SIGINT);
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 1);
    FrameFileReader reader;
    ASSERT_EQ(reader.Open(Path("s_0.tvm")), 0);
    EXPECT_TRUE(reader.IsComplete());
    EXPECT_LT(reader.Frames().size(), 5'000u);
}

// A limit on the size of files, on which the file system refuses as a full one does.
TEST_F(TovfileTest, AnExportWithoutRoomKeepsWhatFitted)
{
    MakeSeries("s", TV_PIXEL_MONO8, {1000, 700}, 6);
    std::string const output =
        Output("cd '" + folder.string() +
               "' && bash -c \"trap '' XFSZ; ulimit -f 2000; '" TOVFILE "' export -f tvm s_0.series 2>&1; echo \\$?\"");
    EXPECT_NE(output.find("frame 2: not written: The file has become too large"), std::string::npos) << output;
    EXPECT_EQ(output.find("frame 3"), std::string::npos) << output;
    EXPECT_TRUE(output.ends_with("\n1\n")) << output;
    EXPECT_EQ(FramesIn(Path("s_0.tvm")), 2);
    EXPECT_EQ(Tovfile("check s_0.tvm").status, 0);
}

TEST_F(TovfileTest, ShowsProgressOnATerminalAlone)
{
    if (!Has("script"))
        GTEST_SKIP() << "no script(1) here to be a terminal";
    MakeSeries("s", TV_PIXEL_MONO8, size, 4);
    EXPECT_EQ(Tovfile("check s_0.series").output.find("%"), std::string::npos);
    std::string const shown =
        Output("cd '" + folder.string() + "' && script -qec \"'" TOVFILE "' check s_0.series\" /dev/null </dev/null");
    EXPECT_NE(shown.find(" of 4 frames"), std::string::npos) << shown;
}

} // namespace
