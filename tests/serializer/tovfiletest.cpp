// tovfile on recordings with a table, its files read back by other programs.
#include "seriesfixture.h"

#include <csignal>
#include <cstdlib>
#include <functional>
#include <set>
#include <sstream>
#include <thread>
#include <tuple>

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
    static bool Has(char const *program)
    {
        return std::system(("command -v " + std::string(program) + " >/dev/null").c_str()) == 0;
    }
};

// One of each way to lay out samples.
std::vector<std::uint32_t> OneOfEachLayout()
{
    std::vector<std::uint32_t> types;
    std::set<std::tuple<int, int, int, int>> seen;
    for (std::uint32_t row = 0; row < TOV_PIXEL_TYPE_ROWS; ++row) {
        TovPixelTypeInfo const *info = TovGetPixelTypeInfoByRow(row);
        if (seen.emplace(info->family, info->packing, info->bitDepth, info->channels).second)
            types.push_back(info->pixelType);
    }
    return types;
}

std::uint32_t Unpacked(TovPixelTypeInfo const &info)
{
    static constexpr std::uint32_t Grey[] = {TV_PIXEL_MONO8, TV_PIXEL_MONO10, TV_PIXEL_MONO12, 0x0110040A,
                                             TV_PIXEL_MONO16};
    static constexpr std::uint32_t Colour[] = {TV_PIXEL_RGB8, TV_PIXEL_RGB10, TV_PIXEL_RGB12, 0x02300479,
                                               TV_PIXEL_RGB16};
    return (info.family == TOV_FAMILY_MONO ? Grey : Colour)[info.bitDepth / 2 - 4];
}

TEST_F(TovfileTest, EveryLayoutIsExportedAsOtherProgramsReadIt)
{
    if (!Has("ffmpeg"))
        GTEST_SKIP() << "no ffmpeg here to read the files";
    for (std::uint32_t const type : OneOfEachLayout()) {
        TovPixelTypeInfo const &info = *TovGetPixelTypeInfo(type);
        SCOPED_TRACE(info.name);
        bool const grey = info.family == TOV_FAMILY_MONO, deep = info.bitDepth > 8;
        char const *const pixels = grey ? (deep ? "gray16le" : "gray") : (deep ? "rgb48le" : "rgb24");
        std::string inputs, outputs;
        std::vector<Bytes> expected;
        for (TovImageSize const each : OddSizes) {
            std::string const stem = "s" + std::to_string(each.width);
            MakeSeries(stem, type, each, 2);
            for (char const *format : {"tif", "png"}) {
                bool const shifted = deep && *format == 'p';
                std::uint32_t const target = !shifted ? Unpacked(info) : grey ? TV_PIXEL_MONO16 : TV_PIXEL_RGB16;
                std::string const number = std::to_string(expected.size());
                inputs.append(" -i out/").append(stem).append("_1.").append(format);
                outputs += " -map " + number + " -f rawvideo -pix_fmt " + pixels + " out/" + number;
                expected.push_back(Frame(type, each, 1).LinesAs(target));
            }
        }
        for (char const *format : {"tif", "png"}) {
            Result const result = Tovfile(std::string("export -o out -f ") + format + " *.series");
            ASSERT_EQ(result.status, 0) << result.output;
        }
        Output("cd '" + folder.string() + "' && ffmpeg -v error -nostdin" + inputs + outputs);
        for (std::size_t i = 0; i < expected.size(); ++i)
            EXPECT_TRUE(ReadFile(folder / "out" / std::to_string(i)) == expected[i]) << i;
        fs::remove_all(folder / "out");
    }
}

