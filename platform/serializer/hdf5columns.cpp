#include "hdf5columns.h"

#include "tovserializer.h"

#include <bit>
#include <limits>

namespace {

enum class Kind { Number, Signed, Flag, Real };
struct Column
{
    char const *name;
    Kind kind;
};
// In the order in which Add gives their values.
constexpr Column s_columns[] = {
    {"frame_id", Kind::Number},      {"timestamp", Kind::Number},  {"arrival_utc_ns", Kind::Signed},
    {"exposure_us", Kind::Real},     {"gain", Kind::Real},         {"incomplete", Kind::Flag},
    {"missing_bytes", Kind::Number}, {"gap_before", Kind::Number},
};

hid_t Stored(Kind kind)
{
    switch (kind) {
    case Kind::Signed:
        return H5T_STD_I64LE;
    case Kind::Flag:
        return H5T_STD_U8LE;
    case Kind::Real:
        return H5T_IEEE_F64LE;
    default:
        return H5T_STD_U64LE;
    }
}

hid_t Given(Kind kind)
{
    switch (kind) {
    case Kind::Signed:
        return H5T_NATIVE_INT64;
    case Kind::Real:
        return H5T_NATIVE_DOUBLE;
    default:
        return H5T_NATIVE_UINT64;
    }
}

Hdf5Type MakeCauseType()
{
    Hdf5Type type(H5Tcopy(H5T_C_S1));
    H5Tset_size(type.Get(), Hdf5Columns::CauseSize);
    return type;
}

} // namespace

char const *Hdf5Columns::NameOf(std::size_t column)
{
    return s_columns[column].name;
}

bool Hdf5Columns::Create(hid_t file)
{
    static_assert(std::size(s_columns) == Count);
    hsize_t const none = 0, unlimited = H5S_UNLIMITED, chunk = Rows;
    Hdf5Space const space(H5Screate_simple(1, &none, &unlimited));
    m_written = 0;
    for (std::size_t i = 0; i < Count; ++i) {
        Kind const kind = s_columns[i].kind;
        Hdf5List const properties(H5Pcreate(H5P_DATASET_CREATE));
        if (H5Pset_chunk(properties.Get(), 1, &chunk) < 0)
            return false;
        double const unknown = std::numeric_limits<double>::quiet_NaN();
        if (kind == Kind::Real && H5Pset_fill_value(properties.Get(), H5T_NATIVE_DOUBLE, &unknown) < 0)
            return false;
        m_sets[i] = Hdf5Set(
            H5Dcreate2(file, s_columns[i].name, Stored(kind), space.Get(), H5P_DEFAULT, properties.Get(), H5P_DEFAULT));
        if (!m_sets[i])
            return false;
        m_gathered[i].clear();
        m_gathered[i].reserve(Rows);
    }
    return CreateCauses(file, space.Get());
}

bool Hdf5Columns::CreateCauses(hid_t file, hid_t space)
{
    hsize_t const chunk = CauseRows;
    Hdf5List const properties(H5Pcreate(H5P_DATASET_CREATE));
    Hdf5Type const type = MakeCauseType();
    if (!type || H5Pset_chunk(properties.Get(), 1, &chunk) < 0)
        return false;
    m_causeSet = Hdf5Set(H5Dcreate2(file, Causes, type.Get(), space, H5P_DEFAULT, properties.Get(), H5P_DEFAULT));
    m_causes.clear();
    m_causes.reserve(Rows);
    return bool(m_causeSet);
}

void Hdf5Columns::Add(_TovImage const &image, TovFrameNote const &note)
{
    std::uint64_t const values[Count] = {
        image.frameID,
        image.timestamp,
        std::uint64_t(note.arrival),
        std::bit_cast<std::uint64_t>(note.exposure),
        std::bit_cast<std::uint64_t>(note.gain),
        note.incomplete,
        note.missingBytes,
        note.gapBefore,
    };
    for (std::size_t i = 0; i < Count; ++i)
        m_gathered[i].push_back(values[i]);
    note.lossCause.copy(m_causes.emplace_back().data(), CauseSize - 1);
}

bool Hdf5Columns::WriteColumn(hid_t set, hid_t type, void const *values, hsize_t rows)
{
    hsize_t const extent = m_written + rows;
    if (H5Dset_extent(set, &extent) < 0)
        return false;
    Hdf5Space const memory(H5Screate_simple(1, &rows, nullptr)), file(H5Dget_space(set));
    return H5Sselect_hyperslab(file.Get(), H5S_SELECT_SET, &m_written, nullptr, &rows, nullptr) >= 0 &&
           H5Dwrite(set, type, memory.Get(), file.Get(), H5P_DEFAULT, values) >= 0;
}

bool Hdf5Columns::Write()
{
    hsize_t const rows = m_gathered[0].size();
    if (rows == 0)
        return true;
    for (std::size_t i = 0; i < Count; ++i) {
        if (!WriteColumn(m_sets[i].Get(), Given(s_columns[i].kind), m_gathered[i].data(), rows))
            return false;
    }
    if (Hdf5Type const type = MakeCauseType();
        !type || !WriteColumn(m_causeSet.Get(), type.Get(), m_causes.data(), rows))
        return false;
    for (auto &values : m_gathered)
        values.clear();
    m_causes.clear();
    m_written += rows;
    return true;
}

void Hdf5Columns::Close()
{
    for (Hdf5Set &set : m_sets)
        set.Close();
    m_causeSet.Close();
}
