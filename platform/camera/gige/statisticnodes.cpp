#include "statisticnodes.h"

#include "protocol/byteorder.h"

#include <iterator>

namespace {

constexpr std::uint64_t FirstAddress = std::uint64_t{1} << 32; // behind all that GVCP can name
constexpr std::uint32_t NumberSize = 8;
constexpr char Category[] = "TovStreamStatistics";

struct Statistic
{
    char const *name, *displayName, *toolTip;
    StreamCounter StreamStatistics::*counter;
};
constexpr Statistic Statistics[] = {
    {"TovStreamReceived", "Packets Received", "Datagrams at the stream's port, from anybody",
     &StreamStatistics::received},
    {"TovStreamPackets", "Packets Used", "Packets that became part of a frame", &StreamStatistics::packets},
    {"TovStreamMissing", "Packets Missing", "Packets without which a frame ended", &StreamStatistics::missing},
    {"TovStreamAsked", "Packets Asked For", "Packets that the camera was asked to send again",
     &StreamStatistics::asked},
    {"TovStreamResent", "Packets Resent", "Packets that came after they had been asked for", &StreamStatistics::resent},
    {"TovStreamRefused", "Packets Refused", "Packets that the camera could not send again", &StreamStatistics::refused},
    {"TovStreamLate", "Packets Late", "Packets of a frame that was over or had no buffer", &StreamStatistics::late},
    {"TovStreamDuplicate", "Packets Duplicate", "Packets that were there already", &StreamStatistics::duplicate},
    {"TovStreamForeign", "Packets Foreign", "Datagrams that did not come from the camera", &StreamStatistics::foreign},
    {"TovStreamMalformed", "Packets Malformed", "Packets that contradict themselves or their frame",
     &StreamStatistics::malformed},
    {"TovStreamIgnored", "Packets Ignored", "Test packets", &StreamStatistics::ignored},
    {"TovStreamSocketDrops", "Packets Dropped by the Socket", "Datagrams that the system had no room for",
     &StreamStatistics::socketDrops},
    {"TovStreamComplete", "Frames Complete", "Frames of which every byte came", &StreamStatistics::complete},
    {"TovStreamUnfit", "Frames Unfit", "Frames of which every byte came, but no picture that fits what was announced",
     &StreamStatistics::unfit},
    {"TovStreamIncomplete", "Frames Incomplete", "Frames of which some bytes came", &StreamStatistics::incomplete},
    {"TovStreamLost", "Frames Lost", "Frames that found no free buffer", &StreamStatistics::lost},
    {"TovStreamAborted", "Frames Aborted", "Frames that were under way when the stream stopped",
     &StreamStatistics::aborted},
    {"TovStreamSkipped", "Frames Skipped", "Frames of which nothing came", &StreamStatistics::skipped},
};

bool Has(ArvGc *genicam, char const *name)
{
    return arv_gc_get_node(genicam, name) != nullptr;
}

std::string MakeNode(Statistic const &statistic, std::uint64_t address)
{
    return std::string("<IntReg Name=\"") + statistic.name + "\"><ToolTip>" + statistic.toolTip +
           "</ToolTip><DisplayName>" + statistic.displayName +
           "</DisplayName><Visibility>Expert</Visibility><Address>" + std::to_string(address) + "</Address><Length>" +
           std::to_string(NumberSize) +
           "</Length><AccessMode>RO</AccessMode><pPort>Device</pPort><Cachable>NoCache</Cachable>"
           "<PollingTime>1000</PollingTime><Sign>Unsigned</Sign><Endianess>BigEndian</Endianess></IntReg>";
}

void AppendFeature(ArvGc *genicam, ArvGcNode *category, char const *name)
{
    ArvDomDocument *const document = ARV_DOM_DOCUMENT(genicam);
    ArvDomElement *const feature = arv_dom_document_create_element(document, "pFeature");
    arv_dom_node_append_child(ARV_DOM_NODE(feature), ARV_DOM_NODE(arv_dom_document_create_text_node(document, name)));
    arv_dom_node_append_child(ARV_DOM_NODE(category), ARV_DOM_NODE(feature));
}

std::string Grouped(std::uint64_t number)
{
    std::string text = std::to_string(number);
    for (std::size_t at = text.size(); at > 3; at -= 3)
        text.insert(at - 3, 1, ',');
    return text;
}

} // namespace

void AddStatisticNodes(ArvGc *genicam)
{
    ArvGcNode *const root = arv_gc_get_node(genicam, "Root");
    bool isOurs =
        ARV_IS_GC_CATEGORY(root) && ARV_IS_GC_PORT(arv_gc_get_node(genicam, "Device")) && !Has(genicam, Category);
    for (Statistic const &statistic : Statistics)
        isOurs = isOurs && !Has(genicam, statistic.name);
    if (!isOurs)
        return;
    std::string category = std::string("<Category Name=\"") + Category +
                           "\"><ToolTip>What became of the packets, as this computer sees it</ToolTip>"
                           "<DisplayName>Stream Statistics</DisplayName><Visibility>Expert</Visibility>";
    std::uint64_t address = FirstAddress;
    for (Statistic const &statistic : Statistics) {
        arv_gc_set_default_node_data(genicam, statistic.name, MakeNode(statistic, address).c_str(), nullptr);
        category += std::string("<pFeature>") + statistic.name + "</pFeature>";
        address += NumberSize;
    }
    arv_gc_set_default_node_data(genicam, Category, (category + "</Category>").c_str(), nullptr);
    AppendFeature(genicam, root, Category);
}

bool IsStatistic(std::uint64_t address, std::uint32_t size)
{
    return size == NumberSize && address >= FirstAddress && (address - FirstAddress) % NumberSize == 0 &&
           (address - FirstAddress) / NumberSize < std::size(Statistics);
}

void ReadStatistic(StreamStatistics const &statistics, std::uint64_t address, std::uint8_t *out)
{
    StoreBig64(out, (statistics.*Statistics[(address - FirstAddress) / NumberSize].counter).Get());
}

std::vector<std::pair<std::string, std::string>> DescribeStatistics(StreamStatistics const &statistics)
{
    if (statistics.received.Get() == 0)
        return {};
    auto const number = [](StreamCounter const &counter, char const *what) {
        return Grouped(counter.Get()) + ' ' + what;
    };
    return {{"Frames", number(statistics.complete, "complete, ") + number(statistics.unfit, "unfit, ") +
                           number(statistics.incomplete, "incomplete, ") +
                           number(statistics.lost, "without a buffer, ") + number(statistics.skipped, "skipped")},
            {"Packets", number(statistics.packets, "used, ") + number(statistics.missing, "missing, ") +
                            number(statistics.asked, "asked for again, ") + number(statistics.resent, "resent")},
            {"Packets left", number(statistics.socketDrops, "dropped by the socket, ") +
                                 number(statistics.late, "late, ") + number(statistics.duplicate, "duplicate, ") +
                                 number(statistics.foreign, "foreign, ") + number(statistics.malformed, "malformed")}};
}
