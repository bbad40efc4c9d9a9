#include "noderead.h"

#include <algorithm>
#include <limits>

namespace {

std::int32_t ReadRegister(ArvGcFeatureNode *node, std::uint64_t *size, std::string *bytes)
{
    ErrorSlot lengthError, error;
    guint64 const length = arv_gc_register_get_length(ARV_GC_REGISTER(node), lengthError);
    if (lengthError.Status() != TOV_CAM_ERR_OK)
        return lengthError.Status();
    if (length > MaxRegister)
        return TOV_CAM_ERR_GENICAM_TREE;
    *size = length;
    std::string read(length, '\0');
    if (length > 0)
        arv_gc_register_get(ARV_GC_REGISTER(node), read.data(), length, error);
    if (error.Status() == TOV_CAM_ERR_OK)
        *bytes = std::move(read);
    return error.Status();
}

} // namespace

std::int32_t ReadText(ArvGcFeatureNode *node, std::string *text)
{
    text->clear();
    ArvGcNode *source = ARV_GC_NODE(node);
    for (int links = 0; ARV_IS_GC_FEATURE_NODE(source) && links < 100; ++links) {
        if (ARV_IS_GC_REGISTER(source)) {
            std::uint64_t size = 0;
            std::int32_t const status = ReadRegister(ARV_GC_FEATURE_NODE(source), &size, text);
            text->resize(std::min(text->find('\0'), text->size()));
            return status;
        }
        ArvGcNode *const present = source;
        source = nullptr;
        ForProperties(ARV_DOM_NODE(present), [&source](ArvGcPropertyNode *property, ArvGcPropertyNodeType type) {
            if (type == ARV_GC_PROPERTY_NODE_TYPE_P_VALUE)
                source = arv_gc_property_node_get_linked_node(property);
        });
    }
    ErrorSlot error;
    char const *const value = arv_gc_string_get_value(ARV_GC_STRING(node), error);
    *text = value ? value : "";
    return error.Status();
}

void ReadLimits(ArvGcFeatureNode *node, TovCam::FeatureKind kind, TovCam::FeatureState &state)
{
    if (kind == TovCam::FeatureKind::Integer) {
        ArvGcInteger *const integer = ARV_GC_INTEGER(node);
        state.minimum = arv_gc_integer_get_min(integer, nullptr);
        state.maximum = arv_gc_integer_get_max(integer, nullptr);
        state.increment = std::max<gint64>(arv_gc_integer_get_inc(integer, nullptr), 1);
    } else if (kind == TovCam::FeatureKind::Float) {
        ArvGcFloat *const real = ARV_GC_FLOAT(node);
        state.realMinimum = arv_gc_float_get_min(real, nullptr);
        state.realMaximum = arv_gc_float_get_max(real, nullptr);
        double const increment = arv_gc_float_get_inc(real, nullptr);
        // ArvGc gives the smallest double for none.
        state.realIncrement = increment > std::numeric_limits<double>::min() ? increment : 0.0;
    } else if (kind == TovCam::FeatureKind::String) {
        state.length =
            static_cast<std::uint64_t>(std::max<gint64>(arv_gc_string_get_max_length(ARV_GC_STRING(node), nullptr), 0));
    }
}

void ReadValue(ArvGcFeatureNode *node, TovCam::FeatureInfo const &info, TovCam::FeatureState &state)
{
    using TovCam::FeatureKind;

    ErrorSlot error;
    TovCam::FeatureValue &value = state.value;
    switch (info.kind) {
    case FeatureKind::Integer:
        value.integer = arv_gc_integer_get_value(ARV_GC_INTEGER(node), error);
        break;
    case FeatureKind::Float:
        value.real = arv_gc_float_get_value(ARV_GC_FLOAT(node), error);
        break;
    case FeatureKind::Boolean:
        value.integer = arv_gc_boolean_get_value(ARV_GC_BOOLEAN(node), error);
        break;
    case FeatureKind::Enumeration: {
        value.integer = arv_gc_enumeration_get_int_value(ARV_GC_ENUMERATION(node), error);
        auto const entry = std::find_if(info.entries.begin(), info.entries.end(),
                                        [&value](auto const &one) { return one.value == value.integer; });
        if (entry != info.entries.end())
            value.text = entry->name;
        else
            state.valueStatus = TOV_CAM_ERR_GENICAM_OUT_OF_RANGE;
        break;
    }
    case FeatureKind::String:
        state.valueStatus = ReadText(node, &value.text);
        break;
    case FeatureKind::Register:
        state.valueStatus = ReadRegister(node, &state.length, &value.text);
        break;
    default:
        break;
    }
    if (std::int32_t const status = error.Status(); status != TOV_CAM_ERR_OK)
        state.valueStatus = status;
    if (state.valueStatus != TOV_CAM_ERR_OK && info.kind != FeatureKind::Enumeration)
        value = {};
}

std::int32_t ReadCommandDone(ArvGcFeatureNode *node, bool *done)
{
    *done = true;
    ArvGcNode *target = nullptr;
    ErrorSlot commandError, valueError;
    gint64 command = 0;
    ForProperties(ARV_DOM_NODE(node), [&](ArvGcPropertyNode *property, ArvGcPropertyNodeType type) {
        switch (type) {
        case ARV_GC_PROPERTY_NODE_TYPE_P_VALUE:
            target = arv_gc_property_node_get_linked_node(property);
            break;
        case ARV_GC_PROPERTY_NODE_TYPE_COMMAND_VALUE:
        case ARV_GC_PROPERTY_NODE_TYPE_P_COMMAND_VALUE:
            if (commandError.Status() == TOV_CAM_ERR_OK)
                command = arv_gc_property_node_get_int64(property, commandError);
            break;
        default:
            break;
        }
    });
    if (!ARV_IS_GC_INTEGER(target) || CheckReadable(ARV_GC_FEATURE_NODE(target)) != TOV_CAM_ERR_OK)
        return TOV_CAM_ERR_OK;
    gint64 const value = arv_gc_integer_get_value(ARV_GC_INTEGER(target), valueError);
    std::int32_t const status = valueError.Status() != TOV_CAM_ERR_OK ? valueError.Status() : commandError.Status();
    *done = status != TOV_CAM_ERR_OK || value != command;
    return status;
}
