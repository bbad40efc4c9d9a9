// HDF5 files that tovfile makes.
#include "hdf5contents.h"
#include "seriesfixture.h"

#include <cmath>

#include <sys/stat.h>

namespace {

constexpr std::uint32_t MONO12PACKED = 0x010C1308;

class Hdf5ExportTest : public SeriesTest
{
protected:
    static constexpr unsigned Count = 5;

    // Rows with every fact, and with those alone that are always known.
    void SetUp() override
    {
        SeriesTest::SetUp();
        MakeSeries("s", MONO12PACKED, {641, 479}, Count);
        std::string table = SeriesFiles::TableHead();
        for (unsigned i = 0; i < Count; ++i) {
            Row row = RowOf(Frame(MONO12PACKED, {641, 479}, i), i, "../s_" + std::to_string(i) + ".raw");
            if (i % 2) {
                row.exposure = 0.1 * i;
                row.gain = -1.5;
                row.incomplete = true;
                row.missingBytes = 1440 * i;
                row.gapBefore = 1'000'000'000'000 + i;
                row.lossCause = i == 1 ? "camera+network+adapter+socket+receiver+fifo+disk+recording+unknown" : "fifo";
            } else {
                row.arrival.reset();
            }
            table += SeriesFiles::Encode(row);
            rows.push_back(row);
            pixels.push_back(Frame(MONO12PACKED, {641, 479}, i).Lines());
        }
        Write("s_0.series/s_0.frames.csv", table);
        Write("s_0.series/s_0.tcfg", "Gain=\xC3\xA9\n");
    }
    void ExpectAll(Contents const &found, unsigned first, unsigned frames) const
    {
        ASSERT_TRUE(found.opened);
        ASSERT_EQ(found.Frames(), frames);
        EXPECT_EQ(found.configuration, "Gain=\xC3\xA9\n");
        Bytes expected;
        for (unsigned i = 0; i < frames; ++i) {
            Row const &row = rows[first + i];
            expected += pixels[first + i];
            EXPECT_EQ(found.ids[i], row.frameId);
            EXPECT_EQ(found.timestamps[i], row.timestamp);
            EXPECT_EQ(found.arrivals[i], row.arrival.value_or(0));
            EXPECT_TRUE(row.exposure ? found.exposures[i] == *row.exposure : std::isnan(found.exposures[i]));
            EXPECT_TRUE(row.gain ? found.gains[i] == *row.gain : std::isnan(found.gains[i]));
            EXPECT_EQ(found.incomplete[i], row.incomplete);
            EXPECT_EQ(found.missing[i], row.missingBytes);
            EXPECT_EQ(found.gaps[i], row.gapBefore);
            EXPECT_EQ(found.causes[i], row.lossCause);
        }
        EXPECT_TRUE(found.pixels == expected);
    }

    std::vector<Row> rows;
    std::vector<Bytes> pixels;
};

TEST_F(Hdf5ExportTest, KeepsEveryFactOfAPackedSeries)
{
    Result const plain = Tovfile("export -f h5 s_0.series"), deflated = Tovfile("export -f h5 -z -o z s_0.series"),
                 part = Tovfile("export -f h5 -r 1-3 s_0.series");
    EXPECT_EQ(plain.status + deflated.status + part.status, 0) << plain.output << deflated.output << part.output;
    ExpectAll(ReadHdf5(Path("s_0.h5")), 0, Count);
    ExpectAll(ReadHdf5(Path("z/s_0.h5")), 0, Count);
    ExpectAll(ReadHdf5(Path("s_0_1.h5")), 1, 3);
    EXPECT_NE(Tovfile("export -z s_0.series -f").status, 0);
}

// Something under the name of the configuration that is none costs the configuration alone, and no time.
TEST_F(Hdf5ExportTest, TellsOfAConfigurationThatCannotBeRead)
{
    std::string const name = Path("s_0.series/s_0.tcfg");
    fs::remove(name);
    ASSERT_EQ(mkfifo(name.c_str(), 0666), 0);
    Result const result = Tovfile("export -f h5 s_0.series");
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.output.find("the configuration: refused"), std::string::npos) << result.output;
    auto const found = ReadHdf5(Path("s_0.h5"));
    ASSERT_TRUE(found.opened);
    EXPECT_EQ(found.Frames(), Count);
    EXPECT_EQ(found.configuration, "");
}

} // namespace
