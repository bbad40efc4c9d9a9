// The files beside a series or a movie: what is listed can be read, and what can be read is listed.
#include "serializerfixture.h"
#include "seriesfiles.h"

#include <csignal>
#include <optional>
#include <sstream>
#include <vector>

namespace {

using SeriesFiles::Row;

class CompanionsTest : public SerializerTest
{
protected:
    CompanionsTest()
    {
        serializer->SetCompanions(true);
    }
    std::string Beside(char const *end) const
    {
        return std::string(serializer->GetCompanionFolder()) + '/' + serializer->GetCompanionName() + end;
    }
    void Begin(std::string const &format)
    {
        std::int32_t const status = format[0] == 'm' ? serializer->StartMovie(picture.Image(), Path(format).c_str(), 25)
                                                     : serializer->StartImageSeries(picture.Image(), format.c_str());
        ASSERT_EQ(status, TOV_SERIALIZER_OK) << format;
    }
    std::int32_t Write(std::string const &format, std::uint64_t id, TovFrameNote const &note = {})
    {
        picture.Image()->frameID = id;
        picture.Image()->timestamp = id * 1000;
        serializer->NoteFrame(note);
        std::string const file = Path("sub/i" + std::to_string(id) + '.' + format);
        return serializer->WriteFrame(picture.Image(), format[0] == 'm' ? nullptr : file.c_str());
    }
    // Whole lines alone; a rest without an end is what was being written.
    static std::vector<Row> RowsOf(std::string const &table)
    {
        std::istringstream text(ReadFile(table));
        std::vector<Row> rows;
        std::string line;
        EXPECT_TRUE(std::getline(text, line) && SeriesFiles::IsTableHead(line)) << table;
        while (std::getline(text, line) && !text.eof()) {
            EXPECT_TRUE(SeriesFiles::Decode(line, rows.emplace_back())) << line;
            EXPECT_EQ(rows.back().number + 1, rows.size());
        }
        return rows;
    }
    std::vector<Row> Rows() const
    {
        return RowsOf(Beside(".frames.csv"));
    }
    // All rows have their file, of the picture's size; the NRRD's list is that of the table.
    std::size_t ListedOf(std::string const &companions, std::string const &name) const
    {
        std::string list;
        std::vector<Row> const rows = RowsOf(companions + '/' + name + ".frames.csv");
        for (Row const &row : rows) {
            std::error_code error;
            EXPECT_EQ(fs::file_size(companions + '/' + row.file, error), picture.Lines().size()) << row.file;
            list += row.file + '\n';
        }
        std::string const text = ReadFile(companions + '/' + name + ".nhdr");
        SeriesFiles::RawShape shape;
        std::uint64_t count = 0;
        std::size_t at = 0;
        EXPECT_TRUE(SeriesFiles::ParseNrrdHead(text, shape, count, at));
        EXPECT_EQ(text.substr(at), list);
        EXPECT_EQ(count, rows.size());
        return rows.size();
    }

