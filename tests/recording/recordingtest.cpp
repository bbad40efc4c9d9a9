// Whole recordings: simulated cameras, a session, and real files.
#include "session.h"
#include "wait.h"

#include "displayview.h"
#include "fakehost.h"
#include "imagewriter.h"
#include "params.h"
#include "simcamera.h"

#include <QDir>

namespace {

using Recording = testing::TestWithParam<char const *>;

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
    session.reset();
    system->Release();
}

INSTANTIATE_TEST_SUITE_P(SimulatedCameras, Recording, testing::Values("VG-2048M", "VU-1920C", "VG-1280C"));

} // namespace
