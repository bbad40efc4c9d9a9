#include "logwrite.h"

#include <QByteArray>

#include <algorithm>
#include <new>
#include <vector>

namespace {

constexpr int Portion = 1 << 20; // bytes between two checks whether to go on

// Lines as text. Not through QTime and QTextStream, which take ten times as long.
class LineText
{
public:
    explicit LineText(LineStore const &lines) : m_lines(lines)
    {
        m_text.reserve(Portion + Portion / 8);
    }
    void Add(LineStore::Line const &line)
    {
        AddTime(line.time);
        m_text.append(' ').append(Channel(line)).append(' ');
        auto const isAscii = [](char c) {
            return static_cast<unsigned char>(c) < 0x80;
        };
        if (!line.wide && std::all_of(line.text, line.text + line.bytes, isAscii))
            m_text.append(line.text, static_cast<int>(line.bytes));
        else
            m_text.append(line.Message().toUtf8());
        m_text.append('\n');
    }
    QByteArray &Text()
    {
        return m_text;
    }

private:
    // Nothing for a number that is not a time of day.
    void AddTime(qlonglong time)
    {
        constexpr int Places[] = {36000000, 3600000, 600000, 60000, 10000, 1000, 100, 10, 1};
        constexpr char Marks[] = "\0:\0:\0.\0\0\0"; // behind each of them
        if (time < 0 || time >= 86400000)
            return;
        constexpr int Bases[] = {10, 10, 6, 10, 6, 10, 10, 10, 10};
        for (int i = 0; i < 9; ++i) {
            m_text.append(static_cast<char>('0' + time / Places[i] % Bases[i]));
            if (Marks[i] != '\0')
                m_text.append(Marks[i]);
        }
    }
    QByteArray const &Channel(LineStore::Line const &line)
    {
        while (m_channels.size() <= line.channel)
            m_channels.emplace_back();
        QByteArray &channel = m_channels[line.channel];
        if (channel.isNull())
            channel = m_lines.ChannelOf(line).toUtf8();
        return channel;
    }

    LineStore const &m_lines;
    QByteArray m_text;
    std::vector<QByteArray> m_channels;
};

} // namespace

LogWrite::LogWrite(LineStore lines, std::unique_ptr<QFile> file, bool release)
    : m_lines(std::move(lines)),
      m_file(std::move(file)),
      m_path(m_file->fileName()),
      m_count(m_lines.Count()),
      m_release(release),
      m_thread([this] { Run(); })
{
}

LogWrite::~LogWrite()
{
    m_end.store(true, std::memory_order_relaxed);
    m_thread.join();
}

void LogWrite::Cancel()
{
    m_remove.store(true, std::memory_order_relaxed);
    m_end.store(true, std::memory_order_relaxed);
}

bool LogWrite::WaitFor(std::chrono::milliseconds time)
{
    std::unique_lock lock(m_mutex);
    return m_ended.wait_for(lock, time, [this] { return m_state != State::Running; });
}

LogWrite::State LogWrite::GetState()
{
    std::lock_guard const lock(m_mutex);
    return m_state;
}

QString LogWrite::Error()
{
    std::lock_guard const lock(m_mutex);
    return m_error;
}

LineStore LogWrite::TakeLines()
{
    return std::move(m_lines);
}

// False when it was stopped.
bool LogWrite::WriteAll()
{
    LineText text(m_lines);
    std::size_t written = 0;
    auto const visit = [&](LineStore::Line const &line) {
        text.Add(line);
        ++written;
        if (text.Text().size() < Portion)
            return true;
        bool const good = m_file->write(text.Text()) == text.Text().size();
        text.Text().resize(0);
        m_written.store(written, std::memory_order_relaxed);
        return good && !m_end.load(std::memory_order_relaxed);
    };
    bool const all = m_release ? m_lines.Drain(visit) : m_lines.ForEachWhile(visit);
    if (all)
        m_file->write(text.Text());
    m_file->flush();
    m_written.store(written, std::memory_order_relaxed);
    return all;
}

void LogWrite::Run()
{
    State state = State::Failed;
    QString error;
    try {
        bool const all = WriteAll();
        bool const failed = m_file->error() != QFileDevice::NoError;
        state = failed ? State::Failed : all ? State::Written : State::Cancelled;
        error = m_file->errorString();
    } catch (std::bad_alloc const &) {
        error = QString(); // a text would take memory
    }
    m_file->close();
    if (state == State::Cancelled && m_remove.load(std::memory_order_relaxed))
        m_file->remove();
    std::lock_guard const lock(m_mutex);
    m_state = state;
    m_error = error;
    m_ended.notify_all();
}
