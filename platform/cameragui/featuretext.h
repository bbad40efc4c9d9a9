// Values of features as text and back, their ranges, and what a slider makes of them. No camera, no widgets.
#pragma once

#include "tovcameragui.h"

#include <QCoreApplication>
#include <QString>

namespace TovGui {

struct ParsedValue
{
    bool accepted = false;
    TovCam::FeatureValue value;
    QString hint; // why it was refused, or what was made of it; empty when it was taken as it stands
};

// How a value is shown and edited: boolean integers are check boxes, and so on.
enum class FeatureEditing { None, Spin, Slider, Text, Choice, Check, Button, Bytes };

class TOV_CAMERAGUI_API FeatureText
{
    Q_DECLARE_TR_FUNCTIONS(TovGui::FeatureText)
public:
    static FeatureEditing EditingOf(TovCam::FeatureInfo const &info, TovCam::FeatureState const &state);

    static QString Value(TovCam::FeatureInfo const &info,
                         TovCam::FeatureValue const &value); // as it is edited, without the unit
    // As a row shows it: with the unit, and a Float with no more digits than the description wants.
    static QString Shown(TovCam::FeatureInfo const &info, TovCam::FeatureValue const &value);
    // Numbers outside the range go to its end, those between two steps to the nearest. Text that is no number, or is
    // longer than the camera takes, is refused.
    static ParsedValue Parse(TovCam::FeatureInfo const &info, TovCam::FeatureState const &state, QString const &text);
    static TovCam::FeatureValue Clamped(TovCam::FeatureInfo const &info, TovCam::FeatureState const &state,
                                        TovCam::FeatureValue value);
    // `steps` increments further; without an increment a Float moves by a hundredth of its range, or by 5 % where its
    // scale is logarithmic.
    static TovCam::FeatureValue Stepped(TovCam::FeatureInfo const &info, TovCam::FeatureState const &state,
                                        TovCam::FeatureValue const &value, int steps);
    // Places on a slider, 0 to 1.
    static double PositionOf(TovCam::FeatureInfo const &info, TovCam::FeatureState const &state,
                             TovCam::FeatureValue const &value);
    static TovCam::FeatureValue ValueAt(TovCam::FeatureInfo const &info, TovCam::FeatureState const &state,
                                        double position);

    static QString Range(TovCam::FeatureInfo const &info, TovCam::FeatureState const &state); // "" where it has none
    static QString Type(TovCam::FeatureInfo const &info);
    static QString Access(TovCam::FeatureAccess access);
    static QString Access(TovCam::FeatureState const &state);      // with what mends a lock
    static QString Refused(TovCam::RefusedSetting const &setting); // what a configuration file wanted, and why not
    static QString Status(std::int32_t status);                    // an error in words, with its number
};

} // namespace TovGui
