// The descriptions of the cameras on the network: what each feature does to the registers, and the hostile ones.
#include "genicam/xmlcheck.h"
#include "memorycamera.h"
#include "protocol/byteorder.h"
#include "protocol/gigevision.h"
#include "sim/simmodel.h"
#include "wire/hostiledescription.h"
#include "wire/wirecamera.h"

#include <gtest/gtest.h>

#include <bit>
#include <map>

namespace {

namespace B = gvcp::bootstrap;
namespace W = WireRegister;

using TovCam::FeatureAccess;
using TovCam::FeatureKind;

constexpr auto RO = FeatureAccess::ReadOnly, WO = FeatureAccess::WriteOnly, RW = FeatureAccess::ReadWrite;

// Registers one after the other that are alike, a feature for each.
struct Registers
{
    std::uint32_t first, step;
    std::vector<char const *> features;
    FeatureAccess access = RW;
    std::uint32_t shift = 0, bits = 32; // reals have 64 all the same
};

Registers const RegisterMap[] = {
    {B::Version, 4, {"GevVersionMajor"}, RO, 16, 16},
    {B::Version, 4, {"GevVersionMinor"}, RO, 0, 16},
    {B::CurrentSubnetMask, 16, {"GevCurrentSubnetMask", "GevCurrentDefaultGateway"}, RO},
    {B::PersistentIpAddress, 16, {"GevPersistentIPAddress", "GevPersistentSubnetMask", "GevPersistentDefaultGateway"}},
    {B::LinkSpeed, 4, {"GevLinkSpeed"}, RO},
    {B::HeartbeatTimeout, 4, {"GevHeartbeatTimeout"}},
    {B::ControlChannelPrivilege, 4, {"GevCCP"}},
    {B::MessageChannelPort, 4, {"GevMCPHostPort"}, RW, 0, 16},
    {B::MessageChannelDestinationAddress, 4, {"GevMCDA", "GevMCTT", "GevMCRC"}},
    {B::StreamChannelPort, 4, {"GevSCPHostPort"}, RW, 0, 16},
    {B::StreamChannelPacketDelay, 16, {"GevSCPD", "GevSCDA"}},
    {B::StreamChannelPacketSize, 4, {"GevSCPSFireTestPacket"}, RW, 31, 1},
    {B::StreamChannelPacketSize, 4, {"GevSCPSDoNotFragment"}, RW, 30, 1},
    {B::GvspConfiguration, 4, {"GevGVSPExtendedIDMode"}, RW, 30, 1},
    {B::StreamChannelConfiguration, 4, {"GevSCCFGAllInTransmission"}, RW, 2, 1},
    {B::StreamChannelConfiguration, 4, {"GevSCCFGPacketResendDestination"}, RW, 3, 1},
    {B::StreamChannelConfiguration, 4, {"GevSCCFGMultiPart"}, RW, 6, 1},
    {B::ActionDeviceKey, 4, {"ActionDeviceKey"}, WO},
    {B::ActionGroupKey + 2 * B::ActionStep, 4, {"ActionGroupKey", "ActionGroupMask"}},
    {W::PacketLoss, 8, {"WirePacketLoss", "WireLossBurst", "WireLostEvery", "WireReorder", "WireReorderDistance"}},
    {W::Duplicate, 8, {"WireDuplicate", "WireTruncate"}},
    {W::WrongLength, 8, {"WireWrongLength", "WireWrongPacketId", "WireWrongBlockId", "WireDelay", "WireIgnoreResend"}},
    {W::AnswerLoss, 8, {"WireAnswerLoss", "WireAnswerWrongId", "WireAnswerWrongLength", "WireAnswerDelay"}},
    {W::Silence, 8, {"WireSilence", "WireDescription"}},
    {W::Die, 8, {"WireDie"}, WO},
    {W::DownTime, 8, {"WireDownTime", "WireReturnAddress", "WireReturnReset", "WireClockDrift", "WireEager"}},
    {W::StreamForgery, 8, {"WireStreamForgery", "WireAnswerForgery", "WireRegisterLie"}},
    {W::ChunkModeActive, 8, {"ChunkModeActive", "ChunkSelector"}},
    {W::ChunkEnable + 3 * 8, 8, {"ChunkEnable"}},
    {W::FramesSent, 8, {"WireFramesSent", "WirePacketsSent", "WirePacketsResent", "WirePacketsRefused"}, RO, 0, 64},
};

class WireXmlTest : public testing::TestWithParam<SimModel const *>
{
protected:
    WireXmlTest()
    {
        for (std::uint32_t i = 0; i < m_nodes.GetFeatureCount(); ++i)
            m_index[m_nodes.GetFeature(i)->name] = i;
    }

    // The stream channel announces all that it can have.
    void Reset()
    {
        m_camera.memory.assign(W::End, 0);
        m_camera.memory[B::StreamChannelCapability + 3] = 0x4C;
        m_camera.memory[W::ChunkSelector + 3] = 3;
    }
    TovCam::FeatureState Read(std::string const &name)
    {
        TovCam::FeatureState state;
        EXPECT_EQ(m_nodes.ReadFeature(m_index.at(name), &state), 0);
        return state;
    }

    void Check(std::string const &name, std::uint32_t address, Registers const &like);

