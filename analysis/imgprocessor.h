// Analysis of the image that the live display received last, on request.
//
// Threads: the GUI thread, but for ConvertImage, which any thread may call.
#pragma once

#include "tovcomponentimp.h"
#include "tovimage.h"

#include <QObject>

#include <cstdint>

class DisplayView;

class ImgProcessor : public QObject, public TovComponentImp
{
    Q_OBJECT
public:
    // `display` outlives the object, and is not owned.
    ImgProcessor(QObject *parent, DisplayView *display);
    ~ImgProcessor() override;

    // Converts a frame to the destination's pixel type; 0 is success. Holds no state: any thread.
    std::int32_t ConvertImage(_TovImage const *source, _TovImage *destination);

private:
    static unsigned char s_CompID;

    DisplayView *m_display; // not owned
};
