// A configuration file of unknown origin, applied to a small camera.
#include "driver.h"
#include "memorycamera.h"

#include "genicam/configuration.h"

namespace {

char const Description[] = R"(<?xml version="1.0"?>
<RegisterDescription ModelName="Small" VendorName="Velmor">
<Category Name="Root"><pFeature>Width</pFeature><pFeature>OffsetX</pFeature><pFeature>Gain</pFeature>
<pFeature>Mode</pFeature><pFeature>Enable</pFeature><pFeature>Text</pFeature><pFeature>Table</pFeature>
<pFeature>Outer</pFeature><pFeature>Inner</pFeature><pFeature>Channel</pFeature><pFeature>Run</pFeature>
<pFeature>TLParamsLocked</pFeature></Category>
<Integer Name="Width"><pIsLocked>TLParamsLocked</pIsLocked><Streamable>Yes</Streamable><pValue>Width_Reg</pValue>
<Min>0</Min><pMax>Room</pMax><Inc>4</Inc></Integer>
<IntSwissKnife Name="Room"><pVariable Name="O">OffsetX_Reg</pVariable><Formula>1024 - O</Formula></IntSwissKnife>
<IntReg Name="Width_Reg"><Address>0x100</Address><Length>4</Length><AccessMode>RW</AccessMode><pPort>Device</pPort></IntReg>
<Integer Name="OffsetX"><Streamable>Yes</Streamable><pValue>OffsetX_Reg</pValue><Min>0</Min><pMax>OffsetRoom</pMax></Integer>
<IntSwissKnife Name="OffsetRoom"><pVariable Name="W">Width_Reg</pVariable><Formula>1024 - W</Formula></IntSwissKnife>
<IntReg Name="OffsetX_Reg"><Address>0x108</Address><Length>4</Length><AccessMode>RW</AccessMode><pPort>Device</pPort></IntReg>
<Float Name="Gain"><Streamable>Yes</Streamable><pValue>Gain_Conv</pValue><Min>0</Min><Max>24</Max></Float>
<Converter Name="Gain_Conv"><FormulaTo>FROM * 100</FormulaTo><FormulaFrom>TO / 100</FormulaFrom><pValue>Gain_Reg</pValue></Converter>
<IntReg Name="Gain_Reg"><Address>0x110</Address><pIndex Offset="8">Inner_Reg</pIndex><Length>4</Length><AccessMode>RW</AccessMode><pPort>Device</pPort></IntReg>
<Enumeration Name="Mode"><Streamable>Yes</Streamable><EnumEntry Name="First"><Value>0</Value></EnumEntry>
<EnumEntry Name="Second"><pIsAvailable>Enable_Reg</pIsAvailable><Value>1</Value></EnumEntry><pValue>Mode_Reg</pValue></Enumeration>
<IntReg Name="Mode_Reg"><Address>0x180</Address><Length>4</Length><AccessMode>RW</AccessMode><pPort>Device</pPort></IntReg>
<Boolean Name="Enable"><Streamable>Yes</Streamable><pValue>Enable_Reg</pValue><OnValue>1</OnValue><OffValue>0</OffValue></Boolean>
<IntReg Name="Enable_Reg"><Address>0x188</Address><Length>4</Length><AccessMode>RW</AccessMode><pPort>Device</pPort></IntReg>
<StringReg Name="Text"><Streamable>Yes</Streamable><Address>0x200</Address><Length>16</Length><AccessMode>RW</AccessMode><pPort>Device</pPort></StringReg>
<Register Name="Table"><Streamable>Yes</Streamable><Address>0x220</Address><Length>8</Length><AccessMode>RW</AccessMode><pPort>Device</pPort></Register>
<Enumeration Name="Outer"><EnumEntry Name="First"><Value>0</Value></EnumEntry><EnumEntry Name="Second"><Value>1</Value></EnumEntry>
<pValue>Outer_Reg</pValue><pSelected>Inner</pSelected></Enumeration>
<IntReg Name="Outer_Reg"><Address>0x240</Address><Length>4</Length><AccessMode>RW</AccessMode><pPort>Device</pPort></IntReg>
<Integer Name="Inner"><pValue>Inner_Reg</pValue><Min>0</Min><Max>3</Max><pSelected>Gain</pSelected><pSelected>Channel</pSelected></Integer>
<IntReg Name="Inner_Reg"><Address>0x248</Address><pIndex Offset="4">Outer_Reg</pIndex><Length>4</Length><AccessMode>RW</AccessMode><pPort>Device</pPort></IntReg>
<Integer Name="Channel"><Streamable>Yes</Streamable><pValue>Channel_Reg</pValue><Min>0</Min><Max>255</Max></Integer>
<IntReg Name="Channel_Reg"><Address>0x280</Address><pIndex Offset="4">Inner_Reg</pIndex><Length>4</Length><AccessMode>RW</AccessMode><pPort>Device</pPort></IntReg>
<Command Name="Run"><pValue>Run_Reg</pValue><CommandValue>1</CommandValue></Command>
<IntReg Name="Run_Reg"><Address>0x2A0</Address><Length>4</Length><AccessMode>RW</AccessMode><pPort>Device</pPort></IntReg>
<Integer Name="TLParamsLocked"><pValue>Lock_Reg</pValue><Min>0</Min><Max>1</Max></Integer>
<IntReg Name="Lock_Reg"><Address>0x2A8</Address><Length>4</Length><AccessMode>RW</AccessMode><pPort>Device</pPort></IntReg>
<Port Name="Device"/>
</RegisterDescription>
)";

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const *data, std::size_t size)
{
    static MemoryCamera camera{std::string(Description)};
    static std::vector<std::uint8_t> const registers(camera.memory.size());
    NodeMap &nodes = camera.GetNodes();
    camera.memory = registers;
    Configuration configuration;
    std::int32_t status = configuration.Parse(std::string(reinterpret_cast<char const *>(data), size));
    if (status == TOV_CAM_ERR_OK)
        status = configuration.Apply(nodes, size % 2 == 0);
    if (status == TOV_CAM_ERR_WRONG_CONFIGURATION || status == TOV_CAM_ERR_FILE_READ) {
        if (camera.memory != registers)
            FuzzFail("refused, and the camera has changed");
        return FuzzRefused;
    }
    if (nodes.GetIntegerValue("TLParamsLocked", nullptr) != 0)
        FuzzFail("what no file stores has changed");
    if (!IsOneOf(8, data, size))
        return 0;
    // Whatever state the camera is in now, it can be saved and restored.
    std::vector<std::uint8_t> const before = camera.memory;
    Configuration present, copy;
    present.camera.model = "Small";
    if (present.Take(nodes) != TOV_CAM_ERR_OK || camera.memory != before)
        FuzzFail("saving fails or moves something");
    camera.memory = registers;
    if (copy.Parse(present.ToText()) != TOV_CAM_ERR_OK || copy.Apply(nodes, true) != TOV_CAM_ERR_OK)
        FuzzFail("what was saved cannot be loaded");
    return 0;
}
