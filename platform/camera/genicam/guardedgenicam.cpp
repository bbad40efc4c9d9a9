#include "guardedgenicam.h"

#include "formulaguard.h"
#include "registerdevice.h"
#include "xmlcheck.h"

#include "tovcamera.h"

namespace {

GQuark Quark()
{
    static GQuark const quark = g_quark_from_static_string("tov-guarded-genicam");
    return quark;
}

// A reference, or null.
ArvGc *Make(ArvDevice *device)
{
    size_t size = 0;
    char const *const xml = arv_device_get_genicam_xml(device, &size);
    if (!xml || CheckGenicamXml(xml, size) != TOV_CAM_ERR_OK)
        return nullptr;
    if (HasGuardedFormulas(device)) {
        ArvGc *const genicam = arv_device_get_genicam(device);
        return ARV_IS_GC(genicam) ? ARV_GC(g_object_ref(genicam)) : nullptr;
    }
    std::string guarded;
    if (GuardFormulas({xml, size}, &guarded) != TOV_CAM_ERR_OK)
        return nullptr;
    ArvGc *const genicam = arv_gc_new(device, guarded.data(), guarded.size());
    return ARV_IS_GC(genicam) ? genicam : nullptr;
}

} // namespace

ArvGc *GetGuardedGenicam(ArvDevice *device, gint32 *status)
{
    auto *genicam = static_cast<ArvGc *>(g_object_get_qdata(G_OBJECT(device), Quark()));
    if (!genicam && (genicam = Make(device))) {
        arv_gc_set_range_check_policy(genicam, ARV_RANGE_CHECK_POLICY_ENABLE);
        arv_gc_set_access_check_policy(genicam, ARV_ACCESS_CHECK_POLICY_ENABLE);
        // Not every camera has it, and nobody starts without.
        arv_gc_set_default_node_data(genicam, "TLParamsLocked",
                                     "<Integer Name=\"TLParamsLocked\"><Visibility>Invisible</Visibility>"
                                     "<Value>0</Value><Min>0</Min><Max>1</Max></Integer>",
                                     nullptr);
        g_object_set_qdata_full(G_OBJECT(device), Quark(), genicam, g_object_unref);
    }
    if (status)
        *status = genicam ? TOV_CAM_ERR_OK : TOV_CAM_ERR_GENICAM_TREE;
    return genicam;
}

gint64 ReadGuardedInteger(ArvDevice *device, char const *name, GError **error)
{
    ArvGc *const genicam = GetGuardedGenicam(device, nullptr);
    ArvGcNode *const node = genicam ? arv_gc_get_node(genicam, name) : nullptr;
    if (ARV_IS_GC_INTEGER(node))
        return arv_gc_integer_get_value(ARV_GC_INTEGER(node), error);
    g_set_error(error, ARV_DEVICE_ERROR, ARV_DEVICE_ERROR_FEATURE_NOT_FOUND, "[%s] Not found", name);
    return 0;
}
