#include "nodewrite.h"

#include <algorithm>
#include <cmath>

std::int32_t WriteInteger(ArvGcFeatureNode *node, std::int64_t value)
{
    ArvGcInteger *const integer = ARV_GC_INTEGER(node);
    // ArvGc checks the bounds, and lets values between two steps pass.
    gint64 const increment = arv_gc_integer_get_inc(integer, nullptr);
    if (increment > 1) {
        gint64 const minimum = arv_gc_integer_get_min(integer, nullptr);
        auto const distance = static_cast<std::uint64_t>(value) - static_cast<std::uint64_t>(minimum);
        if (value >= minimum && distance % static_cast<std::uint64_t>(increment) != 0)
            return TOV_CAM_ERR_GENICAM_OUT_OF_RANGE;
    }
    ErrorSlot error;
    arv_gc_integer_set_value(integer, value, error);
    return error.Status();
}

std::int32_t WriteFloat(ArvGcFeatureNode *node, double value)
{
    if (std::isnan(value))
        return TOV_CAM_ERR_GENICAM_OUT_OF_RANGE;
    ErrorSlot error;
    arv_gc_float_set_value(ARV_GC_FLOAT(node), value, error);
    return error.Status();
}

std::int32_t WriteBoolean(ArvGcFeatureNode *node, bool value)
{
    ErrorSlot error;
    arv_gc_boolean_set_value(ARV_GC_BOOLEAN(node), value, error);
    return error.Status();
}

std::int32_t WriteEntry(ArvGcFeatureNode *node, char const *name)
{
    ArvGcEnumeration *const enumeration = ARV_GC_ENUMERATION(node);
    for (GSList const *i = arv_gc_enumeration_get_entries(enumeration); i; i = i->next) {
        ArvGcFeatureNode *const entry = ARV_GC_FEATURE_NODE(i->data);
        if (g_strcmp0(arv_gc_feature_node_get_name(entry), name) != 0)
            continue;
        if (std::int32_t const status = CheckEntry(entry); status != TOV_CAM_ERR_OK)
            return status;
    }
    ErrorSlot error;
    arv_gc_enumeration_set_string_value(enumeration, name, error);
    return error.Status();
}

std::int32_t WriteString(ArvGcFeatureNode *node, char const *value)
{
    ArvGcString *const string = ARV_GC_STRING(node);
    ErrorSlot slot;
    gint64 const room = arv_gc_string_get_max_length(string, slot);
    if (room > static_cast<gint64>(MaxRegister))
        return TOV_CAM_ERR_GENICAM_TREE;
    if (slot.Status() == TOV_CAM_ERR_OK && room > 0 && std::char_traits<char>::length(value) > std::size_t(room))
        return TOV_CAM_ERR_GENICAM_OUT_OF_RANGE;
    ErrorSlot error;
    arv_gc_string_set_value(string, value, error);
    return error.Status();
}

std::int32_t WriteRegister(ArvGcFeatureNode *node, std::string const &bytes)
{
    ErrorSlot lengthError, error;
    guint64 const length = arv_gc_register_get_length(ARV_GC_REGISTER(node), lengthError);
    if (lengthError.Status() != TOV_CAM_ERR_OK)
        return lengthError.Status();
    if (length > MaxRegister)
        return TOV_CAM_ERR_GENICAM_TREE;
    if (bytes.empty() || bytes.size() != length)
        return TOV_CAM_ERR_GENICAM_OUT_OF_RANGE;
    arv_gc_register_set(ARV_GC_REGISTER(node), bytes.data(), length, error);
    return error.Status();
}

std::int32_t ExecuteNode(ArvGcFeatureNode *node)
{
    ErrorSlot error;
    arv_gc_command_execute(ARV_GC_COMMAND(node), error);
    return error.Status();
}

std::int32_t WriteValue(ArvGcFeatureNode *node, TovCam::FeatureInfo const &info, TovCam::FeatureValue const &value)
{
    using TovCam::FeatureKind;

    switch (info.kind) {
    case FeatureKind::Integer:
        return WriteInteger(node, value.integer);
    case FeatureKind::Float:
        return WriteFloat(node, value.real);
    case FeatureKind::Boolean:
        return WriteBoolean(node, value.integer != 0);
    case FeatureKind::Enumeration: {
        if (!value.text.empty())
            return WriteEntry(node, value.text.c_str());
        auto const entry = std::find_if(info.entries.begin(), info.entries.end(),
                                        [&value](auto const &one) { return one.value == value.integer; });
        return entry != info.entries.end() ? WriteEntry(node, entry->name.c_str())
                                           : TOV_CAM_ERR_GENICAM_INVALID_ARGUMENT;
    }
    case FeatureKind::String:
        return WriteString(node, value.text.c_str());
    case FeatureKind::Command:
        return ExecuteNode(node);
    case FeatureKind::Register:
        return WriteRegister(node, value.text);
    case FeatureKind::Category:
        break;
    }
    return TOV_CAM_ERR_GENICAM_PARAM_TYPE;
}