TEST_F(TovfileTest, ExportsMoviesWithEveryCodec)
{
    MakeSeries("s", MONO12PACKED, size, 5);
    std::string const list = [this] {
        char text[256];
        unsigned int length = sizeof text;
        serializer->GetComponent()->GetParamString("movie.compressors", text, &length);
        return std::string(text);
    }();
    std::istringstream codecs(list);
    for (std::string codec; std::getline(codecs, codec, '|');) {
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
    struct
    {
        char const *what; // is said; empty: nothing is wrong
        std::function<void()> harm;
    } const cases[] = {
        {"",
         [] {
         }},
        {"frame 2: ../s_2.raw: missing",
         [&] {
             fs::remove(Path("s_2.raw"));
         }},
        {"frame 2: ../s_2.raw: has 3000 bytes instead of 3072",
         [&] {
             fs::resize_file(Path("s_2.raw"), 3000);
         }},
        {"s_17.raw is not listed",
         [&] {
             Write("s_17.raw", Bytes(3072, 0));
         }},
        {"",
         [&] {
             Write("s_17.raw", Bytes(3000, 0));
         }}, // of another size,
        {"",
         [&] {
             Write("t_17.raw", Bytes(3072, 0));
         }}, // or of another name: somebody else's
        {"",
         [&] {
             MakeSeries("s_7", TV_PIXEL_MONO8, size, 2);
         }}, // listed by another recording
        {"line 5 of the table is not whole",
         [&] {
             fs::resize_file(Path(table), fs::file_size(Path(table)) - 9);
         }},
        {"the header counts 4 frames, the table has 3",
         [&] {
             fs::resize_file(Path(table), fs::file_size(Path(table)) - 9);
         }},
        {"line 3 of the table cannot be read",
         [&] {
             Edit(table, "1,../s_1.raw", "one,../s_1.raw");
         }},
        {"the header counts 3 frames, the table has 4",
         [&] {
             Edit(header, SeriesFiles::NrrdCount(4), SeriesFiles::NrrdCount(3));
         }},
        {"the header lists 3 frames, the table 4",
         [&] {
             Edit(header, "../s_3.raw\n", "");
         }},
        {"frame 1: the header lists ../s_2.raw instead of ../s_1.raw",
         [&] {
             Edit(header, "../s_1.raw\n", "");
         }},
        {"the header: missing",
         [&] {
             fs::remove(Path(header));
         }},
        {"the table: missing",
         [&] {
             fs::remove(Path(table));
         }},
        {"the ledger: missing; the recording was not ended",
         [&] {
             fs::remove(Path(ledger));
         }},
        {"the ledger counts 5 saved frames, the table has 4",
         [&] {
             Edit(ledger, "saved=4", "saved=5");
         }},
        {"the ledger does not tell how many frames were saved",
         [&] {
             Edit(ledger, "saved=4", "saved=");
         }},
        {"frame 1: ../../s_1.raw: refused",
         [&] {
             Edit(table, "../s_1.raw", "../../s_1.raw");
         }},
        {"frame 1: /etc/??[31mpasswd: refused",
         [&] {
             Edit(table, "../s_1.raw", "/etc/\x01\x1b[31mpasswd");
         }},
        {"a file is listed more than once",
         [&] {
             Edit(table, "../s_1.raw", "../s_2.raw");
         }},
        {"frame 9 stands where frame 2 should",
         [&] {
             Edit(table, "2,../s_2.raw", "9,../s_2.raw");
         }},
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
    Edit(table, ",0,0,0\n3,", ",1,77,5\n3,");
    Result const result = Tovfile("check s_0.series");
    EXPECT_NE(result.output.find("frame 2: 5 frames are missing before it"), std::string::npos) << result.output;
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
        for (unsigned i = 0; i < 3; ++i) {
            Picture const picture = Frame(TV_PIXEL_MONO8, size, i);
            if (i == 0) {
                ASSERT_EQ(serializer->StartMovie(picture.Image(), Path(file).c_str(), 10), TOV_SERIALIZER_OK);
            }
            ASSERT_EQ(serializer->WriteFrame(picture.Image(), nullptr), TOV_SERIALIZER_OK);
            Row row = RowOf(picture, i, "../" + file);
            row.position = i;
            rows += SeriesFiles::Encode(row);
        }
        serializer->Stop();
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
        std::uint32_t const target = Unpacked(*TovGetPixelTypeInfo(type));
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

TEST_F(TovfileTest, AnotherReaderOfNrrdFindsTheSameBytes)
{
    if (!Has("teem-unu"))
        GTEST_SKIP() << "no teem-unu here (Debian's teem-apps)";
    for (std::uint32_t const type : OneOfEachLayout()) {
        SCOPED_TRACE(TovGetPixelTypeInfo(type)->name);
        for (TovImageSize const each : OddSizes) {
            MakeSeries("s", type, each, 3);
            Bytes expected;
            for (unsigned i = 0; i < 3; ++i)
                expected += Frame(type, each, i).Lines();
            Bytes const stack = Output("teem-unu save -f nrrd -e raw -i '" + Path("s_0.series/s_0.nhdr") + "'");
            EXPECT_TRUE(stack.ends_with("\n\n" + expected));
        }
    }
}

// The page's own lines, as a user would take them.
TEST_F(TovfileTest, ThePythonOfTheDocumentationReadsEveryLayout)
{
    if (std::system("/usr/bin/python3 -c 'import numpy' 2>/dev/null") != 0)
        GTEST_SKIP() << "no python3-numpy here";
    Bytes const page = ReadFile(FORMATS_PAGE);
    std::size_t const begin = page.find("```python\n") + 10;
    ASSERT_NE(begin, Bytes::npos + 10);
    Write("readseries.py", page.substr(begin, page.find("```\n", begin) - begin));
    Write("dump.py", "import sys, readseries\n"
                     "for name in sys.argv[1:]:\n"
                     "    for frame in readseries.read_series(name):\n"
                     "        sys.stdout.buffer.write(frame.astype('<u2').tobytes())\n");
    std::string names;
    Bytes expected;
    unsigned number = 0;
    for (std::uint32_t const type : OneOfEachLayout()) {
        for (TovImageSize const each : OddSizes) {
            std::string const stem = "s" + std::to_string(number++);
            MakeSeries(stem, type, each, 2);
            names += ' ' + stem + "_0.series/" + stem + "_0.nhdr";
            for (unsigned i = 0; i < 2; ++i) {
                Picture const picture = Frame(type, each, i);
                std::vector<std::uint16_t> samples(each.width * TovSamplesPerPixel(type));
                for (std::uint32_t y = 0; y < each.height; ++y) {
                    TovUnpackLine(type, picture.Image()->imageData + y * picture.Image()->lineStep, each.width,
                                  samples.data());
                    expected.append(reinterpret_cast<char const *>(samples.data()), samples.size() * 2);
                }
            }
        }
    }
    EXPECT_TRUE(Output("cd '" + folder.string() + "' && /usr/bin/python3 dump.py" + names) == expected);
}

} // namespace
