#include "imagewriter.h"

#include "folderroom.h"
#include "imgprocessor.h"
#include "rigtestplugin.h"
#include "serializererrortext.h"
#include "tovlog.h"

#include "tovcamera.h"
#include "tovimage.h"
#include "tovserializer.h"

#include <QStandardPaths>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <exception>
#include <limits>
#include <mutex>
#include <new>
#include <optional>
#include <thread>
#include <utility>

namespace {

constexpr std::int64_t CounterMaximum = std::numeric_limits<std::int64_t>::max();
constexpr double FpsMaximum = 1000000.0;
constexpr auto NotReadyPause = std::chrono::milliseconds(1);
// Gives the queued report time to reach the session, which stops the writer.
constexpr auto ReportPause = std::chrono::milliseconds(200);
// What waits to be written beside the frames is looked after so often while no frame comes.
constexpr auto TendPeriod = std::chrono::milliseconds(200);
constexpr auto RoomPeriod = std::chrono::seconds(1);

// Gives a buffer back to the stream, on every path.
class HeldBuffer
{
public:
    HeldBuffer(GrabbingFifo *fifo, TovCam::Buffer *buffer) : m_fifo(fifo), m_buffer(buffer)
    {
    }
    ~HeldBuffer()
    {
        GiveBack();
    }
    HeldBuffer(HeldBuffer const &) = delete;
    HeldBuffer &operator=(HeldBuffer const &) = delete;

    void GiveBack()
    {
        if (m_buffer)
            m_fifo->ReleaseBuffer(std::exchange(m_buffer, nullptr));
    }

private:
    GrabbingFifo *m_fifo;
    TovCam::Buffer *m_buffer;
};

// The time since it was made, and how much of it the disk has had.
class Stopwatch
{
public:
    explicit Stopwatch(TovImageSerializer *serializer) : m_serializer(serializer)
    {
    }
    std::chrono::nanoseconds All() const
    {
        return std::chrono::steady_clock::now() - m_begin;
    }
    std::chrono::nanoseconds OfDisk() const
    {
        return std::chrono::nanoseconds(DiskTime() - m_diskBegin);
    }

private:
    std::uint64_t DiskTime() const
    {
        return m_serializer ? m_serializer->GetDiskTime() : 0;
    }

    TovImageSerializer *const m_serializer;
    std::chrono::steady_clock::time_point const m_begin = std::chrono::steady_clock::now();
    std::uint64_t const m_diskBegin = DiskTime();
};

} // namespace

ImageWriter::ImageWriter(QObject *parent, GrabbingFifo *fifo, ImgProcessor *processor)
    : QObject(parent),
      WorkingThread("ImageWriter"),
      TovComponentImp(201),
      m_fifo(fifo),
      m_serializer(TovImageSerializer::CreateComponent(true)),
      m_processor(processor),
      m_outputPixType(TV_PIXEL_MONO8)
{
    TovLog::Debug(0, "ImageWriter::ImageWriter()");
    if (!m_serializer)
        TovLog::Error(0, "ImageWriter::ImageWriter(): no serializer, nothing will be written");
    RegisterParams();
    for (int row = 0; row < PixTypeCount; ++row)
        m_inputPixTypes.emplace(s_inputPixTypeMap[row], row);
}

ImageWriter::~ImageWriter()
{
    TovLog::Debug(0, "ImageWriter::~ImageWriter()");
    try {
        if (m_writing)
            StopWriting();
    } catch (...) {
    }
    if (m_serializer)
        TovImageSerializer::DeleteComponent(m_serializer);
    TovReleaseImage(&m_converted);
}

