// A camera's node map with harmless formulas.
//
// With the device's lock held. Nothing may evaluate features through arv_device_get_genicam, nor through the functions
// of ArvDevice that use it, unless the device HasGuardedFormulas: Aravis' own devices have a node map of the
// description as the camera sent it.
#pragma once

#include <arv.h>

// The device's only one, made from its description at the first call; the device keeps it. Null with
// TOV_CAM_ERR_GENICAM_TREE where the description is missing or cannot be used.
ArvGc *GetGuardedGenicam(ArvDevice *device, gint32 *status);
// Of an integer, or the number behind an enumeration's entry; 0 and an error where there is none.
gint64 ReadGuardedInteger(ArvDevice *device, char const *name, GError **error);