    Picture picture{TV_PIXEL_MONO8, 32, 20};
};

TEST_F(CompanionsTest, ListEveryFrameThatIsSaved)
{
    for (std::string const format : {"raw", "tif", "png", "m.tvm", "m.avi"}) {
        SCOPED_TRACE(format);
        bool const movie = format[0] == 'm';
        Begin(format);
        TovFrameNote note;
        note.incomplete = true;
        note.missingBytes = 77;
        note.arrival = 1'234'567'890'123'456'789;
        note.gain = 1.5;
        note.gapBefore = 4;
        EXPECT_EQ(Write(format, 5, note), TOV_SERIALIZER_OK);
        note = {};
        note.exposure = 250;
        note.gapBefore = 2;
        picture.Image()->width = 16; // refused
        EXPECT_NE(Write(format, 8, note), TOV_SERIALIZER_OK);
        picture.Image()->width = 32;
        note.gapBefore = 1;
        EXPECT_EQ(Write(format, 10, note), TOV_SERIALIZER_OK);
        EXPECT_EQ(Write(format, 11), TOV_SERIALIZER_OK);
        EXPECT_EQ(serializer->Stop(), TOV_SERIALIZER_OK);
        EXPECT_STREQ(serializer->GetCompanionFailure(), "");
        // tif and png find the name taken.
        std::string const name = movie ? "m" : format == "raw" ? "i5" : format == "tif" ? "i5_1" : "i5_2";
        EXPECT_EQ(serializer->GetCompanionFolder(), Path((movie ? "" : "sub/") + name + ".series"));
        auto const file = [&](std::string const &id) {
            return "../" + (movie ? format : 'i' + id + '.' + format);
        };
        auto const position = [&](std::uint64_t at) {
            return movie ? std::optional(at) : std::nullopt;
        };
        EXPECT_EQ(Rows(), (std::vector<Row>{
                              {0, file("5"), position(0), 5, 5000, 1'234'567'890'123'456'789, {}, 1.5, true, 77, 0},
                              {1, file("10"), position(1), 10, 10000, {}, 250, {}, false, 0, 4},
                              {2, file("11"), position(2), 11, 11000, {}, {}, {}, false, 0, 0}}));
        EXPECT_EQ(Files(serializer->GetCompanionFolder()), format == "raw" ? 3 : 1);
        if (format == "raw") {
            EXPECT_EQ(ListedOf(serializer->GetCompanionFolder(), name), 3u);
            EXPECT_EQ(ReadFile(Beside(".hdr")),
                      SeriesFiles::EnviHeader({TV_PIXEL_MONO8, 32, 20, 8, picture.Lines().size() / 20}));
        }
        fs::remove_all(Path(format));
        if (movie)
            fs::remove_all(serializer->GetCompanionFolder());
    }
}

// Frames of a template with folders in it; the folder that is above all of them is known, or not, or is not.
TEST_F(CompanionsTest, NameFramesInOtherFolders)
{
    struct
    {
        std::string home;
        char const *place, *file;
    } const cases[] = {{"", "a/", "../../b/y, \"z\".raw"},
                       {folder.string() + '/', "", "../b/y, \"z\".raw"},
                       {Path("b"), "a/", "../../b/y, \"z\".raw"}};
    for (auto const &[home, place, file] : cases) {
        serializer->SetCompanionHome(home.c_str());
        Begin("raw");
        for (char const *frame : {"a/x.raw", "a/x.raw", "b/y, \"z\".raw", "w.raw"})
            EXPECT_EQ(serializer->WriteFrame(picture.Image(), Path(frame).c_str()), TOV_SERIALIZER_OK);
        serializer->Stop();
        EXPECT_EQ(serializer->GetCompanionFolder(), Path(place + std::string("x.series")));
        EXPECT_EQ(ListedOf(serializer->GetCompanionFolder(), "x"), 4u);
        EXPECT_EQ(Rows()[2].file, file);
        SetUp();
    }
}

TEST_F(CompanionsTest, AreNotThereUnlessWanted)
{
    Begin("raw");
    serializer->Stop(); // without a frame
    EXPECT_STREQ(serializer->GetCompanionFolder(), "");
    serializer->SetCompanions(false);
    Begin("raw");
    EXPECT_EQ(Write("raw", 1), TOV_SERIALIZER_OK);
    serializer->Stop();
    EXPECT_EQ(Files(folder), 2); // a folder and the frame
    EXPECT_STREQ(serializer->GetCompanionFolder(), "");
}

TEST_F(CompanionsTest, SurviveAKill)
{
    constexpr int Frames = 1500;
    pid_t const child = fork();
    if (child == 0) {
        Begin("raw");
        for (int id = 1; id <= Frames; ++id)
            Write("raw", std::uint64_t(id));
        raise(SIGKILL);
    }
    int status = 0;
    waitpid(child, &status, 0);
    ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL);
    std::size_t const listed = ListedOf(Path("sub/i1.series"), "i1");
    EXPECT_GE(listed, 1000u); // a batch is 64 KB at most
    EXPECT_LE(listed, std::size_t(Frames));

    // What waits is written without further frames, too.
    EXPECT_EQ(InChild([this] {
                  Begin("m.tvm");
                  for (std::uint64_t id = 1; id <= 3; ++id)
                      Write("m.tvm", id);
                  while (Rows().size() < 3)
                      serializer->TendCompanions();
                  return raise(SIGKILL);
              }),
              -1);
    EXPECT_EQ(RowsOf(Path("m.series/m.frames.csv")).size(), 3u);
    EXPECT_EQ(FramesIn(Path("m.tvm")), 3);
}

// A table that cannot be written costs no frame and is told; what waits is written once that can be.
TEST_F(CompanionsTest, CatchUpWithWhatCouldNotBeWritten)
{
    for (bool const again : {false, true}) {
        Begin("raw");
        FileSizeLimit const limit(1000); // more than a frame, less than the table
        for (std::uint64_t id = 1; id <= 500; ++id)
            ASSERT_EQ(Write("raw", id), TOV_SERIALIZER_OK);
        EXPECT_EQ(serializer->GetCompanionFailure(),
                  "The file has become too large for the file system (" + Beside(".frames.csv") + ')');
        if (again)
            limit.Set(RLIM_INFINITY);
        EXPECT_EQ(serializer->Stop(), TOV_SERIALIZER_OK);
        EXPECT_EQ(std::strlen(serializer->GetCompanionFailure()) == 0, again);
        EXPECT_EQ(ReadFile(Beside(".frames.csv")).back(), '\n');
        std::size_t const listed = ListedOf(serializer->GetCompanionFolder(), serializer->GetCompanionName());
        EXPECT_EQ(listed == 500, again) << listed;
        fs::remove_all(folder / "sub");
    }
}

} // namespace
