// Whole recordings: simulated cameras, a session, and real files.
#include "companionfiles.h"
#include "recordedconfiguration.h"
#include "session.h"
#include "wait.h"

#include "displayview.h"
#include "fakehost.h"
#include "imagewriter.h"
#include "params.h"
#include "simcamera.h"

#include <QProcess>
#include <QSettings>

#include <algorithm>
#include <vector>

namespace {

using Recording = testing::TestWithParam<char const *>;

int LedgerEntry(QString const &companions, char const *key)
{
    QSettings const ledger(companions + QStringLiteral(".ledger.txt"), QSettings::IniFormat);
    return ledger.value(QStringLiteral("Ledger/") + QLatin1String(key), -1).toInt();
}

TEST_P(Recording, KnowsOfEveryFrameOfADisturbedCamera)
{
    TovCam::System *const system = TovCam_GetSystem();
    TovCam::Device *const device = TovCam_CreateDevice(FindSimulated(system, GetParam()), 2, nullptr);
    TovCam::ParamArray *const nodes = device->GetCameraParameters(nullptr);
    nodes->SetIntegerValue("Width", 320);
    nodes->SetIntegerValue("Height", 200);
    nodes->SetFloatValue("ExposureTime", 1000.0);
    nodes->SetIntegerValue("SimIncompleteEvery", 7);
    nodes->SetIntegerValue("SimMissingEvery", 5);
    FakeScript script;
    FakeHost host(script);
    QTemporaryDir folder;
    auto session = std::make_unique<Session>(nullptr, device, &host);
    auto *const writer = static_cast<ImageWriter *>(session->GetImageWriter());
    writer->SetParamString("FilePath", folder.path().toUtf8().constData());
    QCoreApplication::processEvents();
    emit session->signalStartAcquisition();
    emit session->signalStartCapturing();
    ASSERT_EQ(session->GetState(), SessionStateCapturing);
    EXPECT_TRUE(
        Eventually([&] { return IntOf(writer, "FramesSaved") >= 30 && IntOf(writer, "CaptureFramesDroppedHW") >= 3; }));
    emit session->signalStopCapturing();
    RecordingLedger const ledger = writer->GetLedger();
    auto const lastId = IntOf(session->GetGrabber(), "FrameID");
    EXPECT_TRUE(ledger.AddsUp());
    EXPECT_GE(ledger.savedIncomplete, 3);
    QFileInfoList const files = QDir(folder.path()).entryInfoList(QDir::Files | QDir::Hidden, QDir::Name);
    ASSERT_EQ(files.size(), ledger.saved);
    // The files bear the frames' ids. Every fifth frame never came, a busy computer loses others, and whatever the
    // files lack between the first and the last is in the ledger. It may name a few more, from before and behind them,
    // but never more than the camera has sent.
    auto const number = [](QFileInfo const &file) {
        return file.baseName().section(QLatin1Char('_'), 1).toLongLong();
    };
    qint64 const first = number(files.first());
    qint64 const holes = number(files.last()) - first + 1 - files.size();
    EXPECT_GE(holes, files.size() / 4 - 1);
    EXPECT_GE(ledger.missing + ledger.droppedSW, holes);
    EXPECT_LE(ledger.missing + ledger.saved + ledger.queued, lastId - first + 1 + ledger.droppedSW + 4);
    for (QFileInfo const &file : files)
        EXPECT_EQ(file.size() * 8 % (320 * 200), 0) << qPrintable(file.fileName());

    QString const companions = Companions(folder.path());
    std::vector<Row> rows = RowsOf(companions);
    ASSERT_EQ(rows.size(), ledger.saved);
    EXPECT_EQ(LedgerEntry(companions, "saved"), ledger.saved);
    EXPECT_EQ(LedgerEntry(companions, "missing"), ledger.missing);
    EXPECT_EQ(device->LoadConfiguration((companions + QStringLiteral(".tcfg")).toUtf8().constData()), 0);
    std::size_t const firstRow = rows.front().frameId;
    std::int64_t incomplete = 0;
    std::sort(rows.begin(), rows.end(), [](Row const &a, Row const &b) { return a.frameId < b.frameId; });
    for (std::size_t i = 0; i < rows.size(); ++i) {
        Row const &row = rows[i];
        EXPECT_EQ(QFileInfo(QFileInfo(companions).path() + QLatin1Char('/') + QString::fromStdString(row.file)),
                  files[i]);
        EXPECT_EQ(number(files[i]), row.frameId);
        // The display may hand on a frame behind younger ones; what is missing is told by the one that it is missing
        // before.
        EXPECT_EQ(i == 0 || row.frameId == firstRow ? 0 : row.frameId - rows[i - 1].frameId - 1,
                  i == 0 ? 0 : row.gapBefore)
            << row.frameId;
        EXPECT_EQ(row.missingBytes > 0, row.incomplete);
        EXPECT_EQ(row.lossCause.empty(), row.gapBefore == 0 && !row.incomplete) << row.frameId;
        EXPECT_EQ(row.exposure, 1000.0);
        EXPECT_TRUE(i == 0 || row.arrival > rows[i - 1].arrival);
        incomplete += row.incomplete;
    }
    EXPECT_EQ(incomplete, ledger.savedIncomplete);
    session.reset();
    system->Release();
}

// What is there after a recording that ends otherwise, and after none.
TEST(RecordingCompanions, AreThereForEveryRecordingThatWantsThem)
{
    enum End { Stop, Loss };
    struct
    {
        char const *what;
        bool companions, snap;
        End end;
        int format;
        bool folder, configuration;
        char const *name = "f${image.id}";
    } const rows[] = {
        {"a series", true, false, Stop, ImageWriter::FormatPng, true, true},
        {"a series in folders", true, false, Stop, ImageWriter::FormatRaw, true, true, "${image.id}/f"},
        {"a movie", true, false, Stop, ImageWriter::FormatAvi, true, true},
        {"a camera that is lost", true, false, Loss, ImageWriter::FormatRaw, true, false},
        {"a camera that is lost from a movie", true, false, Loss, ImageWriter::FormatAvi, true, false},
        {"a snap", true, true, Stop, ImageWriter::FormatRaw, false, false},
        {"switched off", false, false, Stop, ImageWriter::FormatRaw, false, false},
    };
    for (auto const &row : rows) {
        SCOPED_TRACE(row.what);
        TovCam::System *const system = TovCam_GetSystem();
        TovCam::Device *const device = TovCam_CreateDevice(FindSimulated(system, "VG-2048M"), 2, nullptr);
        TovCam::ParamArray *const nodes = device->GetCameraParameters(nullptr);
        nodes->SetIntegerValue("Width", 320);
        nodes->SetIntegerValue("Height", 200);
        FakeScript script;
        FakeHost host(script);
        host.companions = row.companions;
        QTemporaryDir folder;
        auto session = std::make_unique<Session>(nullptr, device, &host);
        QObject::connect(session.get(), &Session::signalCameraDisconnected, session.get(),
                         &Session::signalCameraStateDisconnected, Qt::QueuedConnection);
        auto *const writer = static_cast<ImageWriter *>(session->GetImageWriter());
        writer->SetParamString("FilePath", folder.path().toUtf8().constData());
        writer->SetParamString("ImageName", row.name);
        writer->SetParamInt("FileFormat", row.format);
        QCoreApplication::processEvents();
        emit session->signalStartAcquisition();
        if (row.snap)
            session->SnapNextFrame();
        else
            emit session->signalStartCapturing();
        EXPECT_TRUE(Eventually([&] { return IntOf(writer, "FramesSaved") >= (row.snap ? 1 : 3); }));
        if (row.end == Loss)
            nodes->ExecuteCommand("SimLoseCamera");
        else
            emit session->signalStopCapturing();
        EXPECT_TRUE(Eventually([&] {
            QCoreApplication::processEvents();
            return !writer->IsWriting();
        }));
        QString const companions = Companions(folder.path());
        EXPECT_EQ(!companions.isEmpty(), row.folder);
        if (row.folder) {
            EXPECT_EQ(RowsOf(companions).size(), writer->GetLedger().saved);
            EXPECT_EQ(LedgerEntry(companions, "saved"), writer->GetLedger().saved);
            QProcess tovfile;
            tovfile.start(QStringLiteral(TOVFILE), {QStringLiteral("check"), QFileInfo(companions).path()});
            EXPECT_TRUE(tovfile.waitForFinished());
            EXPECT_EQ(tovfile.exitCode(), 0) << tovfile.readAllStandardError().constData();
        }
        QFile file(companions + QStringLiteral(".tcfg"));
        EXPECT_EQ(file.exists(), row.configuration);
        if (row.configuration) { // what was taken for a movie is kept as the camera would write it
            std::atomic<bool> const lost{false};
            RecordedConfiguration configuration(device, lost);
            QByteArray const taken = configuration.Take();
            EXPECT_TRUE(file.remove());
            configuration.Keep(*writer);
            EXPECT_TRUE(file.open(QIODevice::ReadOnly));
            EXPECT_EQ(file.readAll(), taken);
            EXPECT_TRUE(taken.contains("Width"));
        }
        session.reset();
        system->Release();
    }
}

INSTANTIATE_TEST_SUITE_P(SimulatedCameras, Recording, testing::Values("VG-2048M", "VU-1920C", "VG-1280C"));

} // namespace
