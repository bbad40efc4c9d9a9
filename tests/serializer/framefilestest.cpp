// tvi and tvm files, read by the reader and by the command-line tool.
#include "framefilereader.h"
#include "serializerfixture.h"

namespace {

class FrameFilesTest : public SerializerTest
{
protected:
    // The frames of the file are those from 0 on that Record has written, but `missing`.
    void ExpectFrames(FrameFileReader const &reader, std::uint32_t type, TovImageSize size, std::size_t count,
                      std::size_t missing = ~std::size_t(0))
    {
        ASSERT_EQ(reader.Frames().size(), count);
        for (std::size_t i = 0; i < count; ++i) {
            FrameFileReader::Frame const &frame = reader.Frames()[i];
            std::size_t const number = i + (i >= missing);
            Picture const picture = Frame(type, size, unsigned(number));
            Bytes pixels(frame.header.pixelBytes, 0);
            ASSERT_EQ(reader.Read(frame, pixels.data()), 0);
            EXPECT_TRUE(pixels == picture.Lines());
            EXPECT_EQ(frame.header.number, number);
            EXPECT_EQ(frame.header.frameId, picture.Image()->frameID);
            EXPECT_EQ(frame.header.timestamp, picture.Image()->timestamp);
            EXPECT_EQ(frame.header.pixelType, type);
        }
    }
};

constexpr std::uint32_t MONO12P = 0x010C2307;

TEST_F(FrameFilesTest, MovieCutOffAtAnyByteGivesBackItsWholeFrames)
{
    TovImageSize const size{13, 7};
    Record(Path("f.tvm"), MONO12P, size, 5);
    Bytes const open = ReadFile(Path("f.tvm")); // as a crash leaves it
    ASSERT_EQ(serializer->Stop(), TOV_SERIALIZER_OK);
    Bytes const whole = ReadFile(Path("f.tvm"));
    FrameFileReader reader;
    ASSERT_EQ(reader.Open(Path("f.tvm")), 0);
    std::vector<FrameFileReader::Frame> const frames = reader.Frames();
    for (Bytes const *bytes : {&open, &whole}) {
        for (std::size_t length = 0; length < bytes->size(); ++length) {
            Write(Path("cut.tvm"), bytes->substr(0, length));
            if (length < FrameFormat::MovieHeader::Size) {
                EXPECT_EQ(reader.Open(Path("cut.tvm")), FrameFileReader::NotAFrameFile);
                continue;
            }
            ASSERT_EQ(reader.Open(Path("cut.tvm")), 0);
            EXPECT_FALSE(reader.IsComplete());
            std::size_t expected = 0;
            for (FrameFileReader::Frame const &frame : frames)
                expected += frame.offset + frame.header.headerBytes + frame.header.pixelBytes <= length;
            ExpectFrames(reader, MONO12P, size, expected);
        }
    }
}

TEST_F(FrameFilesTest, DamageCostsNoMoreThanTheFrameItIsIn)
{
    TovImageSize const size{40, 30};
    Record(Path("f.tvm"), TV_PIXEL_MONO8, size, 4);
    ASSERT_EQ(serializer->Stop(), TOV_SERIALIZER_OK);
    Bytes const whole = ReadFile(Path("f.tvm"));
    FrameFileReader reader;
    ASSERT_EQ(reader.Open(Path("f.tvm")), 0);
    std::vector<FrameFileReader::Frame> const frames = reader.Frames();
    // Any byte flipped: noticed wherever it means something, and nothing crashes.
    for (std::size_t at = 0; at < whole.size(); at += at < 200 ? 1 : 37) {
        Bytes bytes = whole;
        bytes[at] = char(~bytes[at]);
        Write(Path("d.tvm"), bytes);
        if (reader.Open(Path("d.tvm")) != 0) {
            EXPECT_LT(at, FrameFormat::MovieHeader::Size);
            continue;
        }
        std::size_t good = 0;
        Bytes pixels(size.width * size.height, 0);
        for (FrameFileReader::Frame const &frame : reader.Frames())
            good += reader.Read(frame, pixels.data()) == 0;
        EXPECT_GE(good, 3u) << at;
    }
    // A header lost in the middle: the others are found behind it.
    Bytes bytes = whole;
    bytes[frames[1].offset + 20] ^= 1;
    Write(Path("d.tvm"), bytes);
    ASSERT_EQ(reader.Open(Path("d.tvm")), 0);
    EXPECT_EQ(reader.LostBytes(), frames[1].header.recordBytes);
    ExpectFrames(reader, TV_PIXEL_MONO8, size, 3, 1);
}

TEST_F(FrameFilesTest, TheToolListsChecksAndExports)
{
    std::string const tool = std::string("'") + TOVFILE + "' ", movie = "'" + Path("f.tvm") + "'";
    TovImageSize const size{64, 48};
    Record(Path("f.tvm"), TV_PIXEL_MONO12, size, 4, 29.97);
    ASSERT_EQ(serializer->Stop(), TOV_SERIALIZER_OK);
    std::string const list = Output(tool + "list " + movie);
    EXPECT_NE(list.find("4 frames, 29.97 frames per second\n"), std::string::npos) << list;
    EXPECT_NE(list.find("64x48 Mono12"), std::string::npos) << list;
    Output(tool + "check " + movie);
    for (char const *format : {"png", "tif", "raw"})
        Output(tool + "export -r 1-2 -o '" + Path("out") + "' -f " + format + " " + movie);
    EXPECT_EQ(Files(folder / "out"), 6);
    Picture const second = Frame(TV_PIXEL_MONO12, size, 1);
    EXPECT_TRUE(ReadFile(Path("out/f_000001.raw")) == second.Lines());
    EXPECT_TRUE(Decoded(Path("out/f_000001.tif"), "gray16le") == second.Lines());
    EXPECT_TRUE(Decoded(Path("out/f_000001.png"), "gray16le") == second.LinesAs(TV_PIXEL_MONO16));

    fs::resize_file(Path("f.tvm"), fs::file_size(Path("f.tvm")) - 40);
    EXPECT_EQ(Output(tool + "check " + movie + " >/dev/null 2>&1; echo $?"), "1\n");
    Write(Path("f.tvm"), "something else");
    EXPECT_EQ(Output(tool + "list " + movie + " 2>/dev/null; echo $?"), "1\n");
    EXPECT_EQ(Output(tool + "show " + movie + " 2>/dev/null; echo $?"), "2\n");
}

} // namespace
