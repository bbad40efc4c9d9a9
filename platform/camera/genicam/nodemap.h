// A camera's node map: TovCam::ParamArray over Aravis' ArvGc.
#pragma once

#include "tovcamera.h"

#include <arv.h>

#include <map>
#include <memory>
#include <mutex>
#include <string>

// Statuses of a GError from ArvGc or from register access.
std::int32_t StatusFromError(GError const *error);

// Asked around every access, where a camera may be gone and each request to it would wait for seconds. Called with the
// device's lock held.
class AccessGate
{
public:
    virtual std::int32_t Enter() = 0; // 0, or the status with which the access is refused unasked
    virtual void Leave() = 0;         // after every Enter

protected:
    ~AccessGate() = default;
};

// Written once for every kind of camera. Any thread: each call takes the device's lock.
class NodeMap final : public TovCam::ParamArray
{
public:
    // The device is not referenced and outlives the map. A device without a usable ArvGc gives an invalid map.
    NodeMap(ArvDevice *device, std::recursive_mutex &access);
    ~NodeMap();
    // 0, or why there is no usable node map (TOV_CAM_ERR_GENICAM_TREE for broken XML).
    std::int32_t GetStatus() const;
    bool HasNode(char const *name);
    // Set before the map is handed out; outlives it.
    void SetGate(AccessGate *gate);

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

private:
    struct Impl;
    std::unique_ptr<Impl> m_impl;
};