void ImageWriter::RegisterParams()
{
    auto const addText = [this](char const *key, char *buffer, std::uint32_t size, char const *text) {
        std::memset(buffer, 0, size);
        std::strncpy(buffer, text, size - 1);
        AddStringParam(key, buffer, size, text);
    };
    AddIntParam("CaptureFramesAcquired", &m_captureAcquired, 0, 0, CounterMaximum);
    AddIntParam("CaptureFramesDroppedHW", &m_captureDroppedHW, 0, 0, CounterMaximum);
    AddIntParam("CaptureFramesDroppedSW", &m_captureDroppedSW, 0, 0, CounterMaximum);
    AddFloatParam("MovieFPS", &m_movieFps, 30.0, 0.0, FpsMaximum);
    m_text.resize(sizeof m_filePath);
    m_pictures = QStandardPaths::writableLocation(QStandardPaths::PicturesLocation).toUtf8();
    addText("FilePath", m_filePath, sizeof m_filePath, m_pictures.constData());
    addText("ImageName", m_imageName, sizeof m_imageName, "image_${image.id}");
    addText("MovieName", m_movieName, sizeof m_movieName, "movie");
    AddIntParam("FramesSaved", &m_framesSaved, 0, 0, CounterMaximum);
    AddIntParam("CaptureMode", &m_captureMode, CaptureModeContinous, 0, CaptureModeEventTime2);
    AddIntParam("FileFormat", &m_fileFormat, FormatRaw, 0, FormatAvi);
    AddBoolParam("NormalizedTiff", &m_normalizedTiff, true);
    AddIntParam("JpgQuality", &m_jpgQuality, 85, 0, 100);
}

void ImageWriter::SetCompanions(bool on)
{
    m_wantsCompanions = on;
}

QByteArray const &ImageWriter::GetCompanionFolder() const
{
    return m_companionFolder;
}

QByteArray const &ImageWriter::GetCompanionName() const
{
    return m_companionName;
}

void ImageWriter::TellCompanionFailure(QString const &why)
{
    TovLog::Warning(0, "The files beside the recording are not whole: %s", qPrintable(why));
    m_report.ShowCompanionFailure(why);
}

void ImageWriter::RequestSnap()
{
    m_snapRequest = true;
}

bool ImageWriter::StartWriting()
{
    TovLog::Debug(0, "ImageWriter::StartWriting() -> ENTER");
    m_writing = true;
    m_startAccounts = m_fifo->GetAccounts();
    m_losses.Begin();
    m_startLosses = GetLossCounts();
    m_tally.Clear();
    m_started = m_evaluated = false;
    m_endFailure = {};
    m_roomAsked = {};

    bool const snap = std::exchange(m_snapRequest, false);
    if (snap)
        m_captureRules.SnapNextFrame();
    else
        m_captureRules.StartImgWriting(static_cast<CaptureMode>(TovLoadBound(m_captureMode)));
    m_snap = snap;
    m_continues = std::exchange(m_continuesNext, std::nullopt);
    m_gap.reset();
    m_gapTold = false;
    m_lastFrame.reset();
    m_companions = m_wantsCompanions && !snap;
    m_companionFolder.clear();
    m_companionName.clear();
    if (m_serializer) {
        m_serializer->SetCompanions(m_companions);
        m_serializer->SetTablePreface("");
    }
    TovStoreBound(m_framesSaved, 0);
    struct
    {
        char const *key;
        std::int64_t *start;
    } const counters[] = {{"FramesAcquired", &m_startAcquired},
                          {"FramesDroppedHW", &m_startDroppedHW},
                          {"FramesDroppedSW", &m_startDroppedSW}};
    for (auto const &counter : counters) {
        long value = 0;
        m_fifo->GetParamInt(counter.key, &value);
        *counter.start = value;
    }
    TovStoreBound(m_captureAcquired, 0);
    TovStoreBound(m_captureDroppedHW, 0);
    TovStoreBound(m_captureDroppedSW, 0);
    m_firstFrame = true;
    if (!GetRigTest()) // which saves nothing
        m_report.Begin(snap, [this] { return SoFar(); });
    bool const started = WorkingThread::Start();
    TovLog::Debug(started, "ImageWriter::StartWriting() <- LEAVE");
    return started;
}

bool ImageWriter::IsWriting() const
{
    return m_writing;
}

RecordingLedger const &ImageWriter::GetLedger() const
{
    return m_ledger;
}

std::vector<LossFinding> const &ImageWriter::GetLosses() const
{
    return m_findings;
}

LossCounts ImageWriter::GetLossCounts()
{
    LossCounts counts = m_fifo->GetLossCounts();
    m_losses.AddTo(counts);
    return counts;
}

RecordingReport &ImageWriter::GetReport()
{
    return m_report;
}

