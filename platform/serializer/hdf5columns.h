// The datasets of an HDF5 file that hold one value for each frame.
#pragma once

#include "hdf5layout.h"

#include <array>
#include <cstdint>
#include <vector>

struct TovFrameNote;

// Values are gathered, since a call of the library for each of them costs more than they do.
class Hdf5Columns
{
public:
    static constexpr std::size_t Rows = 4096; // of a chunk, and gathered at most
    static constexpr std::size_t Count = 8;
    static char const *NameOf(std::size_t column);

    bool Create(hid_t file);
    void Add(_TovImage const &image, TovFrameNote const &note);
    bool IsFull() const
    {
        return m_gathered[0].size() == Rows;
    }
    // Hands what was gathered to the library; after a failure it is still gathered.
    bool Write();
    void Close();

private:
    bool WriteColumn(std::size_t column, hsize_t rows);

    std::array<Hdf5Set, Count> m_sets;
    std::array<std::vector<std::uint64_t>, Count> m_gathered; // bits of integers and of floating-point numbers
    hsize_t m_written = 0;
};
