// Values of features as text and back. No camera, no widgets.
#pragma once

#include "tovcameragui.h"

#include <QCoreApplication>
#include <QString>

namespace TovGui {

struct ParsedValue
{
    bool accepted = false;
    TovCam::FeatureValue value;
    QString hint; // why it was refused, or what was made of it; empty when it was taken as it is
};

class TOV_CAMERAGUI_API FeatureText
{
    Q_DECLARE_TR_FUNCTIONS(TovGui::FeatureText)
public:
    static QString Value(TovCam::FeatureInfo const &info,
                         TovCam::FeatureValue const &value); // as it is edited, without the unit
    // As a row shows it: with the unit, and a Float with no more digits than the description wants.
    static QString Shown(TovCam::FeatureInfo const &info, TovCam::FeatureValue const &value);
    // Numbers outside the range go to its end, those between two steps to the nearest. Text that is not a number, or is
    // longer than the camera takes, is refused.
    static ParsedValue Parse(TovCam::FeatureInfo const &info, TovCam::FeatureState const &state, QString const &text);
};

} // namespace TovGui
