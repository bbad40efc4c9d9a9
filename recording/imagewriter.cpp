#include "imagewriter.h"

#include "imageparser.h"
#include "imgprocessor.h"
#include "rigtestplugin.h"
#include "tovlog.h"

#include "tovcamera.h"
#include "tovimage.h"
#include "tovserializer.h"

#include <QDir>
#include <QStandardPaths>

#include <chrono>
#include <cstring>
#include <exception>
#include <limits>
#include <mutex>
#include <thread>
#include <utility>

namespace {

constexpr std::int64_t CounterMaximum = std::numeric_limits<std::int64_t>::max();
constexpr double FpsMaximum = 1000000.0;
constexpr auto NotReadyPause = std::chrono::milliseconds(1);
// Gives the queued report time to reach the session, which stops the writer.
constexpr auto ReportPause = std::chrono::milliseconds(200);
constexpr std::uint32_t FamilyShift = 24;

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

void ImageWriter::RequestSnap()
{
    m_snapRequest = true;
}

bool ImageWriter::StartWriting()
{
    TovLog::Debug(0, "ImageWriter::StartWriting() -> ENTER");
    m_writing = true;
    m_startAccounts = m_fifo->GetAccounts();
    m_saved = m_unwanted = m_failed = 0;
    m_evaluated = false;

    if (std::exchange(m_snapRequest, false))
        m_captureRules.SnapNextFrame();
    else
        m_captureRules.StartImgWriting(static_cast<CaptureMode>(TovLoadBound(m_captureMode)));
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
    bool const started = WorkingThread::Start();
    TovLog::Debug(started, "ImageWriter::StartWriting() <- LEAVE");
    return started;
}

bool ImageWriter::StopWriting()
{
    TovLog::Debug(0, "ImageWriter::StopWriting() -> ENTER");
    m_fifo->SetGrabberThtreadBlocking(false);
    bool const stopped = WorkingThread::Stop() != 0;
    std::exception_ptr failure;
    try {
        std::int32_t const status = m_serializer ? m_serializer->Stop() : 0;
        if (status != 0)
            TovLog::Error(static_cast<unsigned long>(status), "ImageWriter::StopWriting(): closing the files failed");
    } catch (...) {
        failure = std::current_exception(); // the session's to tell, once the rest is done
    }
    m_captureRules.StopImgWriting();
    if (m_writing)
        CloseLedger();
    m_writing = false;
    m_fifo->SetGrabberThtreadBlocking(true);
    if (failure)
        std::rethrow_exception(failure);
    TovLog::Debug(stopped, "ImageWriter::StopWriting() <- LEAVE");
    return stopped;
}

bool ImageWriter::IsWriting() const
{
    return m_writing;
}

RecordingLedger const &ImageWriter::GetLedger() const
{
    return m_ledger;
}

void ImageWriter::CloseLedger()
{
    GrabbingFifo::Accounts const &before = m_startAccounts;
    GrabbingFifo::Accounts const now = m_fifo->GetAccounts();
    m_ledger.acquired = now.arrived - before.arrived + before.queued + before.withConsumers;
    m_ledger.incomplete = now.incomplete - before.incomplete;
    m_ledger.saved = m_saved;
    m_ledger.unwanted = m_unwanted;
    m_ledger.failed = m_failed;
    m_ledger.droppedSW = now.droppedSW - before.droppedSW;
    m_ledger.queued = now.queued + now.withConsumers;
    m_ledger.droppedHW = m_fifo->GetFramesDroppedHW() - m_startDroppedHW;
    if (m_evaluated)
        return; // the plug-in keeps its own books

    RecordingLedger const &l = m_ledger;
    auto const count = [](std::int64_t frames) {
        return static_cast<long long>(frames);
    };
    TovLog::Notice("Recording ended: %lld frames (%lld incomplete) = %lld saved + %lld not wanted + %lld failed + "
                   "%lld dropped + %lld left in the queue; %lld more were lost on the way",
                   count(l.acquired), count(l.incomplete), count(l.saved), count(l.unwanted), count(l.failed),
                   count(l.droppedSW), count(l.queued), count(l.droppedHW));
    if (l.failed + l.droppedSW + l.droppedHW > 0)
        TovLog::Warning(static_cast<unsigned long>(l.failed + l.droppedSW + l.droppedHW),
                        "The recording is not whole: frames are missing");
    if (!l.AddsUp())
        TovLog::Error(0, "The frames of the recording do not add up");
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

char const *ImageWriter::GetFileExtension() const
{
    switch (GetFormat()) {
    case FormatRaw:
        return "raw";
    case FormatTvi:
        return "tvi";
    case FormatBmp:
        return "bmp";
    case FormatJpg:
        return "jpg";
    case FormatPng:
        return "png";
    case FormatTif:
        return "tif";
    case FormatAvi:
        return "avi";
    case FormatTvm:
        return ".tvm"; // a second dot in the file's name, which is meant
    }
    return "";
}

std::uint32_t ImageWriter::GetOutputPixType(std::uint32_t type, FileFormat format) const
{
    auto const row = m_inputPixTypes.find(type);
    if (row == m_inputPixTypes.end() || static_cast<std::uint64_t>(format) >= FileFormatCount)
        return type;
    std::uint32_t const output = s_convertionPixTypeMap[row->second][format];
    bool const eightBits = ((type >> 16) & 0xFF) == 8;
    if (format != FormatTif || !TovLoadBound(m_normalizedTiff) || eightBits)
        return output;
    return type >> FamilyShift == TOV_FAMILY_BAYER ? TV_PIXEL_RGB16 : TV_PIXEL_MONO16;
}

std::string ImageWriter::GetText(char const *key)
{
    auto capacity = static_cast<unsigned int>(m_text.size());
    return TovSucceeded(GetParamString(key, m_text.data(), &capacity)) ? std::string(m_text.data()) : std::string();
}

void ImageWriter::SetCurrFileName(_TovImage *image)
{
    ImageParser parser;
    m_currFileName = QDir::toNativeSeparators(QString::fromUtf8(GetText("FilePath").c_str()));
    if (!m_currFileName.endsWith(QDir::separator()))
        m_currFileName += QDir::separator();
    std::string const name = parser.parse(GetText(IsMovie() ? "MovieName" : "ImageName").c_str(), image, true);
    m_currFileName += QString::fromUtf8(name.c_str()) + QLatin1Char('.') + QLatin1String(GetFileExtension());
}

QString const &ImageWriter::GetCurrFileName() const
{
    return m_currFileName;
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
    if (m_fifo->PopOldestBuffer(&buffer) != 0) {
        std::this_thread::sleep_for(NotReadyPause);
        return;
    }
    if (!buffer)
        return;
    if (IsMovie())
        WriteMovie(buffer);
    else
        WriteImage(buffer);
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
    if (std::exchange(m_firstFrame, false) && !Try(steps.start, image))
        WindUp(steps); // the frame is tried all the same
    if (m_captureRules.NeedToWrite(image)) {
        std::int64_t const saved = m_saved;
        bool const written = Try(steps.write, image);
        if (m_saved == saved && m_failed++ == 0)
            TovLog::Error(0, "ImageWriter: a frame was not written: %s", qPrintable(m_currFileName));
        if (!written)
            WindUp(steps);
    } else {
        ++m_unwanted;
    }
    held.GiveBack();
    if (m_captureRules.IsFinished(image))
        WindUp(steps);
}

// An exception, such as for want of memory, is a failure like any other.
bool ImageWriter::Try(bool (ImageWriter::*step)(_TovImage *image), _TovImage *image)
{
    try {
        return (this->*step)(image);
    } catch (std::exception const &exception) {
        TovLog::Error(0, "ImageWriter: %s", exception.what());
        return false;
    }
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
    std::int32_t const status = m_serializer->StartImageSeries(target, GetFileExtension());
    if (status != 0)
        TovLog::Error(static_cast<unsigned long>(status), "ImageWriter: a series cannot be started");
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
    if (status != 0)
        TovLog::Error(static_cast<unsigned long>(status), "ImageWriter: the movie %s cannot be started",
                      qPrintable(m_currFileName));
    m_converting = m_converted && status == 0;
    return !m_converted || status == 0;
}

bool ImageWriter::Convert(_TovImage *image)
{
    // After a recording was wound up there is no target any more, while frames still come.
    return !m_converting || (m_converted && m_processor && m_processor->ConvertImage(image, m_converted) == 0);
}

std::int32_t ImageWriter::WriteThrough(_TovImage *image, char const *fileName)
{
    return m_serializer ? m_serializer->WriteFrame(m_converted ? m_converted : image, fileName)
                        : TOV_SERIALIZER_ERR_STATE;
}

bool ImageWriter::ImgSeriesWrite(_TovImage *image)
{
    if (!Convert(image))
        return false;
    SetCurrFileName(image);
    std::int32_t const status = WriteThrough(image, m_currFileName.toLocal8Bit().constData());
    if (status == 0) {
        ++m_saved;
        TovStoreBound(m_framesSaved, TovLoadBound(m_framesSaved) + 1);
    }
    SetParamInt("FramesSaved", TovLoadBound(m_framesSaved));
    return true; // a file that cannot be written costs its frame, and does not end the recording
}

bool ImageWriter::MovieWrite(_TovImage *image)
{
    if (!Convert(image) || WriteThrough(image, nullptr) != 0)
        return false;
    ++m_saved;
    TovStoreBound(m_framesSaved, TovLoadBound(m_framesSaved) + 1);
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
