#include "imgprocessor.h"

#include "displayview.h"

unsigned char ImgProcessor::s_CompID = 0;

ImgProcessor::ImgProcessor(QObject *parent, DisplayView *display)
    : QObject(parent), TovComponentImp(++s_CompID), m_display(display)
{
}

ImgProcessor::~ImgProcessor() = default;

std::int32_t ImgProcessor::ConvertImage(_TovImage const *source, _TovImage *destination)
{
    return m_display->ConvertImage(source, destination);
}
