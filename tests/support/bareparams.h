// The node map of a camera without nodes, for fakes that add what they need.
#pragma once

#include "tovcamera.h"

// An operation that always gives the same.
#define FAKE_GIVES(operation, value)                                                                                   \
    operation override                                                                                                 \
    {                                                                                                                  \
        return value;                                                                                                  \
    }

class BareParams : public TovCam::ParamArray
{
public:
    FAKE_GIVES(TovCam::EnumParam *GetEnum(char const *, std::int32_t *), nullptr);
    FAKE_GIVES(TovCam::IntParam *GetInt(char const *, std::int32_t *), nullptr);
    FAKE_GIVES(TovCam::StringParam *GetString(char const *, std::int32_t *), nullptr);
    FAKE_GIVES(char const *GetEnumValueStr(char const *, std::int32_t *), nullptr);
    FAKE_GIVES(std::int64_t GetIntegerValue(char const *, std::int32_t *), 0);
    FAKE_GIVES(double GetFloatValue(char const *, std::int32_t *), 0);
    FAKE_GIVES(std::int32_t ExecuteCommand(char const *), TOV_CAM_ERR_GENICAM_UNKNOWN_PARAM);
    FAKE_GIVES(std::int32_t SetIntegerValue(char const *, std::int64_t), TOV_CAM_ERR_GENICAM_UNKNOWN_PARAM);
    FAKE_GIVES(std::int32_t SetEnumValueStr(char const *, char const *), TOV_CAM_ERR_GENICAM_UNKNOWN_PARAM);
    FAKE_GIVES(std::int32_t SetFloatValue(char const *, double), TOV_CAM_ERR_GENICAM_UNKNOWN_PARAM);
    FAKE_GIVES(std::int32_t SetBooleanValue(char const *, bool), TOV_CAM_ERR_GENICAM_UNKNOWN_PARAM);
    FAKE_GIVES(std::int32_t SetStringValue(char const *, char const *), TOV_CAM_ERR_GENICAM_UNKNOWN_PARAM);
};
