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
    static constexpr std::size_t Count = 8;   // with numbers
    static char const *NameOf(std::size_t column);
    static constexpr char const *Causes = "loss_cause"; // texts
    static constexpr std::size_t CauseSize = 72;        // bytes with the zero: room for the words of all places
    static constexpr std::size_t CauseRows = 512;       // of a chunk

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
    using Cause = std::array<char, CauseSize>;

    bool CreateCauses(hid_t file, hid_t space);
    bool WriteColumn(hid_t set, hid_t type, void const *values, hsize_t rows);

    Hdf5Set m_causeSet;
    std::vector<Cause> m_causes;
    std::array<Hdf5Set, Count> m_sets;
    std::array<std::vector<std::uint64_t>, Count> m_gathered; // bits of integers and of floating-point numbers
    hsize_t m_written = 0;
};
