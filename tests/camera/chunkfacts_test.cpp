// Exposure and gain out of chunk data, by descriptions of many kinds and by hostile ones.
#include "chunkfacts.h"

#include "memorycamera.h"
#include "protocol/byteorder.h"

#include <gtest/gtest.h>

#include <cmath>

namespace {

using Bytes = std::vector<std::uint8_t>;
using std::endian;

constexpr std::uint32_t Id = 0xA1;
std::string const big = "<Endianess>BigEndian</Endianess>", sign = "<Sign>Signed</Sign>";
constexpr double None = std::numeric_limits<double>::quiet_NaN();
// The chunk: 0x00010203, 0x84050607, 1234.5, -2, and -2.5.
Bytes const Content{0, 1, 2, 3, 0x84, 5, 6, 7, 0x44, 0x9A, 0x50, 0, 255, 255, 255, 254, 0xC0, 4, 0, 0, 0, 0, 0, 0};

bool IsSame(double a, double b)
{
    return a == b || (std::isnan(a) && std::isnan(b));
}

void Add(Bytes &data, std::uint32_t id, Bytes const &content, endian order)
{
    data.insert(data.end(), content.begin(), content.end());
    data.resize(data.size() + 8);
    auto const store = order == endian::big ? StoreBig32 : StoreLittle32;
    store(&data[data.size() - 8], id);
    store(&data[data.size() - 4], static_cast<std::uint32_t>(content.size()));
}

std::string Register(std::string const &kind, std::string const &place, std::string const &more = "",
                     std::string const &name = "V", std::string const &port = "Chunk")
{
    return '<' + kind + " Name=\"" + name + "\">" + place + "<AccessMode>RO</AccessMode><pPort>" + port + "</pPort>" +
           more + "</" + kind + '>';
}

std::string At(std::string const &address, std::string const &length = "4")
{
    return "<Address>" + address + "</Address><Length>" + length + "</Length>";
}

std::string Knife(std::string const &kind, std::string const &formula)
{
    return '<' + kind +
           " Name=\"V\"><pVariable Name=\"A\">A</pVariable><pVariable Name=\"B\">B</pVariable><pVariable "
           "Name=\"R\">R</pVariable><Constant Name=\"C\">3</Constant><Expression Name=\"E\">A * 2"
           "</Expression><Formula>" +
           formula + "</Formula></" + kind + '>';
}

// A is 66051 and B -2 in the chunk, R is 7 in the camera's memory, and so is W, which can be written.
TovCam::FrameFacts Read(std::string const &nodes, std::span<std::uint8_t const> chunks, endian order = endian::big)
{
    MemoryCamera camera("<RegisterDescription ModelName=\"x\" SchemaMajorVersion=\"1\" SchemaMinorVersion=\"1\" "
                        "SchemaSubMinorVersion=\"0\"><Category Name=\"Root\"/>" +
                        nodes + Register("IntReg", At("0"), big, "A") + Register("IntReg", At("12"), big + sign, "B") +
                        Register("IntReg", At("64"), big, "R", "Device") +
                        "<IntReg Name=\"W\"><Address>64</Address><Length>4</Length><AccessMode>RW</AccessMode><pPort>"
                        "Device</pPort></IntReg><Port Name=\"Chunk\"><ChunkID>a1</ChunkID></Port><Port Name=\"Odd\">"
                        "<ChunkID>none</ChunkID></Port><Port Name=\"Device\"/></RegisterDescription>");
    EXPECT_EQ(camera.GetNodes().GetStatus(), TOV_CAM_ERR_OK);
    StoreBig32(&camera.memory[64], 7);
    TovCam::FrameFacts facts;
    if (std::shared_ptr<ChunkFacts const> const found = ChunkFacts::Find(camera.GetDevice(), order))
        found->Read(chunks, facts);
    return facts;
}

std::string Float(std::string const &value, std::string const &name = "ChunkExposureTime")
{
    return "<Float Name=\"" + name + "\">" + value + "</Float>";
}

TEST(ChunkFacts, AreReadTheWayThatTheDescriptionGoes)
{
    std::string const bits = "<LSB>31</LSB><MSB>24</MSB>", lowBits = "<LSB>0</LSB><MSB>7</MSB>";
    std::string const entries = "<StructEntry Name=\"V\">" + bits + "</StructEntry>";
    std::string many;
    for (char const letter : {'a', 'b', 'c', 'd', 'e', 'f', 'g'})
        many += std::string("<pVariable Name=\"") + letter + "\">A</pVariable>";
    std::string const summed = "<SwissKnife Name=\"V\"><pVariable Name=\"A\">A</pVariable>";
    struct
    {
        std::string nodes; // V is the exposure
        double value;
    } const rows[] = {
        {Register("IntReg", At("0")), 0x03020100},
        {Register("IntReg", At("1", "3"), big), 0x010203},
        {Register("IntReg", At("12"), big + sign), -2},
        {Register("MaskedIntReg", At("4"), big + bits), 7},
        {Register("MaskedIntReg", At("4"), big + "<Bit>0</Bit>"), 1},
        {Register("MaskedIntReg", At("4"), lowBits + sign), -124},
        {Register("StructReg", At("4"), big + entries), 7},
        {Register("FloatReg", At("8"), big), 1234.5},
        {Register("FloatReg", At("16", "8"), big), -2.5},
        {"<Converter Name=\"V\"><FormulaTo>FROM*8</FormulaTo><FormulaFrom>TO/8</FormulaFrom><pValue>A</pValue>"
         "</Converter>",
         8256.375},
        {Knife("SwissKnife", "E / 4 + B * R + C"), 33014.5},
        {Knife("IntSwissKnife", "E / 4 + B * R + C"), 33014},
        // Nothing is better than something wrong.
        {Knife("IntSwissKnife", "A / (B + 2)"), None},
        {Knife("SwissKnife", "A / 0 + NoName"), None},
        {summed + "<pVariable Name=\"W\">W</pVariable><Formula>A * W</Formula></SwissKnife>", None},
        {summed + many + "<Formula>A + g</Formula></SwissKnife>", 0x020406},
        {summed + many + "<pVariable Name=\"h\">A</pVariable><Formula>A + h</Formula></SwissKnife>", None},
        {Register("IntReg", At("21")), None},
        {Register("IntReg", At("0xFFFFFFFFFFFFFFFE")), None},
        {Register("IntReg", At("0", "16")), None},
        {Register("IntReg", "<pAddress>A</pAddress><Length>4</Length>"), None},
        {Register("FloatReg", At("12"), big), None}, // not a number
        {Register("MaskedIntReg", At("0"), "<LSB>30</LSB><MSB>40</MSB>"), None},
        {Register("Register", At("0")), None},
        {Register("IntReg", At("0"), "", "V", "Odd"), None},
        {Register("IntReg", At("0"), "", "V", "Device"), None},
        {"<Integer Name=\"V\"><Value>5</Value></Integer>", None},
    };
    for (auto const &row : rows) {
        SCOPED_TRACE(row.nodes);
        for (endian const order : {endian::big, endian::little}) {
            Bytes data;
            Add(data, 1, Bytes(100), order); // the picture
            Add(data, Id, Content, order);
            Add(data, 2, {}, order);
            EXPECT_PRED2(IsSame, Read(Float("<pValue>V</pValue>") + row.nodes, data, order).exposure, row.value);
        }
    }
}

TEST(ChunkFacts, HaveMicrosecondsAndOtherNames)
{
    Bytes data;
    Add(data, Id, Content, endian::big);
    struct
    {
        std::string nodes;
        double exposure, gain;
    } const rows[] = {
        {Float("<pValue>A</pValue><Unit>ns</Unit>") + Float("<pValue>B</pValue>", "ChunkGain"), 66.051, -2},
        {Float("<pValue>A</pValue><Unit>ms</Unit>", "ChunkExposureTimeAbs"), 66051000, None},
        {Float("<pIsImplemented>W</pIsImplemented><pValue>A</pValue>"), 66051, None},
        {"<Integer Name=\"ChunkGainAll\"><pValue>B</pValue></Integer>", None, -2},
        // The first name leads nowhere.
        {Float("<pValue>W</pValue>", "ChunkGain") + Float("<pValue>B</pValue>", "ChunkGainAbs"), None, -2},
    };
    for (auto const &row : rows) {
        SCOPED_TRACE(row.nodes);
        TovCam::FrameFacts const facts = Read(row.nodes, data);
        EXPECT_PRED2(IsSame, facts.exposure, row.exposure);
        EXPECT_PRED2(IsSame, facts.gain, row.gain);
    }
}

} // namespace
