// The texts beside a recording, and the reader of recordings that trusts none of them.
#include "seriesfixture.h"

#include <algorithm>
#include <cmath>
#include <sstream>

#include <sys/stat.h>

namespace {

TEST(SeriesFiles, RowsComeBack)
{
    using SeriesFiles::Row;
    Row row{7, "../a.raw", {}, 1, 2, {}, {}, {}, false, 0, 0};
    EXPECT_EQ(SeriesFiles::Encode(row), "7,../a.raw,,1,2,,,,0,0,0,\n");
    Row const rows[] = {
        row,
        {UINT64_MAX, "../m.avi", UINT64_MAX, UINT64_MAX, UINT64_MAX, INT64_MIN, 1e-300, -1.5, true, UINT64_MAX, 3,
         "network,\"x\""},
        {0, "../with, \"quotes\"\nand\r\nlines", 0, 0, 0, 0, 0.1, 12.25, true, 5, 0},
        {0, "../\xff\xfe caf\xe9", {}, 0, 0, 1, 33.3, {}, false, 0, 0},
    };
    for (Row const &written : rows) {
        std::string const line = SeriesFiles::Encode(written);
        Row read;
        EXPECT_TRUE(SeriesFiles::Decode(std::string_view(line).substr(0, line.size() - 1), read)) << line;
        EXPECT_TRUE(read == written) << line << SeriesFiles::Encode(read);
    }
    row.exposure = NAN;
    EXPECT_EQ(SeriesFiles::Encode(row), "7,../a.raw,,1,2,,,,0,0,0,\n");
    EXPECT_TRUE(SeriesFiles::Decode("7,../a.raw,,1,2,,,,0,0,0", row)); // as earlier versions wrote it
    for (char const *line : {"", ",", "7,../a.raw,,1,2,,,,0,0", "7,../a.raw,,1,2,,,,0,0,0,,", "7,,,1,2,,,,0,0,0",
                             "-7,../a.raw,,1,2,,,,0,0,0", "7,../a.raw,x,1,2,,,,0,0,0", "7,../a.raw,,1,2,,nan,,0,0,0",
                             "7,../a.raw,,1,2,,,,2,0,0", "7,\"../a.raw,,1,2,,,,0,0,0", "7,\"../a\"b,,1,2,,,,0,0,0",
                             "7,../a\"b,,1,2,,,,0,0,0", "7,../a.raw,,1,99999999999999999999,,,,0,0,0"})
        EXPECT_FALSE(SeriesFiles::Decode(line, row)) << line;
}

class SeriesReaderTest : public SeriesTest
{
protected:
    static constexpr TovImageSize size{3, 5};

