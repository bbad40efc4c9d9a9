// Analysis of the image that the live display received last, on request: histogram, profiles, colour histograms, noise.
// It looks at one image at a time. Signals are in ADU, the sample values as in memory.
//
// The image is the display's, which may be copying the next frame into it: a result may be of two frames in part.
//
// Threads: the GUI thread, but for ConvertImage, which any thread may call. No error reaches the caller: what cannot be
// computed is missing in the answer.
#pragma once

#include "histo.h"
#include "tovcomponentimp.h"
#include "tovimage.h"

#include <QObject>

#include <array>
#include <cstdint>
#include <memory>

class BayerHelper2;
class DisplayView;

class ImgProcessor : public QObject, public TovComponentImp
{
    Q_OBJECT
public:
    // `display` outlives the object, and is not owned.
    ImgProcessor(QObject *parent, DisplayView *display);
    ~ImgProcessor() override;

    // Answers histo->mode for the displayed image: 1, or 0 without an image, which leaves `histo` as it is. The series
    // live until the next call that finds an image. `bayer` is used in mode HistoRGB.
    int GetHistoData(ComplexHisto *histo, BayerHelper2 *bayer);
    // The same for the picture that stays on the screen after a stop: 0 while a stream is running, and when none
    // stayed.
    int GetKeptHistoData(ComplexHisto *histo, BayerHelper2 *bayer);
    // The header of the picture that the last answer is about, without its pixels; all zero before the first answer.
    _TovImage const &GetSource() const;

    // Each appends what it makes to histo->plots.
    void GetRAWHisto(_TovImage *image, ComplexHisto *histo);
    void GetRGBHisto(_TovImage *image, ComplexHisto *histo, BayerHelper2 *bayer);
    void GetYUVHisto(_TovImage *image, ComplexHisto *histo); // nothing
    void GetRowHisto(_TovImage *image, ComplexHisto *histo);
    void GetColHisto(_TovImage *image, ComplexHisto *histo);
    // A row or column outside the image reads as zeros.
    void CalcCurrentRow(long bits, _TovImage *image, SimpleHisto *series, int row);
    void CalcCurrentCol(long bits, _TovImage *image, SimpleHisto *series, int column);
    void CalcIntegratedRow(long bits, _TovImage *image, SimpleHisto *series);
    void CalcIntegratedCol(long bits, _TovImage *image, SimpleHisto *series);

    // An array of width times height floats, lines without padding, for the caller to delete[]; null on failure.
    // `stride` is in bytes.
    float *CreateFloatimage(_TovImage *image, int &stride, int &width, int &height);
    // histo->snr in dB: the full scale over the noise between the float image, which is the first image of its size or
    // the one of the last call, and this one. Infinite for equal images.
    void CalcSNR(_TovImage *image, ComplexHisto *histo);

    // Converts a frame to the destination's pixel type; 0 is success. Holds no state: any thread.
    std::int32_t ConvertImage(_TovImage const *source, _TovImage *destination);

    // The master copy, also the parameter "HistoThresholds". The panel reads and writes it as one block; GUI thread.
    HistoThresholds m_thresholds;

private:
    int Analyse(_TovImage *image, ComplexHisto *histo, BayerHelper2 *bayer);
    void UpdateFloatImage(_TovImage *image);

    static unsigned char s_CompID;

    // GUI thread.
    std::int32_t m_lastWidth = 640;
    std::int32_t m_lastHeight = 480;
    std::int32_t m_lastBits = 12;
    _TovImage m_source{}; // a header alone
    std::unique_ptr<float[]> m_floatImage;
    int m_floatStride = 0; // bytes
    int m_floatWidth = 0;
    int m_floatHeight = 0;
    DisplayView *m_display; // not owned
    std::array<std::int32_t, 256> m_narrowCounts{};
    std::array<std::int32_t, 4096> m_wideCounts{};
    std::array<std::int32_t, 256> m_narrowPositions;
    std::array<std::int32_t, 4096> m_widePositions;
};
