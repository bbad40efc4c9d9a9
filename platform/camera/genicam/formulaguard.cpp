#include "formulaguard.h"

#include "formulatext.h"
#include "nodeaccess.h"

#include <libxml/parser.h>
#include <libxml/tree.h>

#include <algorithm>
#include <memory>
#include <optional>
#include <set>
#include <vector>

namespace {

// Guards repeat divisors, in each other too. No camera needs a hundredth of it.
constexpr std::size_t MaxGrowth = 16u << 20; // bytes of guarded formulas in all
constexpr std::size_t UnusableShare = 4096;  // bytes that count for a formula that may have grown in vain

xmlChar const *Chars(std::string const &text)
{
    return reinterpret_cast<xmlChar const *>(text.c_str());
}

std::string ToText(xmlChar *text)
{
    std::unique_ptr<xmlChar, decltype(xmlFree)> const owned(text, xmlFree);
    return text ? reinterpret_cast<char const *>(text) : "";
}

std::string_view TagOf(xmlNode const *node)
{
    return reinterpret_cast<char const *>(node->name);
}

// Nothing for another element.
std::optional<FormulaPart::Kind> PartOf(xmlNode const *node)
{
    std::string_view const tag = TagOf(node);
    if (tag == "Formula" || tag == "FormulaTo" || tag == "FormulaFrom")
        return FormulaPart::Kind::Formula;
    if (tag == "Expression")
        return FormulaPart::Kind::Expression;
    if (tag == "Constant")
        return FormulaPart::Kind::Constant;
    return std::nullopt;
}

class DescriptionWriter
{
public:
    explicit DescriptionWriter(xmlDoc *document) : m_document(document)
    {
    }

    // False where the formulas take too much.
    bool Guard()
    {
        xmlNode *const root = xmlDocGetRootElement(m_document);
        if (!root)
            return true;
        Visit(root);
        for (xmlNode *const length : m_lengths)
            LimitLength(root, length);
        return m_grown <= MaxGrowth;
    }

    bool IsChanged() const
    {
        return m_changed;
    }

private:
    // Recursion is bounded: the parser refuses what is nested deeper than 256 elements.
    void Visit(xmlNode *node)
    {
        if (m_grown > MaxGrowth)
            return;
        m_names.insert(ToText(xmlGetProp(node, Chars("Name"))));
        std::vector<xmlNode *> elements;
        std::vector<FormulaPart> parts;
        for (xmlNode *child = node->children; child; child = child->next) {
            if (child->type != XML_ELEMENT_NODE)
                continue;
            if (auto const kind = PartOf(child)) {
                elements.push_back(child);
                // What ArvGc makes of an element within is anybody's guess.
                parts.push_back({*kind, ToText(xmlGetProp(child, Chars("Name"))),
                                 xmlFirstElementChild(child) ? "" : ToText(xmlNodeGetContent(child)), true});
            } else if (TagOf(child) == "pLength" && (TagOf(node) == "Register" || TagOf(node) == "StringReg")) {
                m_lengths.push_back(child);
            } else {
                Visit(child);
            }
        }
        std::vector<FormulaPart> const original = parts;
        GuardParts(parts);
        for (std::size_t i = 0; i < parts.size(); ++i) {
            xmlNode const *const content = elements[i]->children;
            bool const isPlain = content && content->type == XML_TEXT_NODE && !content->next;
            if (parts[i].text != original[i].text || !isPlain) {
                m_grown += parts[i].usable ? parts[i].text.size() : UnusableShare;
                SetText(elements[i], parts[i].text);
            }
        }
    }

    void SetText(xmlNode *element, std::string const &text)
    {
        xmlNodeSetContent(element, nullptr);
        xmlNodeAddContent(element, Chars(text));
        m_changed = true;
    }

    // A camera may give another length each time that it is asked.
    void LimitLength(xmlNode *root, xmlNode *length)
    {
        std::string const source = ToText(xmlNodeGetContent(length));
        std::string name;
        do {
            name = "LimitedLength" + std::to_string(++m_limits);
        } while (m_names.contains(name));
        xmlNode *const limit = xmlNewChild(root, nullptr, Chars("IntSwissKnife"), nullptr);
        xmlNewProp(limit, Chars("Name"), Chars(name));
        xmlNode *const variable = xmlNewTextChild(limit, nullptr, Chars("pVariable"), Chars(source));
        xmlNewProp(variable, Chars("Name"), Chars("LENGTH"));
        std::string const tooLong = std::to_string(MaxRegister + 1);
        xmlNewTextChild(limit, nullptr, Chars("Formula"),
                        Chars("(LENGTH < 0) || (LENGTH > " + tooLong + ") ? " + tooLong + " : LENGTH"));
        SetText(length, name);
    }

    xmlDoc *const m_document;
    std::set<std::string> m_names;
    std::vector<xmlNode *> m_lengths;
    int m_limits = 0;
    std::size_t m_grown = 0;
    bool m_changed = false;
};

} // namespace

std::int32_t GuardFormulas(std::string_view xml, std::string *guarded)
{
    while (!xml.empty() && xml.back() == '\0')
        xml.remove_suffix(1);
    std::unique_ptr<xmlDoc, decltype(&xmlFreeDoc)> const document(
        xmlReadMemory(xml.data(), static_cast<int>(xml.size()), nullptr, nullptr,
                      XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING),
        xmlFreeDoc);
    // Entities would be replaced after this has looked.
    if (!document || document->intSubset)
        return TOV_CAM_ERR_GENICAM_TREE;
    DescriptionWriter writer(document.get());
    if (!writer.Guard())
        return TOV_CAM_ERR_GENICAM_TREE;
    if (!writer.IsChanged()) {
        *guarded = xml;
        return TOV_CAM_ERR_OK;
    }
    xmlChar *text = nullptr;
    int size = 0;
    xmlDocDumpMemory(document.get(), &text, &size);
    std::unique_ptr<xmlChar, decltype(xmlFree)> const owned(text, xmlFree);
    if (!text)
        return TOV_CAM_ERR_GENICAM_TREE;
    guarded->assign(reinterpret_cast<char const *>(text), static_cast<std::size_t>(size));
    return TOV_CAM_ERR_OK;
}
