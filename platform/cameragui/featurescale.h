// The numbers of features on their scales: ranges, steps, and places on a slider. No camera, no widgets.
#pragma once

#include "tovcameragui.h"

namespace TovGui {

// How a value is shown and edited: boolean integers are check boxes, and so on.
enum class FeatureEditing { None, Spin, Slider, Text, Choice, Check, Button, Bytes };

class TOV_CAMERAGUI_API FeatureScale
{
public:
    static FeatureEditing EditingOf(TovCam::FeatureInfo const &info, TovCam::FeatureState const &state);

    // The integer or the real one, by the kind of feature.
    static double Minimum(TovCam::FeatureInfo const &info, TovCam::FeatureState const &state);
    static double Maximum(TovCam::FeatureInfo const &info, TovCam::FeatureState const &state);
    // Numbers outside the range go to its end, those between two steps to the nearest.
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
};

} // namespace TovGui
