#include "standardnodes.h"

#include "protocol/gigevision.h"

#include <cstdio>
#include <string>

namespace {

namespace bootstrap = gvcp::bootstrap;

// A text that the camera tells of itself.
struct TextNode
{
    char const *name, *displayName;
    std::uint32_t address;
    std::size_t length;
};
constexpr TextNode TextNodes[] = {
    {"DeviceVendorName", "Device Vendor Name", bootstrap::ManufacturerName, bootstrap::NameSize},
    {"DeviceModelName", "Device Model Name", bootstrap::ModelName, bootstrap::NameSize},
    {"DeviceVersion", "Device Version", bootstrap::DeviceVersion, bootstrap::NameSize},
    {"DeviceManufacturerInfo", "Device Manufacturer Info", bootstrap::ManufacturerSpecificInformation,
     bootstrap::InformationSize},
    {"DeviceID", "Device ID", bootstrap::SerialNumber, bootstrap::IdentitySize},
};

// A number of the stream channel, within a register of four bytes.
struct NumberNode
{
    char const *name, *displayName;
    std::uint32_t address;
    int firstBit; // counted from the most significant one; the last is 31
    int minimum, maximum, increment;
};
constexpr NumberNode NumberNodes[] = {
    {"GevSCPSPacketSize", "Packet Size", bootstrap::StreamChannelPacketSize, 16, 220, 16404, 4},
    {"GevSCPD", "Packet Delay", bootstrap::StreamChannelPacketDelay, 0, 0, 1000, 1},
};

bool Has(ArvGc *genicam, std::string const &name)
{
    return arv_gc_get_node(genicam, name.c_str()) != nullptr;
}

void Add(ArvGc *genicam, std::string const &name, std::string const &node)
{
    if (!Has(genicam, name))
        arv_gc_set_default_node_data(genicam, name.c_str(), node.c_str(), nullptr);
}

std::string Register(char const *kind, std::string const &name, std::uint32_t address, std::size_t length,
                     char const *mode, std::string const &rest)
{
    return std::string("<") + kind + " Name=\"" + name + "\">" + rest + "<Address>" + std::to_string(address) +
           "</Address><Length>" + std::to_string(length) + "</Length><AccessMode>" + mode +
           "</AccessMode><pPort>Device</pPort>";
}

void AddText(ArvGc *genicam, TextNode const &text)
{
    std::string const title = std::string("<DisplayName>") + text.displayName + "</DisplayName>";
    Add(genicam, text.name, Register("StringReg", text.name, text.address, text.length, "RO", title) + "</StringReg>");
}

void AddNumber(ArvGc *genicam, NumberNode const &number)
{
    // A name of ours, in which the number's own register cannot be one of the description's.
    std::string const place = std::string("TovStandard_") + number.name;
    if (Has(genicam, number.name) || Has(genicam, place))
        return;
    Add(genicam, place,
        Register("MaskedIntReg", place, number.address, gvcp::RegisterSize, "RW",
                 "<Visibility>Invisible</Visibility>") +
            "<Cachable>NoCache</Cachable><LSB>31</LSB><MSB>" + std::to_string(number.firstBit) +
            "</MSB><Sign>Unsigned</Sign><Endianess>BigEndian</Endianess></MaskedIntReg>");
    Add(genicam, number.name,
        std::string("<Integer Name=\"") + number.name + "\"><DisplayName>" + number.displayName +
            "</DisplayName><Visibility>Expert</Visibility><pIsLocked>TLParamsLocked</pIsLocked><pValue>" + place +
            "</pValue><Min>" + std::to_string(number.minimum) + "</Min><Max>" + std::to_string(number.maximum) +
            "</Max><Inc>" + std::to_string(number.increment) + "</Inc></Integer>");
}

} // namespace

void AddStandardNodes(ArvGc *genicam)
{
    Add(genicam, "TLParamsLocked",
        "<Integer Name=\"TLParamsLocked\"><Visibility>Invisible</Visibility><Value>0</Value><Min>0</Min><Max>1</Max>"
        "</Integer>");
    // The port has this name wherever it is one.
    if (!ARV_IS_GC_PORT(arv_gc_get_node(genicam, "Device")))
        return;
    for (TextNode const &text : TextNodes)
        AddText(genicam, text);
    for (NumberNode const &number : NumberNodes)
        AddNumber(genicam, number);
}

bool IsLegacyDescription(ArvGc *genicam)
{
    ArvDomElement *const root = arv_dom_document_get_document_element(ARV_DOM_DOCUMENT(genicam));
    return ARV_IS_GC_REGISTER_DESCRIPTION_NODE(root) &&
           !arv_gc_register_description_node_check_schema_version(ARV_GC_REGISTER_DESCRIPTION_NODE(root), 1, 1, 0);
}
