#include "companions.h"

#include "failures.h"
#include "filenames.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <new>
#include <utility>

#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr std::string_view FolderEnd = ".series";
// Of rows: what is written at once at the latest, what is taken ahead of them, and what may wait.
constexpr std::size_t BatchBytes = 64 << 10, RoomAhead = 2 * BatchBytes, MostWaiting = 4 << 20;
constexpr std::size_t NumbersOfRow = 128; // bytes, about

std::string_view BaseOf(std::string_view file)
{
    return file.substr(file.rfind('/') + 1);
}

std::string_view WithoutExtension(std::string_view name)
{
    std::size_t const dot = name.rfind('.');
    return dot == std::string_view::npos || dot == 0 ? name : name.substr(0, dot);
}

// The path from the folder on; empty for a file that is not below it.
std::string_view PathBelow(std::string_view folder, std::string_view file)
{
    if (folder == "." && !file.starts_with('/')) {
        file.remove_prefix(file.starts_with("./") ? 2 : 0);
    } else if (folder == "/" && file.starts_with('/')) {
        file.remove_prefix(1);
    } else if (!folder.empty() && file.starts_with(folder) && file.substr(folder.size()).starts_with('/')) {
        file.remove_prefix(folder.size() + 1);
    } else {
        return {};
    }
    file.remove_prefix(std::min(file.find_first_not_of('/'), file.size()));
    return file.starts_with("../") || file.find("/../") != std::string_view::npos ? std::string_view() : file;
}

bool IsThere(std::string const &file)
{
    struct stat info;
    return stat(file.c_str(), &info) == 0;
}

std::optional<double> Known(double value)
{
    return std::isfinite(value) ? std::optional(value) : std::nullopt;
}

} // namespace

// Runs `function`, whose containers may run out of memory.
template<class F>
void Companions::Safely(F const &function)
{
    try {
        function();
    } catch (std::bad_alloc const &) {
        m_failure = "Out of memory"; // short enough to be stored without the heap
        GiveUp();
    }
}

void Companions::Forget()
{
    GiveUp();
    m_folder.clear();
    m_name.clear();
    m_home.clear();
    m_wantedHome.clear();
    m_movie.clear();
    m_failure.clear();
    m_lasting = false;
    m_taken = m_settled = 0;
    m_readable = 0;
}

void Companions::GiveUp()
{
    m_on = false;
    Close();
    m_waiting = m_waitingBytes = 0;
}

void Companions::SetPreface(std::string preface)
{
    m_preface = std::move(preface);
}

void Companions::BeginSeries(std::optional<SeriesFiles::RawShape> const &raw, std::string const &home)
{
    m_on = true;
    m_raw = raw;
    m_wantedHome = home.substr(0, std::max<std::size_t>(home.find_last_not_of('/') + 1, home.starts_with('/')));
    m_written = {};
}

void Companions::BeginMovie(std::string const &file)
{
    Safely([&] {
        m_on = true;
        m_raw.reset();
        m_movie = file;
        m_written = {};
        Write();
    });
}

void Companions::End(std::int64_t readable)
{
    if (!m_on)
        return;
    if (readable >= 0)
        m_readable = readable;
    Safely([&] { Write(); });
    GiveUp();
}

// ---- Frames ------------------------------------------------------------------------------------------------------

void Companions::Saved(_TovImage const &image, TovFrameNote const &note, std::string const &file)
{
    if (m_on)
        Safely([&] { Add(image, note, file); });
}

void Companions::Taken(_TovImage const &image, TovFrameNote const &note, std::int64_t readable)
{
    if (readable >= 0)
        m_readable = readable;
    if (m_on)
        Safely([&] { Add(image, note, m_movie); });
}

void Companions::Tend()
{
    if (m_on && m_waiting > 0)
        Safely([&] { WriteIfDue(); });
}

