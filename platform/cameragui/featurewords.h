// Features in words: their type, range and access, and what went wrong. No camera, no widgets.
#pragma once

#include "tovcameragui.h"

#include <QCoreApplication>
#include <QString>

namespace TovGui {

class TOV_CAMERAGUI_API FeatureWords
{
    Q_DECLARE_TR_FUNCTIONS(TovGui::FeatureWords)
public:
    static QString Type(TovCam::FeatureInfo const &info);
    static QString Range(TovCam::FeatureInfo const &info, TovCam::FeatureState const &state); // "" where it has none
    static QString Access(TovCam::FeatureAccess access);
    static QString Access(TovCam::FeatureState const &state);      // with the remedy for a lock
    static QString Refused(TovCam::RefusedSetting const &setting); // what a configuration file asked for, and why not
    static QString Status(std::int32_t status);                    // an error in words, with its number
};

} // namespace TovGui
