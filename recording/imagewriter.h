// The recording engine: a thread that takes frames from the FIFO in their order and hands them to the serializer as
// single files or as one movie, under the capture rule in force, and keeps the recording's counters. With the
// evaluation plug-in loaded the same thread feeds frames to the plug-in instead, and writes nothing.
//
// The thread holds one buffer at a time and gives it back on every path. Of the frames that it has taken it drops only
// those that the rule does not want; when it is slower than the camera, the FIFO drops the newest frames and counts
// them.
//
// Threads: StartWriting and StopWriting on the GUI thread; Work and everything under it on its own thread; parameters
// from any thread, through the storage. The signals are emitted on its own thread. Every failure winds the recording up
// through WritingDone, except that a single file that cannot be written costs its frame alone. What failed and why goes
// to the operator through a RecordingReport.
#pragma once

#include "capturerules.h"
#include "frametally.h"
#include "grabbingfifo.h"
#include "recordinggap.h"
#include "recordinglosses.h"
#include "recordingreport.h"
#include "tovcomponentimp.h"
#include "workingthread.h"

#include <QByteArray>
#include <QObject>
#include <QString>

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

class ImgProcessor;
class TovImageSerializer;
struct _TovImage;

class ImageWriter : public QObject, public WorkingThread, public TovComponentImp
{
    Q_OBJECT
public:
    enum FileFormat : std::int64_t {
        FormatRaw = 0,
        FormatTvi = 1,
        FormatBmp = 2,
        FormatJpg = 3,
        FormatPng = 4,
        FormatTif = 5,
        FormatAvi = 6,
        FormatTvm = 7, // beyond the range of "FileFormat"
    };
    static constexpr int PixTypeCount = 35;
    static constexpr int FileFormatCount = 8;
    static std::uint32_t const s_inputPixTypeMap[PixTypeCount];
    // By input type and file format; 0 asks for no conversion.
    static std::uint32_t const s_convertionPixTypeMap[PixTypeCount][FileFormatCount];

    // The FIFO and the processor are not owned, and outlive a recording. Without a processor nothing is converted.
    ImageWriter(QObject *parent, GrabbingFifo *fifo, ImgProcessor *processor);
    ~ImageWriter() override;

    // Whether recordings leave files beside their frames, from the next one on; not at first. Snaps never do. GUI
    // thread.
    void SetCompanions(bool on);
    // The folder of those files, and what their names begin with: of the last recording that was stopped; empty where
    // there are none. As the file system has them. GUI thread.
    QByteArray const &GetCompanionFolder() const;
    QByteArray const &GetCompanionName() const;
    // Something that belongs there could not be written, after the recording. GUI thread.
    void TellCompanionFailure(QString const &why);
    // The next recording goes on with that one, after a gap, which is told in the files beside both. GUI thread.
    void ContinueAfter(RecordingEnd const &end);
    // Of the last recording that was stopped. GUI thread.
    RecordingEnd GetEnd() const;
    // One shot: the next recording takes one frame, whatever "CaptureMode" says.
    void RequestSnap();
    bool StartWriting();
    // Returns once the frame in hand is done with and the files are closed. `configuration` gives the camera's
    // settings, as SaveConfiguration writes them, or nothing; it is asked where a movie has a place for them.
    bool StopWriting(std::function<QByteArray()> const &configuration = {});
    // From StartWriting to StopWriting. GUI thread.
    bool IsWriting() const;
    // Of the last recording that was stopped. GUI thread.
    RecordingLedger const &GetLedger() const;
    // What it has lost, by places; of the last recording that was stopped. GUI thread.
    std::vector<LossFinding> const &GetLosses() const;
    // What the FIFO and all recordings have lost so far. Any thread.
    LossCounts GetLossCounts();
    // Lives as long as the writer. GUI thread.
    RecordingReport &GetReport();

    TovComponent *GetSerializer(); // the serializer's parameters; null when there is none
    // That of format 7 begins with a dot.
    char const *GetFileExtension() const;
    // What frames of that type are converted to before they are written, or the type itself; 0 when none is asked for.
    std::uint32_t GetOutputPixType(std::uint32_t type, FileFormat format) const;
    // The writer's own thread, or any while that sleeps.
    void SetCurrFileName(_TovImage *image);
    QString const &GetCurrFileName() const;

    void PostFinishWriting();
    void PostFinishEvaltest();

signals:
    void WritingDone();
    void EvaluationTestDone();

protected:
    void Work() override;

private:
    // What series and movies do differently.
    struct Steps
    {
        bool (ImageWriter::*start)(_TovImage *image);
        bool (ImageWriter::*write)(_TovImage *image);
        bool (ImageWriter::*stop)();
    };

