#include "fakecamlist.h"

#include "wirecamera.h"

#include <arv.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <stdexcept>
#include <vector>

namespace {

constexpr std::size_t NameColumn = 25, Width = 90;

using Description = std::unique_ptr<ArvGc, decltype(&g_object_unref)>;

Description Load(SimModel const &model)
{
    std::string_view const xml = SimWireXml(model);
    ArvGc *const description = arv_gc_new(nullptr, xml.data(), xml.size());
    if (!description)
        throw std::runtime_error(std::string("the description of ") + model.name + " cannot be read");
    return {description, g_object_unref};
}

// In the order of the description, which Aravis' own list has not.
std::vector<std::string> GetEntries(ArvGcNode *node)
{
    std::vector<std::string> names;
    for (ArvDomNode *child = arv_dom_node_get_first_child(ARV_DOM_NODE(node)); child;
         child = arv_dom_node_get_next_sibling(child)) {
        if (ARV_IS_GC_ENUM_ENTRY(child))
            names.emplace_back(arv_gc_feature_node_get_name(ARV_GC_FEATURE_NODE(child)));
    }
    return names;
}

std::string Join(std::vector<std::string> const &words)
{
    std::string text;
    for (std::string const &word : words)
        text += (text.empty() ? "" : ", ") + word;
    return text;
}

std::string TextOf(double value)
{
    char text[40];
    std::snprintf(text, sizeof text, "%.10g", value);
    return text;
}

// What the feature takes, such as "0 to 100 %"; "" for what is run or can hold any text.
std::string RangeOf(ArvGcNode *node)
{
    if (ARV_IS_GC_ENUMERATION(node))
        return Join(GetEntries(node));
    if (ARV_IS_GC_BOOLEAN(node))
        return "true, false";
    std::string range;
    char const *unit = nullptr;
    if (ARV_IS_GC_FLOAT_NODE(node)) {
        range = TextOf(arv_gc_float_get_min(ARV_GC_FLOAT(node), nullptr)) + " to " +
                TextOf(arv_gc_float_get_max(ARV_GC_FLOAT(node), nullptr));
        unit = arv_gc_float_get_unit(ARV_GC_FLOAT(node));
    } else if (ARV_IS_GC_INTEGER_NODE(node)) {
        if (arv_gc_integer_get_representation(ARV_GC_INTEGER(node)) == ARV_GC_REPRESENTATION_IPV4_ADDRESS)
            return "an IPv4 address";
        range = std::to_string(arv_gc_integer_get_min(ARV_GC_INTEGER(node), nullptr)) + " to " +
                std::to_string(arv_gc_integer_get_max(ARV_GC_INTEGER(node), nullptr));
        unit = arv_gc_integer_get_unit(ARV_GC_INTEGER(node));
    }
    return unit && *unit ? range + ' ' + unit : range;
}

// A line with a hanging name, cut at blanks.
std::string Paragraph(std::string const &name, std::string text)
{
    std::string out = "  " + name;
    out.resize(std::max(out.size() + 1, NameColumn), ' ');
    std::size_t const room = Width - NameColumn;
    while (text.size() > room) {
        std::size_t const cut = text.rfind(' ', room);
        if (cut == std::string::npos)
            break;
        out += text.substr(0, cut) + '\n' + std::string(NameColumn, ' ');
        text.erase(0, cut + 1);
    }
    return out + text + '\n';
}

bool IsReadOnly(ArvGcNode *node)
{
    return arv_gc_feature_node_get_actual_access_mode(ARV_GC_FEATURE_NODE(node)) == ARV_GC_ACCESS_MODE_RO;
}

std::string ListFaults(ArvGc *description)
{
    std::string out;
    ArvGcNode *const faults = arv_gc_get_node(description, "WireFaults");
    GSList const *feature = arv_gc_category_get_features(ARV_GC_CATEGORY(faults));
    for (; feature; feature = feature->next) {
        ArvGcNode *const node = arv_gc_get_node(description, static_cast<char const *>(feature->data));
        if (IsReadOnly(node))
            continue;
        ArvGcFeatureNode *const texts = ARV_GC_FEATURE_NODE(node);
        std::string text = arv_gc_feature_node_get_description(texts);
        if (std::string const range = RangeOf(node); !range.empty())
            text += " (" + range + ')';
        out += Paragraph(arv_gc_feature_node_get_name(texts), text);
    }
    return out;
}

} // namespace

std::string ListWireModels()
{
    std::string out = "Models:\n";
    for (SimModel const *model : GetWireModels()) {
        Description const description = Load(*model);
        out += Paragraph(model->name, std::to_string(model->sensorWidth) + " x " + std::to_string(model->sensorHeight) +
                                          ", " + Join(GetEntries(arv_gc_get_node(description.get(), "PixelFormat"))));
    }
    out += "\nWhat can go wrong, by a feature's name:\n";
    out += ListFaults(Load(*GetWireModels().front()).get());
    return out;
}