    std::string const m_xml{SimWireXml(*GetParam())};
    MemoryCamera m_camera{m_xml};
    NodeMap &m_nodes = m_camera.GetNodes();
    std::map<std::string, std::uint32_t> m_index;
};

void WireXmlTest::Check(std::string const &name, std::uint32_t address, Registers const &like)
{
    SCOPED_TRACE(name);
    Reset();
    ASSERT_TRUE(m_index.contains(name));
    FeatureKind const kind = m_nodes.GetFeature(m_index[name])->kind;
    bool const isReal = kind == FeatureKind::Float, isLong = isReal || like.bits == 64;
    std::uint64_t const mask = (~std::uint64_t{0} >> (isReal ? 0 : 64 - like.bits)) << like.shift;
    std::int64_t const number = kind != FeatureKind::Integer ? 1 : isLong ? 6000000000 : Read(name).maximum;
    TovCam::FeatureValue const value{number, 12.5, {}};
    std::uint64_t const raw =
        isReal ? std::bit_cast<std::uint64_t>(12.5) : (static_cast<std::uint64_t>(value.integer) << like.shift) & mask;
    std::uint64_t const around = isLong ? 0 : ~mask & 0xFFFFFFFF; // stays
    std::uint8_t *const bytes = &m_camera.memory[address];
    auto const store = [&](std::uint64_t all) {
        isLong ? StoreBig64(bytes, all) : StoreBig32(bytes, static_cast<std::uint32_t>(all));
    };
    if (like.access != RO) {
        store(around);
        EXPECT_EQ(kind == FeatureKind::Command ? m_nodes.ExecuteCommand(name.c_str())
                                               : m_nodes.WriteFeature(m_index[name], value),
                  0);
        EXPECT_EQ(isLong ? LoadBig64(bytes) : LoadBig32(bytes), around | raw);
    }
    if (kind == FeatureKind::Command)
        return;
    store(raw);
    TovCam::FeatureState const state = Read(name);
    EXPECT_EQ(state.access, like.access);
    EXPECT_TRUE(like.access == WO || (isReal ? state.value.real == 12.5 : state.value.integer == value.integer));
}

TEST_P(WireXmlTest, WritesAndReadsEachFeatureAtItsRegister)
{
    Reset();
    ASSERT_EQ(m_nodes.WriteFeature(m_index.at("ActionSelector"), {2, 0.0, {}}), 0);
    for (Registers const &row : RegisterMap) {
        for (std::uint32_t i = 0; i < row.features.size(); ++i)
            Check(row.features[i], row.first + i * row.step, row);
    }
    // What the stream channel does not announce is not offered.
    m_camera.memory[B::StreamChannelCapability + 3] = 0x04;
    EXPECT_EQ(Read("GevSCCFGAllInTransmission").access, RW);
    EXPECT_EQ(Read("GevSCCFGMultiPart").access, FeatureAccess::NotImplemented);
    EXPECT_EQ(Read("GevSCCFGPacketResendDestination").access, FeatureAccess::NotImplemented);
}

TEST_P(WireXmlTest, HasTextsForEachFeature)
{
    for (char const *const category : {"WireFaults", "ActionControl", "ChunkDataControl"}) {
        for (std::uint32_t const child : m_nodes.GetFeature(m_index.at(category))->children) {
            TovCam::FeatureInfo const &feature = *m_nodes.GetFeature(child);
            EXPECT_FALSE(feature.toolTip.empty() || feature.description.empty()) << feature.name;
        }
    }
    Reset();
    ASSERT_EQ(m_nodes.SetStringValue("WireLostPackets", "3,7-9,last"), 0);
    EXPECT_STREQ(reinterpret_cast<char const *>(&m_camera.memory[W::LostPackets]), "3,7-9,last");
    for (TovCam::FeatureEntry const &entry : m_nodes.GetFeature(m_index.at("ChunkSelector"))->entries) {
        char id[40];
        std::snprintf(id, sizeof id, "<ChunkID>%08X<", WireChunkId(static_cast<WireChunk>(entry.value)));
        std::size_t const port = m_xml.find("<Port Name=\"" + entry.name + "Chunk\"");
        EXPECT_LT(m_xml.find(id, port), m_xml.find("</Port>", port)) << entry.name;
    }
}

INSTANTIATE_TEST_SUITE_P(Models, WireXmlTest, testing::ValuesIn(GetWireModels()));

// ---- Hostile descriptions ----------------------------------------------------------------------------------------

// The tests of its readers see whether the good archives are, and the bad URLs.
TEST(HostileDescription, IsWhatItsNameSays)
{
    std::string const good(SimWireXml(*GetWireModels()[0]));
    for (std::uint32_t i = 0; i <= static_cast<std::uint32_t>(WireDescription::WrongTypes); ++i) {
        SCOPED_TRACE(i);
        auto const kind = static_cast<WireDescription>(i);
        ServedDescription const served = MakeDescription(kind, "VG-2048M", good);
        bool const isHurt = (kind >= WireDescription::Truncated && kind <= WireDescription::Circle) ||
                            kind == WireDescription::DeepNodes || kind == WireDescription::HugeRegisters;
        EXPECT_EQ(CheckGenicamXml(served.plain.data(), served.plain.size()) == 0, !isHurt);
        EXPECT_EQ(served.plain == good, !isHurt && kind < WireDescription::ChangesOnce);
        EXPECT_LT(served.plain.size(), ZippedDescriptionAddress - PlainDescriptionAddress);
        EXPECT_LT(served.zipped.size(), std::size_t{4} << 20);
        if (kind == WireDescription::Empty)
            continue;
        // What the archive's first header announces.
        auto const byte = [&](std::size_t i) {
            return std::size_t{static_cast<std::uint8_t>(served.zipped.at(i))};
        };
        std::size_t const size = byte(22) | byte(23) << 8 | byte(24) << 16 | byte(25) << 24;
        EXPECT_TRUE(kind == WireDescription::ZipBomb ? size > std::size_t{3} << 30 : size == served.plain.size())
            << size;
    }
}

} // namespace
