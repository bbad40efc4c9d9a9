#include "backend.h"

namespace {

class SimBackend final : public Backend
{
public:
    std::vector<InterfaceImpl *> GetInterfaces() override
    {
        return {};
    }
    std::int32_t Update() override
    {
        return TOV_CAM_ERR_OK;
    }
    DeviceInfoImpl *FindByAddress(std::string const &, std::int32_t *) override
    {
        return nullptr;
    }
    TovCam::Device *Open(DeviceInfoImpl *, std::int32_t *error) override
    {
        *error = TOV_CAM_ERR_NO_DEVICE;
        return nullptr;
    }
    TovCam::ParamArray *GetInterfaceParameters(InterfaceImpl *, std::int32_t *) override
    {
        return nullptr;
    }
    std::string GetHostInformation(DeviceInfoImpl *) override
    {
        return {};
    }
};

} // namespace

std::unique_ptr<Backend> MakeSimBackend()
{
    return std::make_unique<SimBackend>();
}
