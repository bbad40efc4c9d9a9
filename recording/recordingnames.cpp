// The names of a recording's files.
#include "imagewriter.h"

#include "imageparser.h"

#include <QDir>

char const *ImageWriter::GetFileExtension() const
{
    switch (GetFormat()) {
    case FormatRaw:
        return "raw";
    case FormatTvi:
        return "tvi";
    case FormatBmp:
        return "bmp";
    case FormatJpg:
        return "jpg";
    case FormatPng:
        return "png";
    case FormatTif:
        return "tif";
    case FormatAvi:
        return "avi";
    case FormatTvm:
        return ".tvm"; // the file's name gets two dots
    }
    return "";
}

std::string ImageWriter::GetText(char const *key)
{
    auto capacity = static_cast<unsigned int>(m_text.size());
    return TovSucceeded(GetParamString(key, m_text.data(), &capacity)) ? std::string(m_text.data()) : std::string();
}

// With a separator at its end.
QString ImageWriter::Folder()
{
    QString folder = QDir::toNativeSeparators(QString::fromUtf8(GetText("FilePath").c_str()));
    if (!folder.endsWith(QDir::separator()))
        folder += QDir::separator();
    return folder;
}

// As far as the template is the same for all of them.
QString ImageWriter::SeriesFolder()
{
    std::string const name = GetText("ImageName");
    std::size_t const end = name.rfind('/', name.find(ImageParser::cmdBeg));
    return Folder() + QString::fromUtf8(name.substr(0, end == std::string::npos ? 0 : end + 1).c_str());
}

void ImageWriter::SetCurrFileName(_TovImage *image)
{
    ImageParser parser;
    m_currFileName = Folder();
    std::string const name = parser.parse(GetText(IsMovie() ? "MovieName" : "ImageName").c_str(), image, true);
    m_currFileName += QString::fromUtf8(name.c_str()) + QLatin1Char('.') + QLatin1String(GetFileExtension());
}

QString const &ImageWriter::GetCurrFileName() const
{
    return m_currFileName;
}