TovComponent *ImageWriter::GetSerializer()
{
    return m_serializer ? m_serializer->GetComponent() : nullptr;
}

ImageWriter::FileFormat ImageWriter::GetFormat() const
{
    return static_cast<FileFormat>(TovLoadBound(m_fileFormat));
}

bool ImageWriter::IsMovie() const
{
    return static_cast<std::uint64_t>(GetFormat() - FormatAvi) < 2;
}

void ImageWriter::PostFinishWriting()
{
    emit WritingDone();
}

void ImageWriter::PostFinishEvaltest()
{
    emit EvaluationTestDone();
}

void ImageWriter::Work()
{
    if (GetRigTest()) {
        m_evaluated = true;
        if (!DoEvaluation()) {
            std::lock_guard const lock(m_startMutex);
            m_bStart = false;
        }
        return;
    }
    DoWriting();
    UpdateCounters();
}

// The folder may be on a server: only this thread, which waits for it anyway, asks.
void ImageWriter::LookForRoom()
{
    auto const now = std::chrono::steady_clock::now();
    if (now - m_roomAsked < RoomPeriod)
        return;
    m_roomAsked = now;
    m_report.SetFreeBytes(BytesLeftFor(m_currFileName));
    if (m_companions && m_serializer)
        m_report.SetCompanionFailure(QString::fromLocal8Bit(m_serializer->GetCompanionFailure()));
}

void ImageWriter::UpdateCounters()
{
    auto const update = [this](char const *key, std::int64_t const &stored, std::int64_t value) {
        if (TovLoadBound(stored) != value)
            SetParamInt(key, value);
    };
    update("CaptureFramesDroppedHW", m_captureDroppedHW, m_fifo->GetFramesDroppedHW() - m_startDroppedHW);
    update("CaptureFramesDroppedSW", m_captureDroppedSW, m_fifo->GetFramesDroppedSW() - m_startDroppedSW);
    if (m_captureRules.m_bSnap)
        SetParamInt("CaptureFramesAcquired", 1);
    else
        update("CaptureFramesAcquired", m_captureAcquired, m_fifo->GetFramesAcquired() - m_startAcquired);
}

void ImageWriter::DoWriting()
{
    TovCam::Buffer *buffer = nullptr;
    if (m_fifo->PopOldestBuffer(&buffer, m_companions ? std::optional(TendPeriod) : std::nullopt) != 0) {
        std::this_thread::sleep_for(NotReadyPause);
        return;
    }
    if (!buffer) {
        if (m_companions && m_serializer)
            m_serializer->TendCompanions();
        return;
    }
    if (IsMovie())
        WriteMovie(buffer);
    else
        WriteImage(buffer);
    LookForRoom();
}

void ImageWriter::WriteImage(TovCam::Buffer *buffer)
{
    Record(buffer, {&ImageWriter::ImgSeriesWriteStart, &ImageWriter::ImgSeriesWrite, &ImageWriter::ImgSeriesWriteStop});
}

void ImageWriter::WriteMovie(TovCam::Buffer *buffer)
{
    Record(buffer, {&ImageWriter::MovieWriteStart, &ImageWriter::MovieWrite, &ImageWriter::MovieStop});
}

void ImageWriter::Record(TovCam::Buffer *buffer, Steps const &steps)
{
    HeldBuffer held(m_fifo, buffer);
    _TovImage *const image = buffer->GetImage();
    Stopwatch const watch(m_serializer);
    GrabbingFifo::Loss const loss = m_fifo->GetLossBefore(buffer);
    m_losses.Take(loss);
    if (std::exchange(m_firstFrame, false)) {
        m_failure = {};
        if (m_continues)
            BeginAfterGap(buffer);
        bool const started = Try(steps.start, image);
        m_endFailure = m_failure;
        if (!started)
            WindUp(steps); // the frame is tried all the same
    }
    if (m_captureRules.NeedToWrite(image)) {
        m_incomplete = buffer->IsIncomplete();
        m_failure = {};
        m_arrival = 0;
        if (m_serializer && (m_companions || IsMovie())) // a movie may hold what is known
            NoteFrame(buffer, loss.frames);
        std::int64_t const before = m_tally.Written();
        bool const goesOn = Try(steps.write, image);
        m_losses.Spent(watch.All(), watch.OfDisk());
        if (m_tally.Written() == before) {
            CountFailure();
        } else {
            m_lastFrame = RecordedFrame{image->frameID, m_arrival};
            m_losses.Written();
        }
        if (m_gap)
            TellGap();
        if (!goesOn) {
            m_endFailure = m_failure;
            WindUp(steps);
        }
    } else {
        m_tally.AddUnwanted();
    }
    held.GiveBack();
    if (m_captureRules.IsFinished(image))
        WindUp(steps);
}

