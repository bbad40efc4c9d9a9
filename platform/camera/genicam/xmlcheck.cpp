#include "xmlcheck.h"

#include "linkgraph.h"

#include "tovcamera.h"

#include <libxml/xmlreader.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace {

constexpr long long MaxTable = 16 << 20; // bytes of a Register
constexpr long long MaxNumber = 1024;    // bytes of a register that holds a number
constexpr std::size_t FormulaShare = 64; // bytes of a formula that cost as much as a node

bool IsValueLink(std::string_view tag)
{
    static constexpr std::string_view Tags[] = {"pValue",     "pAddress",      "pIndex",        "pLength",
                                                "pVariable",  "pValueIndexed", "pValueDefault", "pCommandValue",
                                                "pValueCopy", "pPort"};
    return std::find(std::begin(Tags), std::end(Tags), tag) != std::end(Tags);
}

bool IsFormula(std::string_view tag)
{
    static constexpr std::string_view Tags[] = {"Formula", "FormulaTo", "FormulaFrom", "Expression", "Constant"};
    return std::find(std::begin(Tags), std::end(Tags), tag) != std::end(Tags);
}

// ArvGc takes memory of a register's length before it asks the camera, and ends the program where there is none. A
// length that comes from another node is allowed for tables and texts, whose readers check it first.
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

// Follows a description from element to element, and notes which node links to which.
class DescriptionReader
{
public:
    explicit DescriptionReader(xmlTextReaderPtr reader) : m_reader(reader)
    {
    }

    // Reads to the end: whether it is well-formed, is a description, and has nothing that would take ArvGc too far.
    // What is wrong, or "".
    std::string Check()
    {
        int status;
        while ((status = xmlTextReaderRead(m_reader)) == 1) {
            switch (xmlTextReaderNodeType(m_reader)) {
            case XML_READER_TYPE_ELEMENT:
                OnElement();
                break;
            case XML_READER_TYPE_END_ELEMENT:
                OnEnd();
                break;
            case XML_READER_TYPE_TEXT:
            case XML_READER_TYPE_CDATA:
                // A comment may lie within, so the text is whole only at the element's end.
                m_text += reinterpret_cast<char const *>(xmlTextReaderConstValue(m_reader));
                break;
            case XML_READER_TYPE_DOCUMENT_TYPE:
                // ArvGc would put in entities that stand for more than can be seen here.
                m_sane = false;
                break;
            default:
                break;
            }
        }
        if (status != 0)
            return "it is not well-formed in line " + std::to_string(xmlTextReaderGetParserLineNumber(m_reader));
        if (!m_described)
            return "it describes no registers";
        if (!m_sane)
            return "it has a document type, or registers of absurd lengths";
        return m_values.IsBounded() && m_categories.IsBounded() ? "" : "its features refer to each other without end";
    }

private:
    // An element inside a named one belongs to each of those around it.
    void AddToOwners(LinkGraph &graph, std::string const &target)
    {
        for (std::string const &owner : m_owners) {
            if (!owner.empty())
                graph.Add(owner, target);
        }
    }

    void OnElement()
    {
        m_tag = Trimmed(xmlTextReaderConstLocalName(m_reader));
        m_text.clear();
        if (xmlTextReaderDepth(m_reader) == 0)
            m_described = m_tag == "RegisterDescription";
        // An offset that is read from another node.
        if (std::string const offset = Attribute(m_reader, "pOffset"); !offset.empty())
            AddToOwners(m_values, offset);
        if (m_tag == "StructReg") {
            m_inStruct = true;
            m_structLinks.clear();
            m_structEntries.clear();
        } else if (m_tag == "StructEntry") {
            m_structEntries.push_back(Attribute(m_reader, "Name"));
        }
        if (xmlTextReaderIsEmptyElement(m_reader))
            return;
        m_elements.push_back(m_tag);
        m_owners.push_back(m_tag == "EnumEntry" || m_tag == "Group" || m_tag[0] == 'p' ? std::string()
                                                                                       : Attribute(m_reader, "Name"));
    }

    void OnEnd()
    {
        if (!m_owners.empty())
            m_owners.pop_back();
        if (!m_elements.empty())
            m_elements.pop_back();
        if (m_tag == "Length" || m_tag == "pLength")
            m_sane = m_sane && !m_elements.empty() && IsSaneLength(m_elements.back(), m_tag, Trimmed(m_text));
        if (IsFormula(m_tag)) {
            for (std::string const &owner : m_owners) {
                if (!owner.empty())
                    m_values.AddCost(owner, m_text.size() / FormulaShare);
            }
        }
        if (m_tag == "pFeature" || IsValueLink(m_tag)) {
            // An enumeration reads its entries, so what they link to is linked to by it.
            std::string const target = Trimmed(m_text);
            if (m_inStruct)
                m_structLinks.push_back(target);
            AddToOwners(m_tag == "pFeature" ? m_categories : m_values, target);
        }
        if (m_inStruct && Trimmed(xmlTextReaderConstLocalName(m_reader)) == "StructReg") {
            m_inStruct = false;
            for (std::string const &entry : m_structEntries) {
                for (std::string const &link : m_structLinks)
                    m_values.Add(entry, link);
            }
        }
        m_tag.clear();
    }

    xmlTextReaderPtr const m_reader;
    LinkGraph m_values, m_categories;
    std::vector<std::string> m_owners;   // the names of the open elements, "" for those without
    std::vector<std::string> m_elements; // the tags of the open elements
    std::string m_tag, m_text;           // of the innermost open element
    bool m_sane = true;
    bool m_described = false;
    // A structure's entries share the links of the structure, which has no name.
    std::vector<std::string> m_structLinks, m_structEntries;
    bool m_inStruct = false;
};

} // namespace

std::int32_t CheckGenicamXml(void const *xml, std::size_t size, std::string *why)
{
    auto const *const bytes = static_cast<char const *>(xml);
    // Cameras pad the file in their memory.
    while (size > 0 && bytes[size - 1] == '\0')
        --size;
    std::string wrong = size == 0 ? "it is empty" : "it is too large";
    if (size > 0 && size <= GenicamXmlLimit) {
        std::unique_ptr<xmlTextReader, decltype(&xmlFreeTextReader)> const reader(
            xmlReaderForMemory(bytes, static_cast<int>(size), nullptr, nullptr,
                               XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING),
            xmlFreeTextReader);
        wrong = reader ? DescriptionReader(reader.get()).Check() : "it cannot be read";
    }
    bool const isGood = wrong.empty();
    if (why)
        *why = std::move(wrong);
    return isGood ? TOV_CAM_ERR_OK : TOV_CAM_ERR_GENICAM_TREE;
}
