// Parameters of an interface, which never change.
#pragma once

#include "tovcamera.h"

#include <map>
#include <memory>
#include <string>

// Integers and texts. Any thread.
class FixedParams final : public TovCam::ParamArray
{
public:
    FixedParams(std::map<std::string, std::int64_t> const &integers, std::map<std::string, std::string> const &texts);
    ~FixedParams();

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
    class Integer;
    class Text;
    std::int32_t Missing(char const *name) const; // why a node of another type is not available
    std::int32_t Refuse(char const *name) const;  // a write

    std::map<std::string, std::unique_ptr<Integer>, std::less<>> m_integers;
    std::map<std::string, std::unique_ptr<Text>, std::less<>> m_texts;
};

// The parameters of the interface that a camera is reached by; `mac` may be null.
std::unique_ptr<FixedParams> MakeInterfaceParams(std::string const &displayName, std::string const &id,
                                                 std::uint64_t const *mac);