// An exception, such as for lack of memory, is a failure like any other.
bool ImageWriter::Try(bool (ImageWriter::*step)(_TovImage *image), _TovImage *image)
{
    try {
        return (this->*step)(image);
    } catch (std::bad_alloc const &) {
        m_failure = {SerializerErrorText(TOV_SERIALIZER_ERR_MEMORY), {}};
    } catch (std::exception const &exception) {
        m_failure = {QString::fromLocal8Bit(exception.what()), {}};
    }
    TovLog::Error(0, "ImageWriter: %s", qPrintable(m_failure.reason));
    return false;
}

RecordingFailure ImageWriter::FailureOf(std::int32_t status, QString const &otherwise) const
{
    if (status == TOV_SERIALIZER_ERR_STATE && !m_endFailure.reason.isEmpty())
        return m_endFailure;
    char const *const words = m_serializer ? m_serializer->GetLastFailure() : nullptr;
    return {words && *words       ? QString::fromLocal8Bit(words)
            : otherwise.isEmpty() ? SerializerErrorText(status)
                                  : otherwise,
            status == TOV_SERIALIZER_ERR_WRITE ? m_currFileName : QString(), status == TOV_SERIALIZER_ERR_WRITE};
}

void ImageWriter::CountFailure()
{
    m_tally.AddFailed();
    m_losses.Failed(m_failure.isOfDisk);
    if (m_report.Failed(1, m_failure))
        TovLog::Error(0, "ImageWriter: a frame was not written: %s: %s", qPrintable(m_currFileName),
                      qPrintable(m_failure.reason));
}

void ImageWriter::CountWritten()
{
    m_tally.AddWritten(m_incomplete, m_serializer->GetReadableFrames());
    TovStoreBound(m_framesSaved, m_tally.Saved());
}

void ImageWriter::NoteFrame(TovCam::Buffer *buffer, std::uint64_t gapBefore)
{
    TovFrameNote note;
    note.incomplete = m_incomplete;
    note.gapBefore = gapBefore;
    note.lossCause = m_losses.Words();
    if (TovCam::FrameFacts facts; buffer->GetFacts(&facts)) {
        note.arrival = m_arrival = facts.arrival;
        note.exposure = facts.exposure;
        note.gain = facts.gain;
        note.missingBytes = facts.missingBytes;
    }
    m_serializer->NoteFrame(note);
}

void ImageWriter::WindUp(Steps const &steps)
{
    (this->*steps.stop)();
    PostFinishWriting();
    std::this_thread::sleep_for(ReportPause);
}

bool ImageWriter::PrepareConversion(_TovImage *image, _TovImage const **target)
{
    *target = image;
    m_outputPixType = GetOutputPixType(image->pixelType, GetFormat());
    if (m_outputPixType == 0 || m_outputPixType == image->pixelType)
        return true;
    if (TovCreateImage(&m_converted, {image->width, image->height}, m_outputPixType) != TOV_IMAGE_OK) {
        m_converted = nullptr;
        m_failure = {SerializerErrorText(TOV_SERIALIZER_ERR_MEMORY), {}};
        return false;
    }
    *target = m_converted;
    return true;
}