void Companions::Add(_TovImage const &image, TovFrameNote const &note, std::string const &file)
{
    if (m_waiting == m_rows.size())
        m_rows.emplace_back();
    SeriesFiles::Row &row = m_rows[m_waiting];
    row.file = file;
    row.position.reset();
    if (!m_movie.empty())
        row.position = m_taken++;
    row.frameId = image.frameID;
    row.timestamp = image.timestamp;
    row.arrival.reset();
    if (note.arrival != 0)
        row.arrival = note.arrival;
    row.exposure = Known(note.exposure);
    row.gain = Known(note.gain);
    row.incomplete = note.incomplete;
    row.missingBytes = note.missingBytes;
    row.gapBefore = note.gapBefore;
    row.lossCause = note.lossCause;
    ++m_waiting;
    m_waitingBytes += file.size() + note.lossCause.size() + NumbersOfRow;
    if (m_waitingBytes > MostWaiting)
        GiveUp(); // it has failed for long
    else
        WriteIfDue();
}

void Companions::WriteIfDue()
{
    Clock::time_point const now = Clock::now();
    // A batch that is full is written at once, but not tried again with each row.
    if (now - m_written < Period && (m_waitingBytes < BatchBytes || !m_failure.empty()))
        return;
    m_written = now;
    Write();
}

// ---- Batches -----------------------------------------------------------------------------------------------------

// Rows whose frames a reader would find. Those of a movie are in their order.
std::size_t Companions::Ready() const
{
    if (m_movie.empty())
        return m_waiting;
    auto const readable = static_cast<std::uint64_t>(std::max<std::int64_t>(m_readable, 0));
    return readable > m_settled ? static_cast<std::size_t>(std::min<std::uint64_t>(readable - m_settled, m_waiting))
                                : 0;
}

void Companions::Write()
{
    if (m_table.IsOpen() && m_table.IsLost())
        BeginAnew();
    std::size_t const ready = Ready();
    if (!m_table.IsOpen() && (ready > 0 || (!m_movie.empty() && m_taken == 0))) {
        if (int const error = Open()) {
            Fail(error, m_folder);
            m_folder.clear();
            m_name.clear();
            return;
        }
    }
    if (!m_lasting)
        m_failure.clear();
    if (ready > 0 && m_table.IsOpen())
        WriteRows(ready);
    if (m_linesWaiting > 0 && m_list.IsOpen())
        WriteList();
}

void Companions::WriteRows(std::size_t rows)
{
    m_text.clear();
    std::size_t const linesBefore = m_lines.size();
    std::uint64_t const listedBefore = m_linesWaiting;
    for (std::size_t i = 0; i < rows; ++i) {
        SeriesFiles::Row &row = m_rows[i];
        row.number = m_rowsWritten + i;
        Relate(row.file, m_relative);
        std::swap(row.file, m_relative);
        SeriesFiles::Append(m_text, row);
        // No list of files can hold a name with a line break.
        if (m_list.IsOpen() && row.file.find_first_of("\r\n") == std::string::npos) {
            m_lines.append(row.file) += '\n';
            ++m_linesWaiting;
        }
        std::swap(row.file, m_relative);
    }
    std::uint64_t const begin = m_table.Size();
    if (int const error = m_table.Append(m_text.data(), m_text.size())) {
        m_table.CutTo(begin);
        m_lines.resize(linesBefore);
        m_linesWaiting = listedBefore;
        Fail(error, m_table.Name());
        return;
    }
    m_rowsWritten += rows;
    DropRows(rows);
    m_table.Reserve(RoomAhead);
}

// The count comes last: it never promises a file that is not in the list.
void Companions::WriteList()
{
    std::uint64_t const begin = m_list.Size();
    int error = m_list.Append(m_lines.data(), m_lines.size());
    if (!error) {
        std::string const count = SeriesFiles::NrrdCount(m_listed + m_linesWaiting);
        error = m_list.WriteAt(m_countAt, count.data(), count.size());
    }
    if (error) {
        m_list.CutTo(begin);
        Fail(error, m_list.Name());
        if (m_lines.size() > MostWaiting) {
            m_list.Close();
            m_lasting = true;
        }
        return;
    }
    m_listed += std::exchange(m_linesWaiting, 0);
    m_lines.clear();
    m_list.Reserve(RoomAhead);
}

