#include "xmlcheck.h"

#include "tovcamera.h"

#include <libxml/xmlreader.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace {

constexpr long long MaxTable = 16 << 20; // bytes of a Register
constexpr long long MaxNumber = 1024;    // bytes of a register that holds a number
constexpr int MaxChain = 100;            // links from a feature to its last register; real cameras have about ten
constexpr std::uint64_t MaxCost = 20000; // nodes evaluated for one value; real cameras need a few hundred

// References between nodes of one kind, by node name.
class Graph
{
public:
    void Add(std::string const &from, std::string const &to)
    {
        m_nodes[from].links.push_back(to);
    }

    bool IsBounded()
    {
        for (auto &[name, node] : m_nodes) {
            if (!Visit(node, 0))
                return false;
        }
        return true;
    }

private:
    struct Node
    {
        std::vector<std::string> links;
        bool open = false; // on the path being walked
        int height = -1;   // longest chain below, -1 while unknown
        std::uint64_t cost = 0;
    };

    bool Visit(Node &node, int depth)
    {
        if (node.open || depth > MaxChain)
            return false;
        if (node.height >= 0)
            return depth + node.height <= MaxChain;
        node.open = true;
        int height = 0;
        std::uint64_t cost = 1;
        for (std::string const &name : node.links) {
            auto const link = m_nodes.find(name);
            if (link == m_nodes.end()) {
                ++cost;
                continue;
            }
            if (!Visit(link->second, depth + 1))
                return false;
            height = std::max(height, link->second.height + 1);
            cost += link->second.cost;
        }
        node.open = false;
        node.height = height;
        node.cost = cost;
        return cost <= MaxCost;
    }

    std::unordered_map<std::string, Node> m_nodes;
};

bool IsValueLink(std::string_view tag)
{
    static constexpr std::string_view Tags[] = {"pValue",     "pAddress",      "pIndex",        "pLength",
                                                "pVariable",  "pValueIndexed", "pValueDefault", "pCommandValue",
                                                "pValueCopy", "pPort"};
    return std::find(std::begin(Tags), std::end(Tags), tag) != std::end(Tags);
}

// ArvGc takes memory of a register's length before it asks the camera, and ends the program where there is none. A
// length that another node tells is allowed for tables and texts, whose readers ask for it first.
bool IsSaneLength(std::string const &parent, std::string_view tag, std::string const &text)
{
    bool const isTable = parent == "Register" || parent == "StringReg";
    if (tag == "pLength")
        return isTable;
    long long const length = std::strtoll(text.c_str(), nullptr, 0); // as ArvGc reads it
    return length >= 0 && length <= (isTable ? MaxTable : MaxNumber);
}

std::string Trimmed(std::string_view view)
{
    char const *const blanks = " \t\r\n";
    std::size_t const first = view.find_first_not_of(blanks);
    if (first == std::string_view::npos)
        return {};
    return std::string(view.substr(first, view.find_last_not_of(blanks) - first + 1));
}

std::string Trimmed(xmlChar const *text)
{
    return text ? Trimmed(reinterpret_cast<char const *>(text)) : std::string();
}

std::string Attribute(xmlTextReaderPtr reader, char const *name)
{
    std::unique_ptr<xmlChar, decltype(xmlFree)> const value(
        xmlTextReaderGetAttribute(reader, reinterpret_cast<xmlChar const *>(name)), xmlFree);
    return Trimmed(value.get());
}

} // namespace

std::int32_t CheckGenicamXml(void const *xml, std::size_t size)
{
    auto const *const bytes = static_cast<char const *>(xml);
    // Cameras pad the file in their memory.
    while (size > 0 && bytes[size - 1] == '\0')
        --size;
    if (size == 0 || size > GenicamXmlLimit)
        return TOV_CAM_ERR_GENICAM_TREE;
    std::unique_ptr<xmlTextReader, decltype(&xmlFreeTextReader)> const owner(
        xmlReaderForMemory(bytes, static_cast<int>(size), nullptr, nullptr,
                           XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING),
        xmlFreeTextReader);
    xmlTextReaderPtr const reader = owner.get();
    if (!reader)
        return TOV_CAM_ERR_GENICAM_TREE;

    Graph values, categories;
    std::vector<std::string> owners;   // the names of the open elements, "" for those without
    std::vector<std::string> elements; // the tags of the open elements
    std::string tag, text;             // of the innermost open element
    bool sane = true;
    bool described = false;
    // A structure's entries share the links of the structure, which has no name.
    std::vector<std::string> structLinks, structEntries;
    bool inStruct = false;
    int status;
    while ((status = xmlTextReaderRead(reader)) == 1) {
        switch (xmlTextReaderNodeType(reader)) {
        case XML_READER_TYPE_ELEMENT: {
            tag = Trimmed(xmlTextReaderConstLocalName(reader));
            text.clear();
            if (xmlTextReaderDepth(reader) == 0)
                described = tag == "RegisterDescription";
            // An offset that is read from another node.
            if (std::string const offset = Attribute(reader, "pOffset"); !offset.empty()) {
                for (std::string const &owner : owners) {
                    if (!owner.empty())
                        values.Add(owner, offset);
                }
            }
            if (tag == "StructReg") {
                inStruct = true;
                structLinks.clear();
                structEntries.clear();
            } else if (tag == "StructEntry") {
                structEntries.push_back(Attribute(reader, "Name"));
            }
            if (!xmlTextReaderIsEmptyElement(reader))
                elements.push_back(tag);
            if (!xmlTextReaderIsEmptyElement(reader))
                owners.push_back(tag == "EnumEntry" || tag == "Group" || tag[0] == 'p' ? std::string()
                                                                                       : Attribute(reader, "Name"));
            break;
        }
        case XML_READER_TYPE_END_ELEMENT:
            if (!owners.empty())
                owners.pop_back();
            if (!elements.empty())
                elements.pop_back();
            if (tag == "Length" || tag == "pLength")
                sane = sane && !elements.empty() && IsSaneLength(elements.back(), tag, Trimmed(text));
            if (tag == "pFeature" || IsValueLink(tag)) {
                // An enumeration reads its entries, so what they link to is linked to by it.
                std::string const target = Trimmed(text);
                if (inStruct)
                    structLinks.push_back(target);
                for (std::string const &owner : owners) {
                    if (!owner.empty())
                        (tag == "pFeature" ? categories : values).Add(owner, target);
                }
            }
            if (inStruct && Trimmed(xmlTextReaderConstLocalName(reader)) == "StructReg") {
                inStruct = false;
                for (std::string const &entry : structEntries) {
                    for (std::string const &link : structLinks)
                        values.Add(entry, link);
                }
            }
            tag.clear();
            break;
        case XML_READER_TYPE_TEXT:
        case XML_READER_TYPE_CDATA:
            // A comment may lie within, so the text is whole only at the element's end.
            text += reinterpret_cast<char const *>(xmlTextReaderConstValue(reader));
            break;
        default:
            break;
        }
    }
    if (status != 0 || !described || !sane || !values.IsBounded() || !categories.IsBounded())
        return TOV_CAM_ERR_GENICAM_TREE;
    return TOV_CAM_ERR_OK;
}
