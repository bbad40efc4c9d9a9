#include "strangers.h"

#include <algorithm>
#include <cctype>
#include <functional>

#include <dirent.h>

namespace {

constexpr std::size_t MostPatterns = 1024;

std::size_t HashOf(std::string const &path)
{
    return std::hash<std::string>()(path);
}

// The name with a mark for each number in it, by which names of one recording are alike.
std::string Pattern(std::string const &name)
{
    std::string pattern;
    for (char const c : name) {
        if (!std::isdigit(static_cast<unsigned char>(c)))
            pattern += c;
        else if (!pattern.ends_with('\0'))
            pattern += '\0';
    }
    return pattern;
}

template<class F>
void ForEachIn(std::string const &folder, F const &function)
{
    DIR *const directory = opendir(folder.c_str());
    while (dirent const *entry = directory ? readdir(directory) : nullptr) {
        if (std::string const name = entry->d_name; name != "." && name != "..")
            function(name);
    }
    if (directory)
        closedir(directory);
}

} // namespace

void Strangers::AddListed(std::string const &path)
{
    std::size_t const name = path.rfind('/') + 1;
    m_listed.push_back(HashOf(path));
    if (m_patterns.size() < MostPatterns)
        m_patterns.insert(Pattern(path.substr(name)));
    if (m_places.size() >= MostPatterns)
        return;
    if (name == 0) {
        m_places.insert(Place{});
        return;
    }
    std::size_t const folder = name < 2 ? 0 : path.rfind('/', name - 2) + 1;
    m_places.insert(Place{path.substr(0, folder), Pattern(path.substr(folder, name - 1 - folder))});
}

bool Strangers::AreSomeListedTwice()
{
    std::sort(m_listed.begin(), m_listed.end());
    return std::adjacent_find(m_listed.begin(), m_listed.end()) != m_listed.end();
}

std::set<std::string> Strangers::Find()
{
    std::sort(m_listed.begin(), m_listed.end());
    if (m_listed.empty())
        ExpectTheFirst();
    m_found.clear();
    for (Place const &place : m_places)
        LookInto(place);
    ForgetThoseOfOthers();
    return m_found;
}

// A recording that died before it listed anything has the name of its first frame, which may be in a folder of its own.
void Strangers::ExpectTheFirst()
{
    m_places.insert(Place{});
    ForEachIn(m_reader.Above(), [this](std::string const &name) {
        if (m_places.size() < MostPatterns)
            m_places.insert(Place{"", Pattern(name)});
    });
    for (char const *extension : {".raw", ".tvi", ".bmp", ".jpg", ".png", ".tif"})
        m_patterns.insert(Pattern(m_reader.Name() + extension));
}

void Strangers::LookInto(Place const &place)
{
    if (place.pattern.empty()) {
        LookIntoFolder("");
        return;
    }
    ForEachIn(m_reader.Above() + '/' + place.above, [&](std::string const &name) {
        if (Pattern(name) == place.pattern)
            LookIntoFolder(place.above + name + '/');
    });
}

void Strangers::LookIntoFolder(std::string const &folder)
{
    ForEachIn(m_reader.Above() + '/' + folder, [&](std::string const &name) {
        std::string const path = folder + name;
        std::uint64_t const bytes = m_reader.FrameBytes(); // 0 where nothing tells how many
        std::uint64_t size = 0;
        if (m_patterns.contains(Pattern(name)) && !std::binary_search(m_listed.begin(), m_listed.end(), HashOf(path)) &&
            m_reader.Look("../" + path, size) == 0 && size > 0 && (size == bytes || bytes == 0))
            m_found.insert(path);
    });
}

// Several recordings may have their frames in one folder, and what belongs to them there or above it.
void Strangers::ForgetThoseOfOthers()
{
    std::set<std::string> folders;
    for (std::string const &path : m_found) {
        std::string folder = m_reader.Above() + '/' + path;
        for (unsigned level = 0; level <= SeriesReader::FoldersAbove && !folder.empty(); ++level) {
            folder.erase(folder.rfind('/'));
            folders.insert(folder + '/');
        }
    }
    for (std::string const &folder : folders) {
        for (std::string const &series : SeriesFoldersIn(folder)) {
            if (folder + series != m_reader.Folder())
                ForgetThoseOf(folder + series);
        }
    }
}

void Strangers::ForgetThoseOf(std::string const &series)
{
    SeriesReader other;
    if (m_found.empty() || other.Open(series) != 0)
        return;
    std::string const home = m_reader.Above() + '/';
    SeriesFiles::Row row;
    for (SeriesReader::Line line; (line = other.Next(row)) != SeriesReader::Line::End;) {
        std::string const path = line == SeriesReader::Line::Row ? other.PathInside(row.file) : std::string();
        if (std::string const whole = other.Above() + '/' + path; !path.empty() && whole.starts_with(home))
            m_found.erase(whole.substr(home.size()));
    }
}
