// The protocol log: decoding beside tshark on the same capture, the model's memory, and batches of lines under a view
// beside those of a plain model that holds a QList of lines. Runs offscreen. Times are processor time.
#include "fakehost.h"
#include "linestore.h"
#include "logstringmaker.h"
#include "logwrite.h"
#include "qttovlogmodel.h"
#include "session.h"

#include "pcap.h"
#include "simtraffic.h"

#include <QApplication>
#include <QFileInfo>
#include <QHeaderView>
#include <QProcess>
#include <QScrollBar>
#include <QTemporaryDir>
#include <QTextStream>
#include <QTime>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <mutex>
#include <thread>

#include <sys/resource.h>
#include <time.h>

namespace {

using Clock = std::chrono::steady_clock;

double Seconds(Clock::time_point since)
{
    return std::chrono::duration<double>(Clock::now() - since).count();
}

// Of this thread: what other programs take does not count.
double ProcessorSeconds()
{
    timespec time;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

// Of the programs that were started and have ended.
double ChildrensSeconds()
{
    rusage usage;
    getrusage(RUSAGE_CHILDREN, &usage);
    auto const seconds = [](timeval t) {
        return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_usec) * 1e-6;
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

double Median(std::vector<double> values)
{
    std::nth_element(values.begin(), values.begin() + static_cast<long>(values.size() / 2), values.end());
    return values[values.size() / 2];
}

double ResidentBytes()
{
    std::ifstream file("/proc/self/statm");
    double pages = 0;
    file >> pages >> pages;
    return pages * 4096;
}

// ---- Decoding ----------------------------------------------------------------------------------------------------

std::vector<SimPacketSeen> CameraPackets()
{
    SimTraffic traffic("VG-2048M");
    return traffic.Collect(40, [](TovCam::ParamArray &nodes) {
        nodes.SetIntegerValue("Width", 256);
        nodes.SetIntegerValue("Height", 64);
        nodes.SetEnumValueStr("EventSelector", "FrameStart");
        nodes.SetEnumValueStr("EventNotification", "On");
    });
}

QString LineOf(LogStringMaker &maker, bool stream, void const *data, unsigned long size)
{
    return stream ? maker.MakeStreamLogString(data, size) : maker.MakeControlLogString(data, size);
}

double TsharkSeconds(QString const &file)
{
    QProcess tshark;
    tshark.setStandardOutputFile(QProcess::nullDevice());
    tshark.setStandardErrorFile(QProcess::nullDevice());
    double const before = ChildrensSeconds();
    tshark.start(QStringLiteral(TSHARK), {QStringLiteral("-n"), QStringLiteral("-r"), file, QStringLiteral("-d"),
                                          QStringLiteral("udp.port==%1,gvsp").arg(PcapFile::StreamPort)});
    tshark.waitForFinished(-1);
    return ChildrensSeconds() - before;
}

// The whole file: read, taken apart, decoded, and the lines dropped.
double OurSeconds(QString const &path, std::size_t &lines)
{
    double const start = ProcessorSeconds();
    std::FILE *const in = std::fopen(qPrintable(path), "rb");
    if (in)
        std::setvbuf(in, nullptr, _IOFBF, 1 << 18);
    std::vector<unsigned char> packet(PcapFile::HeaderBytes);
    if (!in || std::fread(packet.data(), packet.size(), 1, in) != 1)
        return 0;
    LogStringMakerGEV maker;
    std::uint32_t record[PcapFile::RecordBytes / 4];
    for (lines = 0; std::fread(record, sizeof record, 1, in) == 1; ++lines) {
        packet.resize(record[2]);
        if (std::fread(packet.data(), packet.size(), 1, in) != 1)
            break;
        bool const stream = (packet[20] << 8 | packet[21]) == PcapFile::StreamPort;
        QString line = LineOf(maker, stream, &packet[PcapFile::UdpBytes], packet.size() - PcapFile::UdpBytes);
        benchmark::DoNotOptimize(line);
    }
    std::fclose(in);
    return ProcessorSeconds() - start;
}

void DecodeBesideTshark(benchmark::State &state)
{
    constexpr std::size_t Wanted = 100000;
    std::vector<SimPacketSeen> const packets = CameraPackets();
    QTemporaryDir folder;
    QString const path = folder.filePath(QStringLiteral("all.pcap")), one = folder.filePath(QStringLiteral("one.pcap"));
    {
        PcapFile all(path.toStdString()), first(one.toStdString());
        first.Add(packets[0].channel, packets[0].bytes);
        for (std::size_t i = 0; i < Wanted; ++i)
            all.Add(packets[i % packets.size()].channel, packets[i % packets.size()].bytes,
                    static_cast<std::size_t>(state.range(0)));
    }
    std::vector<double> ours, theirs, empty;
    std::size_t lines = 0;
    for (auto _ : state) {
        ours.push_back(OurSeconds(path, lines));
        theirs.push_back(TsharkSeconds(path));
        empty.push_back(TsharkSeconds(one)); // its start does not count
    }
    double const own = Median(ours), other = Median(theirs) - Median(empty);
    state.counters["lines"] = static_cast<double>(lines);
    state.counters["ours/s"] = Wanted / own;
    state.counters["tshark/s"] = Wanted / other;
    state.counters["ratio"] = other / own;
}
// Whole packets, and what a tap takes of them.
BENCHMARK(DecodeBesideTshark)->Arg(65535)->Arg(128)->Iterations(5)->Unit(benchmark::kMillisecond);

void DecodeInMemory(benchmark::State &state)
{
    std::vector<SimPacketSeen> const packets = CameraPackets();
    LogStringMakerGEV maker;
    std::size_t i = 0;
    for (auto _ : state) {
        SimPacketSeen const &packet = packets[i++ % packets.size()];
        QString line =
            LineOf(maker, packet.channel == TovCam::EventStreamChannel, packet.bytes.data(), packet.bytes.size());
        benchmark::DoNotOptimize(line);
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(DecodeInMemory);

// ---- The model ---------------------------------------------------------------------------------------------------

std::vector<QString> const &SomeLines()
{
    static std::vector<QString> const lines = [] {
        LogStringMakerGEV maker;
        std::vector<QString> made;
        for (SimPacketSeen const &packet : CameraPackets())
            made.push_back(
                LineOf(maker, packet.channel == TovCam::EventStreamChannel, packet.bytes.data(), packet.bytes.size()));
        return made;
    }();
    return lines;
}

QString const s_channel = QStringLiteral("Stream");

// As simple as a model of lines can be: the peer.
class PlainModel : public QAbstractTableModel
{
public:
    void append(qlonglong time, QString const &channel, QString const &message)
    {
        std::lock_guard<std::mutex> const lock(m_mutex);
        m_pending.append({time, channel, message});
    }
    void _q_delayedAppendData()
    {
        std::lock_guard<std::mutex> const lock(m_mutex);
        beginInsertRows({}, m_visible.size(), m_visible.size() + m_pending.size() - 1);
        m_visible += m_pending;
        m_pending.clear();
        endInsertRows();
    }
    void clear()
    {
        beginResetModel();
        m_visible = {};
        endResetModel();
    }
    int rowCount(QModelIndex const &parent = {}) const override
    {
        return parent.isValid() ? 0 : m_visible.size();
    }
    int columnCount(QModelIndex const & = {}) const override
    {
        return 3;
    }
    QVariant data(QModelIndex const &index, int role) const override
    {
        if (role != Qt::DisplayRole)
            return {};
        auto const &line = m_visible.at(index.row());
        return index.column() == 0   ? QTime::fromMSecsSinceStartOfDay(static_cast<int>(line.time)).toString()
               : index.column() == 1 ? line.channel
                                     : line.message;
    }

private:
    std::mutex m_mutex;
    QList<QtTovLogViewer::LogData> m_visible, m_pending;
};

template<class Model>
void Append(Model &model, int count)
{
    auto const &lines = SomeLines();
    for (int i = 0; i < count; ++i) {
        // A text of its own, as a decoder makes it.
        QString const &line = lines[static_cast<std::size_t>(i) % lines.size()];
        model.append(i % 86400000, s_channel, QString(line.constData(), line.size()));
    }
}

template<class Model>
void AppendLine(benchmark::State &state)
{
    Model model;
    constexpr int Lines = 100000;
    SomeLines();
    for (auto _ : state) {
        Append(model, Lines);
        state.PauseTiming();
        model._q_delayedAppendData();
        model.clear();
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * Lines);
}
BENCHMARK_TEMPLATE(AppendLine, QtTovLogModel)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(AppendLine, PlainModel)->Unit(benchmark::kMillisecond);

// Lines of `range` rows, with the view's own share where it is shown; what clearing takes and leaves.
template<class Model>
void BytesALine(benchmark::State &state)
{
    int const rows = static_cast<int>(state.range(0));
    double text = 0;
    auto const &lines = SomeLines();
    for (int i = 0; i < rows; ++i)
        text += lines[static_cast<std::size_t>(i) % lines.size()].size();
    for (auto _ : state) {
        Model model;
        QtTovLogViewer viewer;
        viewer.setModel(&model);
        viewer.show();
        QCoreApplication::processEvents();
        double const before = ResidentBytes();
        for (int done = 0; done < rows; done += 10000) {
            Append(model, 10000);
            model._q_delayedAppendData();
            QCoreApplication::processEvents();
        }
        double const full = ResidentBytes() - before;
        double const start = ProcessorSeconds();
        model.clear();
        QCoreApplication::processEvents();
        state.counters["clear_ms"] = (ProcessorSeconds() - start) * 1000;
        state.counters["characters"] = text / rows;
        state.counters["bytes"] = full / rows;
        state.counters["besides_8bit_text"] = (full - text) / rows;
        state.counters["besides_16bit_text"] = (full - 2 * text) / rows;
        state.counters["MB_full"] = full / 1048576;
        state.counters["MB_left"] = (ResidentBytes() - before) / 1048576;
    }
}
BENCHMARK_TEMPLATE(BytesALine, QtTovLogModel)->Arg(1000000)->Arg(5000000)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(BytesALine, PlainModel)->Arg(1000000)->Iterations(1)->Unit(benchmark::kMillisecond);

// The GUI thread's share of a batch of 10,000 lines: the insert, the move to the last row, the picture.
template<class Model>
void Batch(benchmark::State &state)
{
    int const rows = static_cast<int>(state.range(0));
    Model model;
    QtTovLogViewer viewer;
    viewer.setModel(&model);
    viewer.resize(1200, 400);
    viewer.show();
    Append(model, rows);
    model._q_delayedAppendData();
    QCoreApplication::processEvents();
    std::vector<double> all, inserts;
    for (auto _ : state) {
        state.PauseTiming();
        Append(model, 10000);
        state.ResumeTiming();
        double const start = ProcessorSeconds();
        model._q_delayedAppendData();
        double const inserted = ProcessorSeconds();
        QCoreApplication::processEvents();
        all.push_back((ProcessorSeconds() - start) * 1000);
        inserts.push_back((inserted - start) * 1000);
    }
    if (viewer.verticalScrollBar()->value() != viewer.verticalScrollBar()->maximum())
        state.SkipWithError("the view does not follow");
    state.counters["median_ms"] = Median(all);
    state.counters["insert_ms"] = Median(inserts);
    state.counters["worst_ms"] = *std::max_element(all.begin(), all.end());

    // Elsewhere in the table: a jump of the scroll bar, with its picture.
    std::vector<double> jumps;
    for (int i = 0; i < 20; ++i) {
        double const start = ProcessorSeconds();
        viewer.verticalScrollBar()->setValue(static_cast<int>(qint64{i} * rows / 20));
        QCoreApplication::processEvents();
        jumps.push_back((ProcessorSeconds() - start) * 1000);
    }
    state.counters["jump_ms"] = Median(jumps);
}
BENCHMARK_TEMPLATE(Batch, QtTovLogModel)->Arg(1000000)->Arg(5000000)->Iterations(30)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(Batch, PlainModel)->Arg(1000000)->Iterations(30)->Unit(benchmark::kMillisecond);

// As many lines as two threads can bring in two seconds while the view shows them.
void AppendFromThreads(benchmark::State &state)
{
    QtTovLogModel model;
    QtTovLogViewer viewer;
    viewer.setModel(&model);
    viewer.show();
    SomeLines();
    for (auto _ : state) {
        std::atomic<bool> stop{false};
        std::atomic<qint64> brought{0};
        std::vector<std::thread> threads;
        for (int t = 0; t < 2; ++t)
            threads.emplace_back([&] {
                while (!stop) {
                    Append(model, 100);
                    brought += 100;
                }
            });
        auto const start = Clock::now();
        double worst = 0;
        while (Seconds(start) < 2.0) {
            auto const pass = Clock::now();
            QCoreApplication::processEvents();
            worst = std::max(worst, Seconds(pass) * 1000);
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        stop = true;
        for (std::thread &thread : threads)
            thread.join();
        double const took = Seconds(start);
        model._q_delayedAppendData();
        state.counters["lines/s"] = static_cast<double>(brought) / took;
        state.counters["lost"] = static_cast<double>(brought - model.rowCount());
        state.counters["worst_pass_ms"] = worst;
        model.clear();
    }
}
BENCHMARK(AppendFromThreads)->Iterations(1)->UseRealTime()->Unit(benchmark::kMillisecond);

// ---- The session -------------------------------------------------------------------------------------------------

// A packet's whole way behind the callback, where no TZ is set; beside it what asking Qt for the time of each line
// takes.
void WriteLog(benchmark::State &state)
{
    bool const ours = state.range(0) == 0;
    std::vector<SimPacketSeen> const packets = CameraPackets();
    unsetenv("TZ");
    tzset();
    FakeDevice device;
    FakeHost host{device.script};
    Session session(nullptr, &device, &host);
    std::size_t i = 0;
    for (auto _ : state) {
        SimPacketSeen const &packet = packets[i++ % packets.size()];
        auto const channel = static_cast<Session::LogEnum>(packet.channel);
        if (ours)
            session.WriteLog(channel, packet.bytes.data(), packet.bytes.size());
        else
            session.GetLogModel()->append(
                QTime::currentTime().msecsSinceStartOfDay(), s_channel,
                session.MakeLogStringFromData(channel, packet.bytes.data(), packet.bytes.size()));
    }
    state.counters["lines/s"] = benchmark::Counter(static_cast<double>(i), benchmark::Counter::kIsRate);
}
BENCHMARK(WriteLog)->Arg(0)->Arg(1)->Iterations(1000000);

// A million lines into a file; beside it by QTextStream.
void SaveAMillionLines(benchmark::State &state)
{
    QtTovLogModel model;
    Append(model, 1000000);
    QTemporaryDir folder;
    QString const path = folder.filePath(QStringLiteral("saved.log"));
    for (auto _ : state) {
        auto file = std::make_unique<QFile>(path);
        file->open(QIODevice::WriteOnly | QIODevice::Text);
        if (state.range(0) == 0) {
            LogWrite write(model.lines(), std::move(file), false);
            write.WaitFor(std::chrono::minutes(5));
        } else {
            QTextStream out(file.get());
            model.visitLog([&out](QtTovLogViewer::LogData const &line) {
                out << QTime::fromMSecsSinceStartOfDay(static_cast<int>(line.time))
                           .toString(QStringLiteral("hh:mm:ss.zzz"))
                    << ' ' << line.channel << ' ' << line.message << '\n';
            });
        }
    }
    state.counters["MB"] = static_cast<double>(QFileInfo(path).size()) / 1e6;
}
BENCHMARK(SaveAMillionLines)->Arg(0)->Arg(1)->Iterations(3)->UseRealTime()->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char **argv)
{
    setenv("TOV_CAMERA_INTERFACES", "sim", 1);
    setenv("QT_QPA_PLATFORM", "offscreen", 0);
    QApplication application(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
