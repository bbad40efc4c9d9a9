// A camera's node map: TovCam::ParamArray over Aravis' ArvGc.
#pragma once

#include "accessgate.h"
#include "nodeaccess.h"

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

// Written once for every kind of camera. Any thread: each call takes the device's lock, except those about the tree
// once it is made.
class NodeMap final : public TovCam::ParamArray
{
public:
    // The device is not referenced and outlives the map, or Drop. A device without a usable ArvGc gives an invalid map.
    NodeMap(ArvDevice *device, std::recursive_mutex &access);
    ~NodeMap();
    // 0, or why there is no usable node map (TOV_CAM_ERR_GENICAM_TREE for broken XML).
    std::int32_t GetStatus() const;
    // Set before the map is handed out; outlives it.
    void SetGate(AccessGate *gate);
    // What Hold keeps alive: everything that an access touches. Set before the map is handed out.
    void SetOwner(std::weak_ptr<void> owner);
    // From now on every call fails at once, even while another one is slow.
    void Refuse();
    // After Refuse: lets go of the description. With the device's lock held.
    void Drop();
    std::int32_t GetRole(std::uint32_t index, FeatureRole *role);
    // As ReadFeature, without the limits and the entries to choose from, which cost accesses of their own.
    std::int32_t ReadValue(std::uint32_t index, TovCam::FeatureState *state);
    // What ReadFeature reports as refused for a feature until it is written; replaces the earlier report.
    void SetRefused(std::map<std::uint32_t, std::vector<TovCam::RefusedSetting>> refused);

    TovCam::EnumParam *GetEnum(char const *name, std::int32_t *error) override;
    TovCam::IntParam *GetInt(char const *name, std::int32_t *error) override;
    TovCam::StringParam *GetString(char const *name, std::int32_t *error) override;
    char const *GetEnumValueStr(char const *name, std::int32_t *error) override;
    std::int32_t SetIntegerValue(char const *name, std::int64_t value) override;
    std::int64_t GetIntegerValue(char const *name, std::int32_t *error) override;
    std::int32_t ExecuteCommand(char const *name) override;
    std::int32_t SetEnumValueStr(char const *name, char const *value) override;
    std::int32_t SetFloatValue(char const *name, double value) override;
    double GetFloatValue(char const *name, std::int32_t *error) override;
    std::int32_t SetBooleanValue(char const *name, bool value) override;
    std::int32_t SetStringValue(char const *name, char const *value) override;
    std::uint32_t GetFeatureCount() override;
    TovCam::FeatureInfo const *GetFeature(std::uint32_t index) override;
    std::int32_t ReadFeature(std::uint32_t index, TovCam::FeatureState *state) override;
    std::int32_t WriteFeature(std::uint32_t index, TovCam::FeatureValue const &value) override;
    std::int32_t IsCommandDone(std::uint32_t index, bool *done) override;
    std::shared_ptr<void> Hold() override;

private:
    struct Impl;
    std::unique_ptr<Impl> m_impl;
};