// The first ones; their memory goes behind the others.
void Companions::DropRows(std::size_t rows)
{
    std::rotate(m_rows.begin(), m_rows.begin() + static_cast<std::ptrdiff_t>(rows),
                m_rows.begin() + static_cast<std::ptrdiff_t>(m_waiting));
    m_waiting -= rows;
    m_settled += rows;
    m_waitingBytes = 0;
    for (std::size_t i = 0; i < m_waiting; ++i)
        m_waitingBytes += m_rows[i].file.size() + m_rows[i].lossCause.size() + NumbersOfRow;
}

void Companions::Relate(std::string const &file, std::string &relative) const
{
    if (std::string_view const path = PathBelow(m_home, file); !path.empty()) {
        relative.assign("../").append(path);
        return;
    }
    relative = std::filesystem::path(file).lexically_relative(m_folder).generic_string();
    if (relative.empty())
        relative = file;
}

// ---- Files -------------------------------------------------------------------------------------------------------

int Companions::Open()
{
    std::string const &first = m_movie.empty() ? m_rows[0].file : m_movie;
    m_home = PathBelow(m_wantedHome, first).empty() ? FolderOf(first) : m_wantedHome;
    m_folder = m_home == "." ? "" : m_home + (m_home == "/" ? "" : "/");
    m_folder.append(WithoutExtension(BaseOf(first))).append(FolderEnd);
    if (int const error = UnderFreeName(
            m_folder, [](std::string const &name) { return mkdir(name.c_str(), 0777) == 0 ? 0 : OfName(errno); }))
        return error;
    m_name = BaseOf(m_folder).substr(0, BaseOf(m_folder).size() - FolderEnd.size());
    m_rowsWritten = m_listed = m_linesWaiting = 0;
    m_lines.clear();
    int const error = WriteHeaders(m_folder + '/' + m_name);
    if (error)
        Remove();
    return error;
}

// The files with what is in them from the beginning.
int Companions::WriteHeaders(std::string const &start)
{
    auto const begin = [](OutFile &file, std::string const &name, std::string const &text) {
        int const error = file.CreateVisible(name, OutFile::Road::Cached);
        return error ? error : file.Append(text.data(), text.size());
    };
    int error = begin(m_table, start + ".frames.csv", SeriesFiles::TableHead() + m_preface);
    if (!error && m_raw) {
        SeriesFiles::NrrdHead const head = SeriesFiles::MakeNrrdHead(*m_raw);
        m_countAt = head.countAt;
        error = begin(m_list, start + ".nhdr", head.text);
    }
    if (std::string const envi = m_raw && !error ? SeriesFiles::EnviHeader(*m_raw) : ""; !envi.empty()) {
        OutFile file;
        error = begin(file, start + ".hdr", envi);
        if (!error)
            error = file.Close();
        else
            file.Abandon();
    }
    if (error)
        return error;
    for (OutFile *const file : {&m_table, &m_list}) {
        if (!file->IsOpen())
            continue;
        file->SetReserveStep(RoomAhead);
        file->Reserve(RoomAhead);
    }
    return 0;
}

void Companions::Close()
{
    for (OutFile *const file : {&m_table, &m_list}) {
        if (int const error = file->Close())
            Fail(error, file->Name());
    }
}

// What a failed Open has made.
void Companions::Remove()
{
    m_table.Abandon();
    m_list.Abandon();
    unlink((m_folder + '/' + m_name + ".hdr").c_str());
    rmdir(m_folder.c_str());
}

// Somebody has removed the table, and perhaps the frames.
void Companions::BeginAnew()
{
    Fail(LOST, m_table.Name());
    m_lasting = true;
    Close();
    m_folder.clear();
    m_name.clear();
    auto const end = m_rows.begin() + static_cast<std::ptrdiff_t>(m_waiting);
    auto const gone =
        std::stable_partition(m_rows.begin(), end, [](SeriesFiles::Row const &row) { return !IsThere(row.file); });
    DropRows(static_cast<std::size_t>(gone - m_rows.begin()));
}

void Companions::Fail(int error, std::string const &file)
{
    if (!m_lasting)
        m_failure = FailureText(error) + " (" + file + ')';
}