    std::string Companion(char const *ending) const
    {
        return std::string("s_0.series/s_0") + ending;
    }
    // Frames that can be read, whatever the reader thinks of the rest.
    std::size_t Readable(SeriesReader &reader)
    {
        std::size_t readable = 0;
        Row row;
        Bytes pixels(reader.FrameBytes(), 0);
        for (SeriesReader::Line line; (line = reader.Next(row)) != SeriesReader::Line::End;)
            readable += line == SeriesReader::Line::Row && reader.Read(row, pixels.data()) == 0;
        return readable;
    }
};

TEST_F(SeriesReaderTest, OpensByAnyOfItsFiles)
{
    MakeSeries("s", TV_PIXEL_MONO8, size, 3);
    MakeSeries("other", TV_PIXEL_MONO8, size, 2);
    for (std::string const &name : {std::string("s_0.series"), std::string("s_0.series/"), Companion(".nhdr"),
                                    Companion(".frames.csv"), std::string("s_0.raw"), std::string("s_2.raw"),
                                    std::string("../") + folder.filename().string() + "/s_1.raw"}) {
        SeriesReader reader;
        ASSERT_EQ(reader.Open(Path(name)), 0) << name;
        EXPECT_EQ(reader.Name(), "s_0");
        EXPECT_EQ(Readable(reader), 3u) << name;
    }
    SeriesReader reader;
    Write("x.raw", "x");
    EXPECT_EQ(reader.Open(Path("x.raw")), SeriesReader::NotASeries);
    EXPECT_EQ(reader.Open(folder.string()), SeriesReader::NotASeries);
    EXPECT_EQ(reader.Open(Path("none.series")), ENOENT);
    // Either text alone will do, as far as it goes.
    fs::remove(Path(Companion(".frames.csv")));
    ASSERT_EQ(reader.Open(Path("s_0.series")), 0);
    EXPECT_EQ(reader.TableFailure(), ENOENT);
    EXPECT_EQ(Readable(reader), 3u);
    fs::remove(Path(Companion(".nhdr")));
    EXPECT_EQ(reader.Open(Path("s_0.series")), SeriesReader::NotASeries);
}

TEST_F(SeriesReaderTest, PathsThatLeadElsewhereAreRefused)
{
    MakeSeries("s", TV_PIXEL_MONO8, size, 1);
    fs::create_directories(Path("in/deep"));
    Bytes const frame(size.width * size.height, 'f');
    for (char const *name : {"in/deep/f.raw", "s_0.series/f.raw", "f.raw"})
        Write(name, frame);
    fs::path const outside = folder.string() + "-outside.raw";
    std::ofstream(outside, std::ios::binary) << frame;
    fs::create_symlink("f.raw", Path("link.raw"));
    fs::create_directory_symlink("in", Path("linked"));
    ASSERT_EQ(mkfifo(Path("pipe.raw").c_str(), 0600), 0);
    SeriesReader reader;
    ASSERT_EQ(reader.Open(Path("s_0.series")), 0);
    struct
    {
        std::string file;
        int expected;
    } const cases[] = {
        {"../f.raw", 0},
        {"f.raw", 0},
        {".././in//deep/../deep/f.raw", 0},
        {"../none.raw", ENOENT},
        {"../../" + outside.filename().string(), SeriesReader::Refused},
        {"../in/../../" + outside.filename().string(), SeriesReader::Refused},
        {"../../" + folder.filename().string() + "/f.raw", SeriesReader::Refused},
        {outside.string(), SeriesReader::Refused},
        {"/dev/zero", SeriesReader::Refused},
        {"..", SeriesReader::Refused},
        {"../in", SeriesReader::Refused},
        {"../link.raw", SeriesReader::Refused},
        {"../linked/deep/f.raw", SeriesReader::Refused},
        {"../pipe.raw", SeriesReader::Refused},
        {std::string("../f.raw\0", 9), SeriesReader::Refused},
    };
    Row row;
    Bytes pixels(frame.size(), 0);
    for (auto const &[file, expected] : cases) {
        row.file = file;
        EXPECT_EQ(reader.Read(row, pixels.data()), expected) << file;
    }
    fs::remove(outside);
}

TEST_F(SeriesReaderTest, DamagedTextsCostNoMoreThanTheirLines)
{
    MakeSeries("s", TV_PIXEL_MONO8, size, 4);
    Bytes const table = ReadFile(Path(Companion(".frames.csv"))), header = ReadFile(Path(Companion(".nhdr")));
    SeriesReader reader;
    std::size_t const rows = SeriesFiles::TableHead().size();
    for (std::size_t at = 0; at <= table.size(); ++at) { // cut
        Write(Companion(".frames.csv"), table.substr(0, at));
        ASSERT_EQ(reader.Open(Path("s_0.series")), 0);
        std::size_t const whole = std::size_t(std::count(table.begin(), table.begin() + std::ptrdiff_t(at), '\n'));
        EXPECT_EQ(Readable(reader), at < rows ? 4 : whole - 1) << at; // by the header, or by the table
    }
    for (char const byte : {'"', '\n', ',', '\0', '\xff'}) {
        for (std::size_t at = rows; at < table.size(); ++at) { // a byte of rubbish
            Bytes bytes = table;
            bytes[at] = byte;
            Write(Companion(".frames.csv"), bytes);
            ASSERT_EQ(reader.Open(Path("s_0.series")), 0);
            EXPECT_GE(Readable(reader), 2u) << at << byte;
        }
    }
    // No line end for longer than any line, and quotes that open on every line.
    for (Bytes const &rubbish : {Bytes(3'000'000, 'x'), Bytes(30'000, '"') + "x", [] {
                                     Bytes lines;
                                     for (int i = 0; i < 500'000; ++i)
                                         lines += "\"\n";
                                     return lines + '"';
                                 }()}) {
        Write(Companion(".frames.csv"), table.substr(0, rows) + rubbish + '\n' + table.substr(rows));
        ASSERT_EQ(reader.Open(Path("s_0.series")), 0);
        EXPECT_EQ(Readable(reader), 4u);
    }
    Write(Companion(".frames.csv"), table);
    for (std::size_t at = 0; at < header.size(); ++at) {
        for (char const byte : {'9', '\n', '\xff'}) {
            Bytes bytes = header;
            bytes[at] = byte;
            Write(Companion(".nhdr"), bytes);
            ASSERT_EQ(reader.Open(Path("s_0.series")), 0);
            Readable(reader); // whatever it makes of it, it reads no more than FrameBytes()
            EXPECT_LE(reader.FrameBytes(), UINT32_MAX);
        }
    }
}

// Tables from before the last column was added.
TEST_F(SeriesReaderTest, TablesWithoutTheLastColumnAreRead)
{
    MakeSeries("s", TV_PIXEL_MONO8, size, 2);
    std::string table = ReadFile(Path(Companion(".frames.csv")));
    std::size_t const end = table.find('\n'), column = table.rfind(',', end);
    table.erase(column, end - column);
    for (std::size_t at; (at = table.find(",\n")) != table.npos;)
        table.erase(at, 1);
    Write(Companion(".frames.csv"), table);
    SeriesReader reader;
    ASSERT_EQ(reader.Open(Path("s_0.series")), 0);
    EXPECT_EQ(Readable(reader), 2u);
    Row row, read;
    row.file = "../s_0.raw";
    row.lossCause = "network+fifo";
    std::string const line = SeriesFiles::Encode(row);
    EXPECT_TRUE(SeriesFiles::Decode(line.substr(0, line.size() - 1), read));
    EXPECT_EQ(read, row);
}

} // namespace
