// The capture panel with all formats: what it shows for each, and what other programs find in what was recorded.
#include "noticebar.h"
#include "params.h"
#include "simcamera.h"
#include "window.h"

namespace {

class FileFormats : public WindowTest
{
protected:
    ~FileFormats() override
    {
        m_window.reset();
        m_system->Release();
    }
    void Open(bool further)
    {
        m_window.reset(); // which stores what the writer has
        QSettings(QStringLiteral("Velmor"), QStringLiteral("TovScope"))
            .setValue(QStringLiteral("Recording/FurtherFormats"), further);
        NewWindow();
        Connect(TovCam_CreateDevice(FindSimulated(m_system, "VG-1280C"), 2, nullptr));
    }
    void Choose(char const *list, QLatin1String item)
    {
        auto *const combo = Find<QComboBox>(list);
        QTest::keyClick(combo, Qt::Key_Home);
        while (combo->currentText() != item && combo->currentIndex() < combo->count() - 1)
            QTest::keyClick(combo, Qt::Key_Down);
        QString const tip = combo->currentData(Qt::ToolTipRole).toString();
        EXPECT_TRUE(combo->currentText() == item && !tip.isEmpty() && combo->toolTip().contains(tip));
    }
    void Record(char const *fps, std::function<bool()> const &done)
    {
        Find<QLineEdit>("edFPS")->selectAll();
        QTest::keyClicks(Find<QLineEdit>("edFPS"), QLatin1String(fps) + u'\r');
        Find<QAbstractButton>("btnRecord")->click();
        EXPECT_EQ(Find<QComboBox>("cbFileFormat")->isEnabled(), Current()->GetState() != SessionStateCapturing);
        EXPECT_TRUE(Eventually(done));
        if (Current()->GetState() == SessionStateCapturing)
            Find<QAbstractButton>("btnRecord")->click();
        ASSERT_TRUE(Reaches(SessionStateAcquisition));
    }
    TovCam::System *m_system = TovCam_GetSystem();
};

TEST_F(FileFormats, EachRecordsFilesThatOtherProgramsRead)
{
    if (QStandardPaths::findExecutable(QStringLiteral("ffprobe")).isEmpty())
        GTEST_SKIP() << "ffprobe is not installed";
    Open(true);
    auto *const nodes = Current()->GetDevice()->GetCameraParameters(nullptr);
    nodes->SetIntegerValue("Width", 256);
    nodes->SetIntegerValue("Height", 128);
    nodes->SetEnumValueStr("PixelFormat", "BayerRG12");
    Action("Play")->trigger();
    ASSERT_TRUE(Reaches(SessionStateAcquisition));
    TovComponent *const writer = Current()->GetImageWriter();
    QString const probe = QStringLiteral("ffprobe -v error -count_frames -of csv=p=0 -show_entries stream=codec_name,"
                                         "width,height,pix_fmt,r_frame_rate,nb_read_frames ");
    char const *const rows[][5] = {
        {"TVI File", nullptr, "cbFileFormat", "*.tvi", "256x128"},
        {"BMP File", nullptr, "cbFileFormat", "*.bmp", "bmp,256,128,bgr24"},
        {"JPEG File", nullptr, "edJpgQuality", "*.jpg", "mjpeg,256,128,yuvj420p"},
        {"PNG File", nullptr, "cbFileFormat", "*.png", "png,256,128,rgb24"},
        {"TIFF File", nullptr, "chNormalizedTif", "*.tif", "tiff,256,128,rgb48le"},
        {"AVI Movie", "Uncompressed", "edFPS", "*.avi", "rawvideo,256,128,bgr24,25/2,"},
        {"AVI Movie", "MJPEG", "edFPS", "*.avi", "mjpeg,256,128,yuvj420p,25/2,"},
        {"AVI Movie", "FFV1", "edFPS", "*.avi", "ffv1,256,128,bgr0,25/2,"},
        {"AVI Movie", "H.264", "edFPS", "*.avi", "h264,256,128,yuvj420p,25/2,"},
    };
    for (auto const &[format, codec, control, pattern, found] : rows) {
        SCOPED_TRACE(found);
        QTemporaryDir const folder;
        writer->SetParamString("FilePath", folder.path().toUtf8().constData());
        Choose("cbFileFormat", QLatin1String(format));
        EXPECT_TRUE(Find<QWidget>(control)->isVisible());
        if (codec)
            Choose("cbCompressor", QLatin1String(codec));
        Record("12.5", [&] { return IntOf(writer, "FramesSaved") >= 3; });
        QFileInfoList const files = QDir(folder.path()).entryInfoList({QLatin1String(pattern)}, QDir::Files);
        ASSERT_EQ(files.size(), codec ? 1 : IntOf(writer, "FramesSaved"));
        QProcess reader;
        QString const program = *found == '2' ? QStringLiteral(TOVFILE " list ") : probe;
        reader.start(QStringLiteral("sh"), {QStringLiteral("-c"), program + files[0].filePath()});
        EXPECT_TRUE(reader.waitForFinished(PatienceMs) && reader.readAllStandardError().isEmpty());
        std::string const out = reader.readAllStandardOutput().trimmed().toStdString();
        EXPECT_NE(out.find(found + (codec ? ParamText(writer, "FramesSaved") : "")), std::string::npos) << out;
    }
    QString const why = QStringLiteral("cannot have 0 frames a second");
    Record("0", [&] { return Find<NoticeBar>("noticeBar")->toolTip().contains(why); });
    EXPECT_TRUE(Find<QLineEdit>("edFramesSaved")->toolTip().contains(why));
    Choose("cbFileFormat", QLatin1String("TIFF File")); // remembered while it is wanted
    std::string const before = ParamText(writer, "NormalizedTiff");
    Find<QCheckBox>("chNormalizedTif")->click();
    for (bool const further : {true, false}) {
        Open(further);
        EXPECT_NE(ParamText(Current()->GetImageWriter(), "NormalizedTiff"), before);
        EXPECT_EQ(IntOf(Current()->GetImageWriter(), "FileFormat"), further ? 5 : 0);
        EXPECT_EQ(Find<QComboBox>("cbFileFormat")->count(), further ? 7 : 1);
        EXPECT_EQ(Find<QComboBox>("cbCompressor")->count() > 1, further);
    }
}

} // namespace
