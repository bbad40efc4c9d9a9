#include "doctorprogram.h"

#include "doctorreport.h"
#include "tovplaintext.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>

namespace {

constexpr char Usage[] =
    "Usage: tovdoctor [--json] [--frame-size BYTES] [--frame-rate FPS]\n"
    "       tovdoctor --set-address CAMERA ADDRESS/MASK [GATEWAY]\n"
    "\n"
    "Lists the network adapters and the cameras, and says what of this computer and its network would\n"
    "keep them from working or make them lose frames, with the line that mends it. It changes nothing.\n"
    "\n"
    "  -j, --json              JSON in place of text\n"
    "  -f, --frame-size BYTES  how large the frames of each camera are\n"
    "  -r, --frame-rate FPS    how many of them each camera sends in a second\n"
    "  -a, --set-address CAMERA\n"
    "                          gives the GigE Vision camera with this serial number or address another\n"
    "                          address until it is switched off; it may be in a wrong subnet\n"
    "  -h, --help              shows this\n"
    "  -V, --version           shows the version\n"
    "\n"
    "The exit status is 0 when there is nothing to mend, 1 when there is something, 2 when it could not\n"
    "look, and for wrong usage. With --set-address it is 0 when the camera has the address, else 1.\n";

constexpr int Good = 0, ToMend = 1, NotDone = 1, CouldNotLook = 2;

struct ReleaseSystem
{
    void operator()(TovCam::System *system) const
    {
        system->Release();
    }
};
using SystemPointer = std::unique_ptr<TovCam::System, ReleaseSystem>;

SystemPointer MakeSystem()
{
    // Simulated cameras need nothing of the host.
    setenv("TOV_CAMERA_INTERFACES", "gige,usb3", 0);
    SystemPointer system(TovCam_GetSystem());
    if (!system)
        throw std::runtime_error("the camera library does not start");
    return system;
}

// All but simulated ones, which are nowhere.
std::vector<TovCam::DeviceInfo *> FindCameras(TovCam::System &system)
{
    if (system.UpdateDeviceList() != TOV_CAM_ERR_OK)
        throw std::runtime_error("cameras cannot be looked for");
    std::vector<TovCam::DeviceInfo *> cameras;
    TovCam::ObjectList *const list = system.GetInterfaceList(255);
    for (TovCam::Interface *interface = list->GetFirst(); interface; interface = list->GetNext()) {
        bool const isUsb = interface->GetInterfaceKind() == TovCam::InterfaceKindUSB3Vision;
        for (std::uint32_t i = 0; i < interface->GetDeviceCount(); ++i) {
            TovCam::DeviceInfo *const camera = interface->GetDeviceInfoByIndex(i);
            if (camera && (isUsb ? *camera->GetAddress() != '\0' : camera->GetNetworkPlace().address != 0))
                cameras.push_back(camera);
        }
    }
    return cameras;
}

int Examine(DoctorOptions const &options)
{
    SystemPointer const system = MakeSystem();
    std::vector<TovCam::DeviceInfo *> const cameras = FindCameras(*system);
    std::vector<TovCam::ExaminedCamera> examined;
    examined.reserve(cameras.size());
    for (TovCam::DeviceInfo *const camera : cameras)
        examined.push_back({camera, options.needs});
    TovCam::HostReport const report = TovCam_ExamineHost(examined);
    int status = CountToMend(report) != 0 ? ToMend : Good;
    if (!report.isComplete)
        status = CouldNotLook;
    std::string const text = options.json ? ReportJson(report, cameras, status) : ReportText(report, cameras);
    std::fputs(text.c_str(), stdout);
    if (!report.isComplete)
        std::fputs("tovdoctor: the network adapters cannot be listed\n", stderr);
    return status;
}

// ---- The address -------------------------------------------------------------------------------------------------

std::string Shown(TovCam::DeviceInfo &camera)
{
    return TovPlainLine(QString::fromUtf8(camera.GetDisplayName())).toStdString();
}

TovCam::DeviceInfo &Choose(std::vector<TovCam::DeviceInfo *> const &cameras, std::string const &name)
{
    TovCam::DeviceInfo *chosen = nullptr;
    for (TovCam::DeviceInfo *const camera : cameras) {
        if (camera->GetNetworkPlace().mac == 0 || (camera->GetSerialNumber() != name && camera->GetAddress() != name))
            continue;
        if (chosen)
            throw std::runtime_error("more than one camera is " + name);
        chosen = camera;
    }
    if (!chosen)
        throw std::runtime_error("there is no GigE Vision camera " + name);
    return *chosen;
}

// Throws where somebody has the address; true where this computer would reach the camera.
bool CheckWanted(TovCam::DeviceInfo &camera, std::vector<TovCam::DeviceInfo *> const &cameras,
                 TovCam::CameraAddress const &wanted)
{
    TovCam::AddressUse const use = TovCam_LookUpAddress(&camera, cameras, wanted);
    if (use.holder)
        throw std::runtime_error(TovCam_AddressText(wanted) + " is taken by " + Shown(*use.holder));
    if (use.isOfHost)
        throw std::runtime_error(TovCam_AddressText(wanted) + " is taken by this computer");
    return use.isInReach;
}

char const *WhyNot(std::int32_t status)
{
    switch (status) {
    case TOV_CAM_ERR_GENICAM_ACCESS:
        return "it is in use; close it first";
    case TOV_CAM_ERR_NO_DEVICE:
        return "it does not answer";
    default:
        return "it refuses";
    }
}

int SetAddress(DoctorOptions const &options)
{
    constexpr int MostSearches = 5; // of a second each: some cameras restart
    SystemPointer const system = MakeSystem();
    std::vector<TovCam::DeviceInfo *> const cameras = FindCameras(*system);
    TovCam::DeviceInfo &camera = Choose(cameras, options.camera);
    std::string const name = Shown(camera), address = TovCam_AddressText(options.address);
    bool const isNear = CheckWanted(camera, cameras, options.address);
    std::fprintf(stderr,
                 "Warning: %s, now at %s, gets the address %s until it is switched off.\n"
                 "Whoever uses it loses it. If another device has that address, neither can be used.\n",
                 name.c_str(), camera.GetAddress(), address.c_str());
    if (!isNear)
        std::fputs("Warning: this computer has no address in that subnet beside the camera, and will not reach it.\n",
                   stderr);
    std::uint64_t const mac = camera.GetNetworkPlace().mac;
    if (std::int32_t const status = TovCam_ForceAddress(&camera, options.address); status != TOV_CAM_ERR_OK)
        throw std::runtime_error(name + " keeps its address: " + WhyNot(status));
    for (int i = 0; i < MostSearches; ++i) {
        for (TovCam::DeviceInfo *const found : FindCameras(*system)) {
            TovCam::NetworkPlace const place = found->GetNetworkPlace();
            if (place.mac == mac && place.address == options.address.address) {
                std::printf("%s is at %s.\n", name.c_str(), address.c_str());
                return Good;
            }
        }
    }
    throw std::runtime_error(name + " has taken the address, but is not found there");
}

} // namespace

int RunDoctor(int argc, char *const *argv)
{
    DoctorOptions options;
    try {
        options = ParseDoctorOptions(argc, argv);
        switch (options.action) {
        case DoctorOptions::Help:
            std::fputs(Usage, stdout);
            return Good;
        case DoctorOptions::Version:
            std::puts("tovdoctor " TOV_VERSION);
            return Good;
        case DoctorOptions::Examine:
            return Examine(options);
        case DoctorOptions::SetAddress:
            return SetAddress(options);
        }
    } catch (DoctorUsageError const &error) {
        std::fprintf(stderr, "tovdoctor: %s\nTry \"tovdoctor --help\".\n", error.what());
        return CouldNotLook;
    } catch (std::exception const &error) {
        std::fprintf(stderr, "tovdoctor: %s\n", error.what());
    }
    return options.action == DoctorOptions::SetAddress ? NotDone : CouldNotLook;
}