bool ImageWriter::ImgSeriesWriteStart(_TovImage *image)
{
    TovReleaseImage(&m_converted);
    m_converted = nullptr;
    m_converting = false;
    if (!m_serializer)
        return false;
    if (GetFormat() == FormatJpg)
        m_serializer->GetComponent()->SetParamInt("jpeg.quality", TovLoadBound(m_jpgQuality));
    _TovImage const *target = nullptr;
    if (!PrepareConversion(image, &target))
        return false;
    m_serializer->SetCompanionHome(SeriesFolder().toLocal8Bit().constData());
    std::int32_t const status = m_serializer->StartImageSeries(target, GetFileExtension());
    m_started = status == 0;
    if (status != 0) {
        m_failure = FailureOf(status);
        m_failure.file.clear(); // no name was made yet
        TovLog::Error(static_cast<unsigned long>(status), "ImageWriter: a series cannot be started: %s",
                      qPrintable(m_failure.reason));
    }
    m_converting = m_converted && status == 0;
    // Only with a conversion does a refusal count here; without one the first frame meets it again.
    return !m_converted || status == 0;
}

bool ImageWriter::MovieWriteStart(_TovImage *image)
{
    TovReleaseImage(&m_converted);
    m_converted = nullptr;
    m_converting = false;
    if (!m_serializer)
        return false;
    _TovImage const *target = nullptr;
    if (!PrepareConversion(image, &target))
        return false;
    SetCurrFileName(image);
    std::int32_t const status =
        m_serializer->StartMovie(target, m_currFileName.toLocal8Bit().constData(), TovLoadBound(m_movieFps));
    m_started = status == 0;
    if (status != 0) {
        m_failure = FailureOf(status);
        TovLog::Error(static_cast<unsigned long>(status), "ImageWriter: the movie %s cannot be started: %s",
                      qPrintable(m_currFileName), qPrintable(m_failure.reason));
    }
    m_converting = m_converted && status == 0;
    return !m_converted || status == 0;
}

bool ImageWriter::Convert(_TovImage *image)
{
    // After the end of a recording there is no target any more, while frames still come.
    if (!m_converting || (m_converted && m_processor && m_processor->ConvertImage(image, m_converted) == 0))
        return true;
    m_failure = m_converted ? RecordingFailure{tr("the picture cannot be converted"), {}} : m_endFailure;
    return false;
}

bool ImageWriter::WriteThrough(_TovImage *image, char const *fileName)
{
    std::int32_t const status =
        m_serializer ? m_serializer->WriteFrame(m_converted ? m_converted : image, fileName) : TOV_SERIALIZER_ERR_STATE;
    if (status == 0)
        CountWritten();
    else
        m_failure = FailureOf(status);
    return status == 0;
}

bool ImageWriter::ImgSeriesWrite(_TovImage *image)
{
    if (!Convert(image))
        return false;
    SetCurrFileName(image);
    WriteThrough(image, m_currFileName.toLocal8Bit().constData());
    SetParamInt("FramesSaved", TovLoadBound(m_framesSaved));
    return true; // a file that cannot be written costs its frame, and does not end the recording
}

bool ImageWriter::MovieWrite(_TovImage *image)
{
    if (!Convert(image) || !WriteThrough(image, nullptr))
        return false;
    SetParamInt("FramesSaved", TovLoadBound(m_framesSaved));
    return true;
}

bool ImageWriter::MovieStop()
{
    if (m_converted && m_converting) {
        TovReleaseImage(&m_converted);
        m_converted = nullptr;
    }
    return true; // the serializer is stopped by StopWriting alone
}

bool ImageWriter::ImgSeriesWriteStop()
{
    return MovieStop();
}

bool ImageWriter::EndEvaluation()
{
    PostFinishEvaltest();
    std::this_thread::sleep_for(ReportPause);
    return false;
}

bool ImageWriter::DoEvaluation()
{
    RigTestPlugin *const plugin = GetRigTest();
    try {
        bool newest = true;
        if (!plugin || !plugin->NeedNextFrame(&newest))
            return EndEvaluation();
        TovCam::Buffer *buffer = nullptr;
        std::int32_t const status = newest ? m_fifo->GetNewestBuffer(&buffer, false) : m_fifo->PopOldestBuffer(&buffer);
        HeldBuffer const held(m_fifo, buffer);
        if (status == 0 && buffer && !buffer->IsIncomplete())
            plugin->ProcessBuffer(buffer);
        return true;
    } catch (std::exception const &exception) {
        TovLog::Error(0, "ImageWriter: the evaluation plug-in failed: %s", exception.what());
        return EndEvaluation();
    }
}
