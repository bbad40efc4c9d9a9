// Files that look like frames of a recording, but that neither it nor another one lists: frames that nobody would find.
#pragma once

#include "seriesreader.h"

#include <compare>
#include <cstddef>
#include <set>
#include <string>
#include <vector>

class Strangers
{
public:
    explicit Strangers(SeriesReader const &reader) : m_reader(reader)
    {
    }

    // A file that a row names, by its path from Above() on.
    void AddListed(std::string const &path);
    // Once all are known. The memory is 8 bytes for each file, and that of the names found.
    bool AreSomeListedTwice();
    std::set<std::string> Find();

private:
    // Folders that differ in nothing but their numbers; paths from Above() on, with a slash at their end.
    struct Place
    {
        std::string above, pattern; // both empty: Above() itself
        auto operator<=>(Place const &) const = default;
    };

    void ExpectTheFirst();
    void LookInto(Place const &place);
    void LookIntoFolder(std::string const &folder);
    void ForgetThoseOfOthers();
    void ForgetThoseOf(std::string const &series);

    SeriesReader const &m_reader;
    std::vector<std::size_t> m_listed; // hashes of paths
    std::set<std::string> m_patterns;  // of names; the first ones, as of places
    std::set<Place> m_places;
    std::set<std::string> m_found;
};
