// Configuration files: a camera's settings, and who the camera is. docs/tcfg.md describes the format.
#pragma once

#include "nodemap.h"

#include <functional>
#include <string>
#include <utility>
#include <vector>

struct CameraIdentity
{
    std::uint32_t kind = 0; // TovCam::InterfaceKind
    std::string vendor, model, serial, userID;
};

// A file's content, before any camera has been asked about it.
class Configuration
{
public:
    struct Group
    {
        // The selectors, with the values that the group is for; empty for features without a selector.
        std::vector<std::pair<std::string, std::string>> selectors;
        std::vector<std::pair<std::string, std::string>> values; // by feature, in the order to apply
    };

    // Reads and checks a file: TOV_CAM_ERR_FILE_NOT_FOUND, TOV_CAM_ERR_FILE_READ, or TOV_CAM_ERR_WRONG_CONFIGURATION
    // for anything but a whole configuration.
    std::int32_t Read(char const *path);
    std::int32_t Parse(std::string const &text);
    // The whole file or, if that cannot be done, what was there before: TOV_CAM_ERR_FILE_NOT_FOUND where no file can be
    // made, TOV_CAM_ERR_UNKNOWN where it cannot be written to the end. A file of another camera, or of an unknown one,
    // is kept beside it.
    std::int32_t Write(char const *path);
    std::string ToText() const;

    // Takes the values from the camera. TOV_CAM_ERR_GENICAM_GENERIC where a selector does not take its value.
    std::int32_t Take(NodeMap &nodes);
    // Brings the camera to the values. TOV_CAM_ERR_WRONG_CONFIGURATION, and nothing done, where a value does not fit
    // its feature; otherwise 0, or why the first setting failed that the camera did not take. Nodes that the camera
    // lacks, or that no configuration stores, are skipped, and so is the camera's name unless `sameCamera`. The node
    // map learns what the camera refused.
    std::int32_t Apply(NodeMap &nodes, bool sameCamera);
    // Once it says so, Take and Apply look at no further setting: TOV_CAM_ERR_NO_DEVICE. Empty where nobody cancels.
    std::function<bool()> cancel;

    TovCam::ConfigurationReport report; // of all of the above since the last Read or Parse
    CameraIdentity camera;
    std::vector<Group> groups;
    std::vector<std::pair<std::string, std::string>> selectors; // their own values, outer ones first

private:
    bool IsOfAnother(std::string const &file);
};
