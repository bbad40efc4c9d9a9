// Whole recordings: simulated cameras, a session, and real files.
#include "session.h"

#include "displayview.h"
#include "fakehost.h"
#include "imagewriter.h"
#include "ownmounts.h"
#include "params.h"
#include "simcamera.h"

#include <QDir>
#include <QFile>
#include <QTest>

namespace {

// While there is one thread.
bool const s_mayMount = EnterOwnMounts();

class Recording : public testing::TestWithParam<char const *>
{
protected:
    Recording()
    {
        device = TovCam_CreateDevice(FindSimulated(system, GetParam()), 2, nullptr);
        nodes = device->GetCameraParameters(nullptr);
        nodes->SetIntegerValue("Width", 320);
        nodes->SetIntegerValue("Height", 200);
        nodes->SetFloatValue("ExposureTime", 1000.0);
        session = std::make_unique<Session>(nullptr, device, &host);
        session->GetImageWriter()->SetParamString("FilePath", folder.path().toUtf8().constData());
        // As the program's manager answers.
        QObject::connect(session.get(), &Session::signalCameraDisconnected, session.get(),
                         [this](void *, int) { emit session->signalCameraStateDisconnected(); });
        QTest::qWait(0);
    }
    ~Recording() override
    {
        session.reset();
        system->Release();
    }

    bool WaitFor(char const *key, long least)
    {
        return QTest::qWaitFor([&] { return IntOf(session->GetImageWriter(), key) >= least; }, 20000);
    }
    void Record(ImageWriter::FileFormat format, long frames)
    {
        session->GetImageWriter()->SetParamInt("FileFormat", format);
        if (session->GetState() == SessionStateIdle)
            emit session->signalStartAcquisition();
        emit session->signalStartCapturing();
        ASSERT_EQ(session->GetState(), SessionStateCapturing);
        ASSERT_TRUE(WaitFor("FramesSaved", frames));
    }
    RecordingLedger const &Ledger()
    {
        RecordingLedger const &ledger = static_cast<ImageWriter *>(session->GetImageWriter())->GetLedger();
        EXPECT_TRUE(ledger.AddsUp());
        return ledger;
    }
    // The files of that kind, with everything that does not belong there.
    QFileInfoList Files(QString const &suffix)
    {
        QFileInfoList const all = QDir(folder.path()).entryInfoList(QDir::Files | QDir::Hidden, QDir::Name);
        QFileInfoList wanted;
        for (QFileInfo const &file : all) {
            if (file.suffix() == suffix || file.isHidden())
                wanted << file;
        }
        return wanted;
    }

    TovCam::System *system = TovCam_GetSystem();
    TovCam::Device *device = nullptr; // the session's, which lives as long
    TovCam::ParamArray *nodes = nullptr;
    FakeScript script;
    FakeHost host{script};
    QTemporaryDir folder;
    std::unique_ptr<Session> session;
};

TEST_P(Recording, KnowsOfEveryFrameOfADisturbedCamera)
{
    nodes->SetIntegerValue("SimIncompleteEvery", 7);
    nodes->SetIntegerValue("SimMissingEvery", 5);
    Record(ImageWriter::FormatRaw, 30);
    ASSERT_TRUE(WaitFor("CaptureFramesDroppedHW", 3));
    emit session->signalStopCapturing();
    RecordingLedger const ledger = Ledger();
    EXPECT_GE(ledger.saved, 30);
    EXPECT_GE(ledger.savedIncomplete, 3);
    QFileInfoList const files = Files(QStringLiteral("raw"));
    EXPECT_EQ(files.size(), ledger.saved);
    // Every fifth did not come, whatever else happened; the first and the last gap may lie outside.
    auto const number = [](QFileInfo const &file) {
        return file.baseName().section(QLatin1Char('_'), 1).toLongLong();
    };
    EXPECT_NEAR(ledger.missing, (number(files.last()) - number(files.first()) + 1 + ledger.queued) / 5,
                2 + ledger.droppedSW);
    for (QFileInfo const &file : files)
        EXPECT_EQ(file.size() * 8 % (320 * 200), 0) << qPrintable(file.fileName());
}

TEST_P(Recording, EndsWithTheCamera)
{
    Record(ImageWriter::FormatTif, 3);
    nodes->ExecuteCommand("SimLoseCamera");
    ASSERT_TRUE(QTest::qWaitFor([&] { return session->GetState() == SessionStateDisconnected; }, 20000));
    std::int64_t const saved = Ledger().saved;
    QFileInfoList const files = Files(QStringLiteral("tif"));
    EXPECT_EQ(files.size(), saved);
    for (QFileInfo const &file : files)
        EXPECT_EQ(file.size(), files[0].size());
}

TEST_P(Recording, SurvivesAFullDisk)
{
    std::string const path = folder.path().toStdString();
    if (!s_mayMount || mount("none", path.c_str(), "tmpfs", 0, "size=1m") != 0)
        GTEST_SKIP() << "no tmpfs of our own here";
    for (ImageWriter::FileFormat const format : {ImageWriter::FormatRaw, ImageWriter::FormatAvi}) {
        SCOPED_TRACE(format);
        QString const suffix = format == ImageWriter::FormatRaw ? QStringLiteral("raw") : QStringLiteral("avi");
        Record(format, 2);
        if (format == ImageWriter::FormatRaw) {
            // A series goes on, and costs one frame after another.
            ASSERT_TRUE(WaitFor("CaptureFramesAcquired", 40));
            emit session->signalStopCapturing();
        } else {
            // A movie ends.
            ASSERT_TRUE(QTest::qWaitFor([&] { return session->GetState() == SessionStateAcquisition; }, 20000));
        }
        EXPECT_GT(Ledger().failed, 0);
        std::vector<Notice> const notices = NoticeBoard::Instance().Notices();
        ASSERT_FALSE(notices.empty());
        EXPECT_EQ(notices[0].level, NoticeLevel::Error);
        EXPECT_TRUE(notices[0].text.contains(folder.path())) << qPrintable(notices[0].text);
        EXPECT_TRUE(notices[0].text.contains(QString::number(Ledger().failed))) << qPrintable(notices[0].text);
        QFileInfoList const files = Files(suffix);
        EXPECT_EQ(files.size(), format == ImageWriter::FormatRaw ? Ledger().saved : 1);
        for (QFileInfo const &file : files) {
            EXPECT_EQ(file.size(), files[0].size());
            QFile::remove(file.filePath());
        }
        Record(ImageWriter::FormatRaw, 1); // there is room again
        emit session->signalStopCapturing();
        for (QFileInfo const &file : Files(QStringLiteral("raw")))
            QFile::remove(file.filePath());
    }
    session.reset();
    umount2(path.c_str(), MNT_DETACH);
}

INSTANTIATE_TEST_SUITE_P(SimulatedCameras, Recording, testing::Values("VG-2048M", "VU-1920C", "VG-1280C"));

} // namespace
