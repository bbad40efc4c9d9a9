// HDF5 files as movies: every picture as it is, with what is known of it.
#include "hdf5file.h"
#include "movieformats.h"

namespace {

class Hdf5Movie : public Movie
{
public:
    std::uint32_t Accepts(std::uint32_t pixelType, TovPixelTypeInfo const *) const override
    {
        return pixelType;
    }
    int Open(std::string const &name, _TovImage const &image, double fps) override
    {
        return m_hdf5.Open(name, image, {.rate = fps});
    }
    int Write(_TovImage const &image) override
    {
        int const error = m_hdf5.Append(image, m_note);
        m_note = {};
        m_readable = m_hdf5.ReadableFrames();
        return error;
    }
    int Close() override
    {
        int const error = m_hdf5.Close();
        m_readable = m_hdf5.ReadableFrames();
        return error;
    }
    std::string const &Name() const override
    {
        return m_hdf5.Name();
    }
    bool IsLost() const override
    {
        return m_hdf5.IsLost();
    }
    void NoteFrame(TovFrameNote const &note) override
    {
        m_note = note;
    }
    void SetConfiguration(std::string const &text) override
    {
        m_hdf5.SetConfiguration(text);
    }
    bool HoldsConfiguration() const override
    {
        return true;
    }

private:
    Hdf5File m_hdf5;
    TovFrameNote m_note; // of the next frame
};

} // namespace

std::unique_ptr<Movie> MakeHdf5Movie()
{
    return std::make_unique<Hdf5Movie>();
}
