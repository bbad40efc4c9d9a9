#include "fixedparams.h"

#include "storestatus.h"

class FixedParams::Integer final : public TovCam::IntParam
{
public:
    Integer(std::string name, std::int64_t value) : m_name(std::move(name)), m_value(value)
    {
    }
    char const *GetName() override
    {
        return m_name.c_str();
    }
    std::int64_t GetValue(std::int32_t *error) override
    {
        StoreStatus(error, TOV_CAM_ERR_OK);
        return m_value;
    }
    std::int64_t GetMin(std::int32_t *error) override
    {
        return GetValue(error);
    }
    std::int64_t GetMax(std::int32_t *error) override
    {
        return GetValue(error);
    }

private:
    std::string const m_name;
    std::int64_t const m_value;
};

class FixedParams::Text final : public TovCam::StringParam
{
public:
    Text(std::string name, std::string value) : m_name(std::move(name)), m_value(std::move(value))
    {
    }
    char const *GetName() override
    {
        return m_name.c_str();
    }
    char const *GetValue(std::int32_t *error) override
    {
        StoreStatus(error, TOV_CAM_ERR_OK);
        return m_value.c_str();
    }

private:
    std::string const m_name, m_value;
};

namespace {

template<class Params>
auto Find(Params const &params, char const *name) -> decltype(params.begin()->second.get())
{
    auto const found = name ? params.find(std::string_view(name)) : params.end();
    return found == params.end() ? nullptr : found->second.get();
}

} // namespace

FixedParams::FixedParams(std::map<std::string, std::int64_t> const &integers,
                         std::map<std::string, std::string> const &texts)
{
    for (auto const &[name, value] : integers)
        m_integers.emplace(name, std::make_unique<Integer>(name, value));
    for (auto const &[name, value] : texts)
        m_texts.emplace(name, std::make_unique<Text>(name, value));
}

FixedParams::~FixedParams() = default;

std::int32_t FixedParams::Missing(char const *name) const
{
    return Find(m_integers, name) || Find(m_texts, name) ? TOV_CAM_ERR_GENICAM_PARAM_TYPE
                                                         : TOV_CAM_ERR_GENICAM_UNKNOWN_PARAM;
}

std::int32_t FixedParams::Refuse(char const *name) const
{
    return Missing(name) == TOV_CAM_ERR_GENICAM_PARAM_TYPE ? TOV_CAM_ERR_GENICAM_ACCESS : Missing(name);
}

TovCam::EnumParam *FixedParams::GetEnum(char const *name, std::int32_t *error)
{
    StoreStatus(error, Missing(name));
    return nullptr;
}

TovCam::IntParam *FixedParams::GetInt(char const *name, std::int32_t *error)
{
    Integer *const param = Find(m_integers, name);
    StoreStatus(error, param ? TOV_CAM_ERR_OK : Missing(name));
    return param;
}

TovCam::StringParam *FixedParams::GetString(char const *name, std::int32_t *error)
{
    Text *const param = Find(m_texts, name);
    StoreStatus(error, param ? TOV_CAM_ERR_OK : Missing(name));
    return param;
}

char const *FixedParams::GetEnumValueStr(char const *name, std::int32_t *error)
{
    StoreStatus(error, Missing(name));
    return nullptr;
}

std::int64_t FixedParams::GetIntegerValue(char const *name, std::int32_t *error)
{
    TovCam::IntParam *const param = GetInt(name, error);
    return param ? param->GetValue(error) : 0;
}

double FixedParams::GetFloatValue(char const *name, std::int32_t *error)
{
    StoreStatus(error, Missing(name));
    return 0.0;
}

std::int32_t FixedParams::SetIntegerValue(char const *name, std::int64_t)
{
    return Refuse(name);
}

std::int32_t FixedParams::ExecuteCommand(char const *name)
{
    return Missing(name);
}

std::int32_t FixedParams::SetEnumValueStr(char const *name, char const *)
{
    return Refuse(name);
}

std::int32_t FixedParams::SetFloatValue(char const *name, double)
{
    return Refuse(name);
}

std::int32_t FixedParams::SetBooleanValue(char const *name, bool)
{
    return Refuse(name);
}

std::int32_t FixedParams::SetStringValue(char const *name, char const *)
{
    return Refuse(name);
}

std::unique_ptr<FixedParams> MakeInterfaceParams(std::string const &displayName, std::string const &id,
                                                 std::uint64_t const *mac)
{
    std::map<std::string, std::int64_t> integers;
    if (mac)
        integers["GevInterfaceMACAddress"] = static_cast<std::int64_t>(*mac);
    return std::make_unique<FixedParams>(
        integers, std::map<std::string, std::string>{{"InterfaceDisplayName", displayName}, {"InterfaceID", id}});
}
