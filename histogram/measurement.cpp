#include "measurement.h"

#include "bayerhelper2.h"
#include "histo.h"

#include "tovimage.h"

#include <algorithm>
#include <cstdint>

namespace {

// One sample per pixel, in whole bytes. For a type that is not in the table, its class decides.
bool IsPlain(_TovImage const &picture, TovPixelTypeInfo const *info)
{
    if (info)
        return info->packing == TOV_UNPACKED && info->channels == 1 && info->family != TOV_FAMILY_YUV;
    return picture.formatClass != TOV_CLASS_PACKED && picture.formatClass != TOV_CLASS_RGB &&
           picture.formatClass != TOV_CLASS_YUV;
}

QString NameOf(TovPixelTypeInfo const *info)
{
    if (!info)
        return Measurement::tr("this pixel format");
    return QString::fromLatin1(info->pfncName ? info->pfncName : info->name);
}

} // namespace

QString Measurement::WhyNone(_TovImage const &picture, ComplexHisto const &answer, BayerHelper2 const &masks)
{
    TovPixelTypeInfo const *const info = TovGetPixelTypeInfo(picture.pixelType);
    QString const name = NameOf(info);
    if (info && info->packing != TOV_UNPACKED)
        return tr("%1 is packed and cannot be measured. Choose an unpacked pixel format.").arg(name);
    if (!IsPlain(picture, info))
        return tr("%1 has several values per pixel and cannot be measured. Choose a Mono or Bayer format.").arg(name);
    bool const mosaic = !info || info->family == TOV_FAMILY_BAYER || info->family == TOV_FAMILY_TRUESENSE;
    if (answer.mode == HistoRGB && !mosaic)
        return tr("%1 has no colours. Choose a Bayer format.").arg(name);
    if (answer.mode == HistoRGB &&
        (picture.width != masks.width || picture.height != masks.height || picture.bitDepth != masks.bits)) {
        QString const shape = tr("%1 x %2 at %3 bits");
        return tr("The colours can be told apart only in pictures of %1, as when the camera was connected; this "
                  "one has %2. Connect again.")
            .arg(shape.arg(masks.width).arg(masks.height).arg(masks.bits),
                 shape.arg(picture.width).arg(picture.height).arg(picture.bitDepth));
    }
    bool const counted = picture.bitDepth == 8 || picture.bitDepth == 10 || picture.bitDepth == 12;
    bool const profile = answer.mode == HistoRow || answer.mode == HistoColumn;
    if (!profile && answer.mode != HistoRGB && !counted) {
        return tr("%1 has %2 bits; a bar histogram takes 8, 10 or 12. Row and column histograms show it.")
            .arg(name)
            .arg(picture.bitDepth);
    }
    SimpleHisto const placeholder;
    bool const failed = std::any_of(answer.plots.begin(), answer.plots.end(), [&](SimpleHisto const *series) {
        return series->mean == placeholder.mean && series->stdDev == placeholder.stdDev;
    });
    return failed || answer.plots.empty() ? tr("This picture cannot be measured.") : QString();
}

QString Measurement::Doubt(_TovImage const &picture, ComplexHisto const &answer, BayerHelper2 const &masks)
{
    auto const beyond = [](std::int32_t line, std::uint32_t count) {
        return static_cast<std::uint32_t>(line) >= count;
    };
    if (answer.mode == HistoRow && !answer.integrated && beyond(answer.row, picture.height))
        return tr("Row %1 is outside the picture, which has %2 rows.").arg(answer.row).arg(picture.height);
    if (answer.mode == HistoColumn && !answer.integrated && beyond(answer.column, picture.width))
        return tr("Column %1 is outside the picture, which has %2 columns.").arg(answer.column).arg(picture.width);
    TovPixelTypeInfo const *const info = TovGetPixelTypeInfo(picture.pixelType);
    if (answer.mode == HistoRGB && info && info->family == TOV_FAMILY_BAYER) {
        bool const redFirst = masks.bayerPattern == 0 || masks.bayerPattern == 2;
        if (info->bayer != (redFirst ? TOV_BAYER_RG : TOV_BAYER_GR))
            return tr("The colours are counted as in %1; this picture is %2, so they are mixed up.")
                .arg(redFirst ? QStringLiteral("BayerRG") : QStringLiteral("BayerGR"), NameOf(info));
    }
    return {};
}
