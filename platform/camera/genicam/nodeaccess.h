// What kind of feature a node of a description is, and what may be done with it now.
//
// Like all of ArvGc under the device's lock. Most of these calls ask the camera.
#pragma once

#include "genicamerror.h"

#include <optional>
#include <string>

constexpr guint64 MaxRegister = 1u << 20; // bytes; a correction table has some ten thousand

// A feature as a configuration file needs it.
struct FeatureRole
{
    bool implemented = false;
    bool available = false;
    bool locked = false;
    bool writable = false; // but for the lock
};

// Nothing for a node that is not a feature, such as a port.
std::optional<TovCam::FeatureKind> KindOf(ArvGcNode *node);

// 0 where the node can be read or written now, TOV_CAM_ERR_GENICAM_ACCESS where it cannot, or why that is not known.
// ArvGc's own access check knows neither availability nor locks.
std::int32_t CheckReadable(ArvGcFeatureNode *node);
std::int32_t CheckWritable(ArvGcFeatureNode *node);
// Likewise, where an entry of an enumeration can be chosen.
std::int32_t CheckEntry(ArvGcFeatureNode *entry);
// 0, or why only a part of the role is known.
std::int32_t ReadRole(ArvGcFeatureNode *node, FeatureRole *role);

// Calls `look` with each property of a node and its type, in the description's order.
template<class Look>
void ForProperties(ArvDomNode *node, Look look)
{
    for (ArvDomNode *child = arv_dom_node_get_first_child(node); child; child = arv_dom_node_get_next_sibling(child)) {
        if (ARV_IS_GC_PROPERTY_NODE(child))
            look(ARV_GC_PROPERTY_NODE(child), arv_gc_property_node_get_node_type(ARV_GC_PROPERTY_NODE(child)));
    }
}

// The last property of that type, null without one.
ArvGcPropertyNode *PropertyOf(ArvGcNode *node, ArvGcPropertyNodeType type);
// The node that this property names; null where there is none.
ArvGcNode *LinkOf(ArvGcNode *node, ArvGcPropertyNodeType link);
// What a property says, without a look at the camera.
std::string ContentOf(ArvGcPropertyNode *property);
