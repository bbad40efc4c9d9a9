// Values of features as a configuration file has them. docs/tcfg.md describes the forms.
#pragma once

#include "tovcamera.h"

#include <optional>
#include <string>

// What the file holds without quoting: names of features, selectors and entries.
bool IsPlainName(std::string const &text);

// Nothing for a value that a file cannot hold, such as a number that is not finite or text that is not UTF-8.
std::optional<std::string> ToStoredText(TovCam::FeatureKind kind, TovCam::FeatureValue const &value);
// Nothing for text that is not a value of the kind.
std::optional<TovCam::FeatureValue> FromStoredText(TovCam::FeatureKind kind, std::string const &text);
// Of kind Float to nine digits: a camera's formulas cost the last ones.
bool IsSameValue(TovCam::FeatureKind kind, TovCam::FeatureValue const &a, TovCam::FeatureValue const &b);
