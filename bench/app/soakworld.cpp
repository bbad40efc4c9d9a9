#include "soakworld.h"

#include "seriesfiles.h"
#include "wirecamera.h"

#include <QCoreApplication>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <sstream>
#include <string>
#include <thread>

#include <sys/prctl.h>

#include <csignal>

namespace fs = std::filesystem;
using namespace std::chrono_literals;

namespace {

// What a sender may still have in hand when its camera has gone.
constexpr auto Settling = 150ms;
// A frame's file is left alone for so long.
constexpr auto Youth = 1s;

// Takes the frames of recordings away once they are there, and counts them.
class Reaper
{
public:
    explicit Reaper(fs::path const &folder) : m_folder(folder), m_thread([this] { Run(); })
    {
    }
    ~Reaper()
    {
        m_quit = true;
        m_thread.join();
    }
    // Those that are still there included, however young.
    std::uint64_t Count()
    {
        return m_count + Take(false);
    }

private:
    void Run()
    {
        while (!m_quit) {
            m_count += Take(true);
            std::this_thread::sleep_for(500ms);
        }
    }
    std::uint64_t Take(bool remove) const
    {
        std::uint64_t count = 0;
        std::error_code error;
        auto const now = fs::file_time_type::clock::now();
        for (auto const &entry : fs::directory_iterator(m_folder, error)) {
            if (entry.path().extension() != ".raw" || !entry.is_regular_file(error))
                continue;
            if (!remove)
                ++count;
            else if (auto const written = entry.last_write_time(error); !error && now - written > Youth)
                count += fs::remove(entry.path(), error);
        }
        return count;
    }

    fs::path const m_folder;
    std::atomic<std::uint64_t> m_count{0};
    std::atomic<bool> m_quit{false};
    std::thread m_thread; // last: it uses everything above
};

struct Tables
{
    std::uint64_t count = 0, rows = 0, holes = 0, gaps = 0;

    void Add(fs::path const &file)
    {
        std::ifstream table(file);
        std::string line;
        std::getline(table, line);
        std::uint64_t least = 0, most = 0, here = 0, told = 0;
        bool isFirst = true;
        for (SeriesFiles::Row row; std::getline(table, line);) {
            if (line.starts_with(SeriesFiles::NoRow) || !SeriesFiles::Decode(line, row))
                continue;
            ++here;
            // A frame without an id of its own is one of those that the next gap would count.
            if (row.frameId == 0)
                continue;
            told += isFirst ? 0 : row.gapBefore;
            least = isFirst ? row.frameId : std::min(least, row.frameId);
            most = isFirst ? row.frameId : std::max(most, row.frameId);
            isFirst = false;
        }
        ++count;
        rows += here;
        gaps += told;
        std::uint64_t const ids = isFirst ? 0 : most - least + 1;
        holes += ids > here + told ? ids - here - told : here + told - ids;
    }
};

class Served
{
public:
    Served(SimModel const *model, fs::path const &folder)
        : m_camera({model, "127.0.0.1", "SOAK1", {}}),
          m_folder(folder),
          m_reaper(folder)
    {
    }
    std::string Do(std::string const &line)
    {
        std::istringstream words(line);
        std::string command, first, second;
        words >> command >> first >> second;
        try {
            return Do(command, first, second);
        } catch (std::exception const &error) {
            return std::string("fail ") + error.what();
        }
    }

private:
    std::string Do(std::string const &command, std::string const &first, std::string const &second)
    {
        if (command == "set")
            return Set(first, second);
        if (command == "speak")
            return Set("WireSilence", "Off");
        if (command == "silence") {
            Set("WireSilence", "All");
            return Settled();
        }
        if (command == "die" || command == "restart") {
            m_camera.Die();
            std::string const sent = Settled();
            if (command == "restart")
                m_camera.Return({}, first == "reset");
            return sent;
        }
        if (command == "return") {
            m_camera.Return({}, first == "reset");
            return "ok";
        }
        if (command == "sent")
            return Sent();
        if (command == "files")
            return "files " + std::to_string(m_reaper.Count());
        Tables tables;
        for (auto const &series : fs::directory_iterator(m_folder)) {
            if (series.path().extension() == ".series")
                tables.Add(series.path() / (series.path().stem().string() + ".frames.csv"));
        }
        return "tables " + std::to_string(tables.count) + ' ' + std::to_string(tables.rows) + ' ' +
               std::to_string(tables.holes) + ' ' + std::to_string(tables.gaps);
    }
    std::string Set(std::string const &name, std::string const &value)
    {
        std::string why;
        return m_camera.SetFeature(name, value, why) ? "ok" : "fail " + why;
    }
    std::string Settled()
    {
        std::this_thread::sleep_for(Settling);
        return Sent();
    }
    std::string Sent()
    {
        WireCameraStatus const status = m_camera.GetStatus();
        std::clock_t const processor = std::clock();
        auto const now = std::chrono::steady_clock::now();
        double const share = static_cast<double>(processor - m_processor) / CLOCKS_PER_SEC /
                             std::chrono::duration<double>(now - m_asked).count();
        m_processor = processor;
        m_asked = now;
        std::string sent = "sent";
        for (std::uint64_t const number : {status.frames, status.leftOut, status.packets, status.resent,
                                           static_cast<std::uint64_t>(100 * share + 0.5)})
            sent += ' ' + std::to_string(number);
        return sent;
    }

    WireCamera m_camera;
    fs::path const m_folder;
    Reaper m_reaper;
    std::clock_t m_processor = std::clock();
    std::chrono::steady_clock::time_point m_asked = std::chrono::steady_clock::now();
};

} // namespace

int RunWorld(QString const &model, QString const &folder)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL); // it is of no use alone
    for (SimModel const *const one : GetWireModels()) {
        if (model != QLatin1String(one->name))
            continue;
        Served served(one, folder.toStdString());
        std::cout << "ready" << std::endl;
        for (std::string line; std::getline(std::cin, line);)
            std::cout << served.Do(line) << std::endl;
        return 0;
    }
    return 1;
}

World::World(QStringList const &arguments)
{
    m_process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    m_answers.push_back({}); // "ready"
    connect(&m_process, &QProcess::readyReadStandardOutput, this, &World::Read);
    m_process.start(QCoreApplication::applicationFilePath(), arguments);
    while (!m_answers.empty() && m_process.waitForReadyRead())
        Read();
}

World::~World()
{
    m_process.disconnect(this);
    m_process.closeWriteChannel();
    m_process.waitForFinished();
}

bool World::Runs() const
{
    return m_process.state() == QProcess::Running;
}

void World::Ask(QString const &command, Answer answer)
{
    m_answers.push_back(std::move(answer));
    m_process.write(command.toUtf8() + '\n');
}

void World::Read()
{
    while (m_process.canReadLine() && !m_answers.empty()) {
        QString const line = QString::fromUtf8(m_process.readLine()).trimmed();
        Answer const answer = std::move(m_answers.front());
        m_answers.pop_front();
        if (line.startsWith(QLatin1String("fail")))
            std::printf("the camera's process: %s\n", qPrintable(line));
        if (answer)
            answer(line.split(QLatin1Char(' ')));
    }
}
