#include "serializerparameters.h"

#include "movieformats.h"

#include <cstring>

namespace {

constexpr unsigned char ComponentType = 202;

} // namespace

SerializerParameters::SerializerParameters() : TovComponentBase(ComponentType)
{
    std::string list;
    for (std::string const &name : AviCompressors()) {
        if (!list.empty())
            list += '|';
        list += name;
    }
    list.copy(m_compressors.data(), m_compressors.size() - 1);
    std::strcpy(m_compressor.data(), "Uncompressed");

    AddParam(TovIntParam("jpeg.quality", &m_jpegQuality, m_jpegQuality, 1, 100));
    AddParam(TovStringParam("movie.compressors", m_compressors.data(), m_compressors.size(), ""));
    AddParam(TovStringParam("movie.compressor", m_compressor.data(), m_compressor.size(), ""));
    AddParam(TovIntParam("movie.options", &m_options, 0, 0, 1)); // no compressor here has a dialog
}

int SerializerParameters::JpegQuality() const
{
    return int(TovLoadBound(m_jpegQuality));
}

std::string SerializerParameters::Compressor()
{
    std::array<char, sizeof m_compressor> name{};
    unsigned int capacity = name.size();
    return TovSucceeded(m_storage.GetParamString("movie.compressor", name.data(), &capacity)) ? name.data() : "";
}
