#include "nodeaccess.h"

std::optional<TovCam::FeatureKind> KindOf(ArvGcNode *node)
{
    if (ARV_IS_GC_CATEGORY(node))
        return TovCam::FeatureKind::Category;
    // Enumerations and booleans answer as integers too, so they come first.
    if (ARV_IS_GC_ENUMERATION(node))
        return TovCam::FeatureKind::Enumeration;
    if (ARV_IS_GC_BOOLEAN(node))
        return TovCam::FeatureKind::Boolean;
    if (ARV_IS_GC_COMMAND(node))
        return TovCam::FeatureKind::Command;
    if (ARV_IS_GC_INTEGER(node))
        return TovCam::FeatureKind::Integer;
    if (ARV_IS_GC_FLOAT(node))
        return TovCam::FeatureKind::Float;
    if (ARV_IS_GC_STRING(node))
        return TovCam::FeatureKind::String;
    if (ARV_IS_GC_REGISTER(node))
        return TovCam::FeatureKind::Register;
    return std::nullopt;
}

ArvGcPropertyNode *PropertyOf(ArvGcNode *node, ArvGcPropertyNodeType type)
{
    ArvGcPropertyNode *found = nullptr;
    ForProperties(ARV_DOM_NODE(node), [&](ArvGcPropertyNode *property, ArvGcPropertyNodeType one) {
        if (one == type)
            found = property;
    });
    return found;
}

ArvGcNode *LinkOf(ArvGcNode *node, ArvGcPropertyNodeType link)
{
    ArvGcPropertyNode *const property = PropertyOf(node, link);
    return property ? arv_gc_property_node_get_linked_node(property) : nullptr;
}

std::string ContentOf(ArvGcPropertyNode *property)
{
    char const *const text = arv_gc_property_node_get_string(property, nullptr);
    return text ? text : "";
}

namespace {

// Whether the value comes with the frames, in their chunk data, and the camera's memory does not have it.
bool IsInChunks(ArvGcNode *node)
{
    constexpr int LongestWay = 10; // from a feature to its register
    for (int i = 0; node && i < LongestWay; ++i) {
        if (ArvGcNode *const port = LinkOf(node, ARV_GC_PROPERTY_NODE_TYPE_P_PORT))
            return PropertyOf(port, ARV_GC_PROPERTY_NODE_TYPE_CHUNK_ID) != nullptr;
        node = LinkOf(node, ARV_GC_PROPERTY_NODE_TYPE_P_VALUE);
    }
    return false;
}

// The way to a register is the same all the time, so it is gone once.
bool IsAvailable(ArvGcFeatureNode *node, ErrorSlot &error)
{
    static GQuark const known = g_quark_from_static_string("tov-in-chunks");
    enum { Unknown, InMemory, InChunks };
    gpointer place = g_object_get_qdata(G_OBJECT(node), known);
    if (GPOINTER_TO_INT(place) == Unknown) {
        place = GINT_TO_POINTER(IsInChunks(ARV_GC_NODE(node)) ? InChunks : InMemory);
        g_object_set_qdata(G_OBJECT(node), known, place);
    }
    return GPOINTER_TO_INT(place) == InMemory && arv_gc_feature_node_is_available(node, error);
}

std::int32_t CheckAvailable(ArvGcFeatureNode *node)
{
    ErrorSlot error;
    bool const available = IsAvailable(node, error);
    if (error.Status() != TOV_CAM_ERR_OK)
        return error.Status();
    return available ? TOV_CAM_ERR_OK : TOV_CAM_ERR_GENICAM_ACCESS;
}

} // namespace

std::int32_t CheckReadable(ArvGcFeatureNode *node)
{
    if (std::int32_t const status = CheckAvailable(node); status != TOV_CAM_ERR_OK)
        return status;
    return arv_gc_feature_node_get_actual_access_mode(node) == ARV_GC_ACCESS_MODE_WO ? TOV_CAM_ERR_GENICAM_ACCESS
                                                                                     : TOV_CAM_ERR_OK;
}

std::int32_t CheckWritable(ArvGcFeatureNode *node)
{
    if (std::int32_t const status = CheckAvailable(node); status != TOV_CAM_ERR_OK)
        return status;
    ErrorSlot error;
    bool const locked = arv_gc_feature_node_is_locked(node, error);
    if (error.Status() != TOV_CAM_ERR_OK)
        return error.Status();
    if (locked || arv_gc_feature_node_get_actual_access_mode(node) == ARV_GC_ACCESS_MODE_RO)
        return TOV_CAM_ERR_GENICAM_ACCESS;
    return TOV_CAM_ERR_OK;
}

std::int32_t CheckEntry(ArvGcFeatureNode *entry)
{
    ErrorSlot implementedError, availableError;
    bool const offered = arv_gc_feature_node_is_implemented(entry, implementedError) &&
                         arv_gc_feature_node_is_available(entry, availableError);
    for (std::int32_t const status : {implementedError.Status(), availableError.Status()}) {
        if (status != TOV_CAM_ERR_OK)
            return status;
    }
    return offered ? TOV_CAM_ERR_OK : TOV_CAM_ERR_GENICAM_ACCESS;
}

std::int32_t ReadRole(ArvGcFeatureNode *node, FeatureRole *role)
{
    *role = {};
    ErrorSlot implemented, available, locked;
    role->implemented = arv_gc_feature_node_is_implemented(node, implemented);
    if (implemented.Status() != TOV_CAM_ERR_OK || !role->implemented)
        return implemented.Status();
    role->available = IsAvailable(node, available);
    if (available.Status() != TOV_CAM_ERR_OK || !role->available)
        return available.Status();
    role->locked = arv_gc_feature_node_is_locked(node, locked);
    role->writable = arv_gc_feature_node_get_actual_access_mode(node) != ARV_GC_ACCESS_MODE_RO;
    return locked.Status();
}