    void RegisterParams();
    FileFormat GetFormat() const;
    bool IsMovie() const;
    std::string GetText(char const *key);
    QString Folder();
    QString SeriesFolder(); // which all files of a series are in or below

    void DoWriting();
    void UpdateCounters();
    void WriteImage(TovCam::Buffer *buffer);
    void WriteMovie(TovCam::Buffer *buffer);
    void Record(TovCam::Buffer *buffer, Steps const &steps);
    bool Try(bool (ImageWriter::*step)(_TovImage *image), _TovImage *image);
    void WindUp(Steps const &steps);

    bool ImgSeriesWriteStart(_TovImage *image);
    bool ImgSeriesWrite(_TovImage *image);
    bool ImgSeriesWriteStop();
    bool MovieWriteStart(_TovImage *image);
    bool MovieWrite(_TovImage *image);
    bool MovieStop();
    // Sets *target to what the serializer gets to see; false when there is no memory for it.
    bool PrepareConversion(_TovImage *image, _TovImage const **target);
    bool Convert(_TovImage *image);
    bool WriteThrough(_TovImage *image, char const *fileName);
    // Of the serializer's last operation, in its words or else in these.
    RecordingFailure FailureOf(std::int32_t status, QString const &otherwise = {}) const;
    void CountFailure();
    void CountWritten();
    void NoteFrame(TovCam::Buffer *buffer, std::uint64_t gapBefore);
    void SettleAtStop(std::int32_t status);
    void ExplainLosses(LossCounts now);
    void LookForRoom();
    RecordingLedger SoFar();
    RecordingLedger Since(GrabbingFifo::Accounts const &now);

    bool DoEvaluation();
    bool EndEvaluation();

    void HandOver(std::function<QByteArray()> const &configuration);
    void CloseLedger();
    void KeepLedger();
    void BeginAfterGap(TovCam::Buffer *buffer);
    void TellGap();

    // GUI thread.
    bool m_snapRequest = false;
    bool m_snap = false; // the last recording
    std::optional<RecordingEnd> m_continuesNext;
    bool m_writing = false;
    GrabbingFifo::Accounts m_startAccounts{}, m_endAccounts{};
    RecordingLedger m_ledger;
    LossCounts m_startLosses;
    std::vector<LossFinding> m_findings;
    RecordingReport m_report;
    bool m_wantsCompanions = false;
    QByteArray m_companionFolder, m_companionName;

    // Set by the writer's own thread, or while it sleeps.
    GrabbingFifo *m_fifo;
    QString m_currFileName;
    bool m_firstFrame = false;
    CaptureRules m_captureRules;
    TovImageSerializer *m_serializer; // owned
    ImgProcessor *m_processor;
    std::int64_t m_startAcquired = 0;
    std::int64_t m_startDroppedHW = 0;
    std::int64_t m_startDroppedSW = 0;
    _TovImage *m_converted = nullptr; // the recording's conversion target
    bool m_converting = false;
    std::uint32_t m_outputPixType;
    std::map<std::uint32_t, int> m_inputPixTypes; // rows of the conversion table
    RecordingLosses m_losses;
    FrameTally m_tally; // of this recording, as all below
    bool m_companions = false;
    bool m_incomplete = false;     // the frame in hand
    bool m_started = false;        // a series or a movie
    RecordingFailure m_failure;    // of the start, or of the frame in hand
    RecordingFailure m_endFailure; // for which nothing more is written
    std::chrono::steady_clock::time_point m_roomAsked;
    bool m_evaluated = false;
    std::optional<RecordingEnd> m_continues;  // what this recording goes on with
    std::optional<RecordingGap> m_gap;        // since then
    bool m_gapTold = false;                   // to the files of that recording
    std::optional<RecordedFrame> m_lastFrame; // that was saved
    std::int64_t m_arrival = 0;               // of the frame in hand
    QByteArray m_pictures;                    // the default of "FilePath"
    std::vector<char> m_text;                 // the buffer of GetText

    // Bound; scalars by relaxed atomic access, text through the storage.
    std::int64_t m_fileFormat = FormatRaw;
    char m_filePath[32000];
    char m_imageName[260];
    char m_movieName[260];
    std::int64_t m_captureMode = CaptureModeContinous;
    std::int64_t m_framesSaved = 0;
    std::int64_t m_captureAcquired = 0;
    std::int64_t m_captureDroppedHW = 0;
    std::int64_t m_captureDroppedSW = 0;
    bool m_normalizedTiff = true;
    std::int64_t m_jpgQuality = 85;
    double m_movieFps = 30.0;
};
