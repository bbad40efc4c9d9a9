// The contract of cameras for GigE cameras, ours and one that we did not write, whose frames come by the socket and by
// the packet ring. Runs in a network namespace of its own.
#include "wireclients.h"

#include "fakegige.h"
#include "gige/ringsource.h"

#include <fstream>

namespace {

enum class By { Socket, Ring };
enum class Camera { Grey, Colour, Aravis };

std::unique_ptr<WireCamera> s_wire;
std::unique_ptr<FakeGigECamera> s_fake;

template<Camera Kind, By Way>
TovCam::DeviceInfo *Find(TovCam::System *system)
{
    PermitRingSource(Way == By::Ring);
    s_wire.reset();
    s_fake.reset();
    if (Kind == Camera::Aravis) {
        s_fake = std::make_unique<FakeGigECamera>();
    } else {
        s_wire = Serve(Kind == Camera::Grey ? Grey : Colour);
        // Frames that a busy computer receives in one go.
        Set(*s_wire, "Width", "640");
        Set(*s_wire, "Height", "480");
    }
    return FindAt(system, "127.0.0.1");
}

INSTANTIATE_TEST_SUITE_P(Gige, CameraContract,
                         testing::Values(ContractCamera{"GreyByRing", Find<Camera::Grey, By::Ring>},
                                         ContractCamera{"ColourBySocket", Find<Camera::Colour, By::Socket>},
                                         ContractCamera{"AravisByRing", Find<Camera::Aravis, By::Ring>, false},
                                         ContractCamera{"AravisBySocket", Find<Camera::Aravis, By::Socket>, false}),
                         testing::PrintToStringParamName());

TEST_P(CameraContract, FramesComeTheWayThatIsMeant)
{
    RunningCamera camera(m_device);
    camera.ForFrames(2, [](TovCam::Buffer &) {});
    std::ifstream sockets("/proc/net/packet");
    int lines = 0;
    for (std::string line; std::getline(sockets, line); ++lines) {
    }
    EXPECT_EQ(lines > 1, GetParam().name.ends_with("ByRing")); // below the title
    for (char const *none : {"TovStreamForeign", "TovStreamMalformed", "TovStreamSocketDrops"})
        EXPECT_EQ(m_nodes->GetIntegerValue(none, nullptr), 0) << none;
    EXPECT_GE(m_nodes->GetIntegerValue("TovStreamReceived", nullptr), 6);
}

} // namespace
