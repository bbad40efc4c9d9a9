#include "backend.h"

#include "fixedparams.h"
#include "genicam/xmlcheck.h"
#include "hostfacts.h"
#include "protocol/pixelformats.h"
#include "simdevice.h"

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <vector>

namespace {

SimModel const s_models[] = {
    {"VG-2048M", "VG", "20480117", "", SimXml_vg2048m, TovCam::InterfaceKindGigEVision, 2048, 1536, false, pfnc::Mono8,
     2, 4, 125000000, 1, 115.0},
    {"VU-1920C", "VU", "19200342", "", SimXml_vu1920c, TovCam::InterfaceKindUSB3Vision, 1920, 1200, true,
     pfnc::BayerGR8, 1, 12, 1000000000, 0, 420.0},
    {"VG-1280C", "VG", "12800058", "", SimXml_vg1280c, TovCam::InterfaceKindGigEVision, 1280, 1024, true, pfnc::RGB8, 0,
     0, 1000000000, 1, 115.0},
};

// A description from a file, for trying out what a camera might say. Up to one byte more than is allowed, to show that
// it is too large.
std::string ReadDescription(char const *path)
{
    std::ifstream file(path, std::ios::binary);
    std::string text(GenicamXmlLimit + 1, '\0');
    file.read(text.data(), static_cast<std::streamsize>(text.size()));
    text.resize(static_cast<std::size_t>(file.gcount()));
    return text;
}

class SimBackend final : public Backend
{
public:
    SimBackend()
        : m_gige(*this, TovCam::InterfaceKindGigEVision, "Simulated GigE Vision", "1.3.0"),
          m_usb(*this, TovCam::InterfaceKindUSB3Vision, "Simulated USB3 Vision", "1.3.0")
    {
        for (SimModel const &model : s_models)
            m_models.push_back(&model);
        // TOV_SIM_CAMERA_XML names the description of one more camera.
        if (char const *const path = std::getenv("TOV_SIM_CAMERA_XML"); path && *path) {
            m_foreignXml = ReadDescription(path);
            m_foreign = s_models[0];
            m_foreign.name = "VG-XML";
            m_foreign.serial = "00000001";
            m_foreign.xml = m_foreignXml;
            m_models.push_back(&m_foreign);
        }
    }

    std::vector<InterfaceImpl *> GetInterfaces() override
    {
        return {&m_gige, &m_usb};
    }

    std::int32_t Update() override
    {
        std::vector<DeviceInfoImpl *> gige, usb;
        for (SimModel const *model : m_models) {
            bool const isUsb = model->kind == TovCam::InterfaceKindUSB3Vision;
            InterfaceImpl &interface = isUsb ? m_usb : m_gige;
            DeviceInfoImpl *const info = interface.FindOrAdd(model->serial, [model] {
                auto made = std::make_unique<DeviceInfoImpl>();
                made->vendor = "Velmor";
                made->model = model->name;
                made->serial = model->serial;
                made->userID = model->userID;
                made->displayName = made->vendor + " " + made->model + " (" + made->serial + ")";
                made->access.store(TovCam::DeviceInfo::AccessFree);
                return made;
            });
            (isUsb ? usb : gige).push_back(info);
        }
        m_gige.SetVisible(std::move(gige));
        m_usb.SetVisible(std::move(usb));
        return TOV_CAM_ERR_OK;
    }

    DeviceInfoImpl *FindByAddress(std::string const &, std::int32_t *) override
    {
        return nullptr;
    }

    TovCam::Device *Open(DeviceInfoImpl *info, std::int32_t *error) override
    {
        for (SimModel const *model : m_models) {
            if (info->id == model->serial)
                return OpenSimDevice(*model, info, error);
        }
        *error = TOV_CAM_ERR_NO_DEVICE;
        return nullptr;
    }

    TovCam::ParamArray *GetInterfaceParameters(InterfaceImpl *interface, std::int32_t *) override
    {
        return interface == &m_gige ? m_gigeParams.get() : m_usbParams.get();
    }

    std::string GetHostInformation(DeviceInfoImpl *info) override
    {
        HostFacts const host;
        std::string const driver =
            std::string(info->interface->GetInterfaceDescription()) + ' ' + info->interface->GetDriverVersion();
        if (info->interface == &m_gige) {
            return AlignLines({{"Camera driver", driver},
                               {"Adapter", "simulated, the camera runs inside this program"},
                               {"MTU", "9000 bytes (simulated)"},
                               {"Link speed", "1000 Mb/s (simulated)"},
                               {"Receive buffer", host.GetReceiveBuffer()},
                               {"Kernel", host.GetKernel()}});
        }
        return AlignLines({{"Camera driver", driver},
                           {"Adapter", "simulated, the camera runs inside this program"},
                           {"USB speed", "5000 Mb/s (simulated)"},
                           {"USB buffer", host.GetUsbBuffer()},
                           {"Kernel", host.GetKernel()}});
    }

private:
    static constexpr std::uint64_t SimulatedMac = 0x02005E0FF1CE; // locally administered, so no maker's

    InterfaceImpl m_gige, m_usb;
    std::unique_ptr<FixedParams> const m_gigeParams =
        MakeInterfaceParams("Simulated network adapter", "sim-gige", &SimulatedMac);
    std::unique_ptr<FixedParams> const m_usbParams = MakeInterfaceParams("Simulated USB host", "sim-usb3", nullptr);
    std::vector<SimModel const *> m_models;
    std::string m_foreignXml;
    SimModel m_foreign{};
};

} // namespace

std::span<SimModel const> GetSimModels()
{
    return s_models;
}

std::unique_ptr<Backend> MakeSimBackend()
{
    return std::make_unique<SimBackend>();
}
