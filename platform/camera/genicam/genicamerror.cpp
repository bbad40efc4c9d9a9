#include "genicamerror.h"

std::int32_t StatusFromError(GError const *error)
{
    if (!error)
        return TOV_CAM_ERR_OK;
    if (error->domain == ARV_GC_ERROR) {
        switch (static_cast<ArvGcError>(error->code)) {
        case ARV_GC_ERROR_OUT_OF_RANGE:
            return TOV_CAM_ERR_GENICAM_OUT_OF_RANGE;
        case ARV_GC_ERROR_READ_ONLY:
            return TOV_CAM_ERR_GENICAM_ACCESS;
        case ARV_GC_ERROR_NODE_NOT_FOUND:
            return TOV_CAM_ERR_GENICAM_UNKNOWN_PARAM;
        case ARV_GC_ERROR_ENUM_ENTRY_NOT_FOUND:
        case ARV_GC_ERROR_INVALID_SYNTAX:
            return TOV_CAM_ERR_GENICAM_INVALID_ARGUMENT;
        case ARV_GC_ERROR_SET_FROM_STRING_UNDEFINED:
        case ARV_GC_ERROR_GET_AS_STRING_UNDEFINED:
            return TOV_CAM_ERR_GENICAM_PARAM_TYPE;
        case ARV_GC_ERROR_NO_DEVICE_SET:
            return TOV_CAM_ERR_NO_DEVICE;
        case ARV_GC_ERROR_PROPERTY_NOT_DEFINED:
        case ARV_GC_ERROR_PVALUE_NOT_DEFINED:
        case ARV_GC_ERROR_INVALID_PVALUE:
        case ARV_GC_ERROR_EMPTY_ENUMERATION:
        case ARV_GC_ERROR_NO_EVENT_IMPLEMENTATION:
        case ARV_GC_ERROR_INVALID_LENGTH:
        case ARV_GC_ERROR_INVALID_BIT_RANGE:
            return TOV_CAM_ERR_GENICAM_TREE;
        }
    } else if (error->domain == ARV_DEVICE_ERROR) {
        switch (static_cast<ArvDeviceError>(error->code)) {
        case ARV_DEVICE_ERROR_FEATURE_NOT_FOUND:
            return TOV_CAM_ERR_GENICAM_UNKNOWN_PARAM;
        case ARV_DEVICE_ERROR_WRONG_FEATURE:
            return TOV_CAM_ERR_GENICAM_PARAM_TYPE;
        case ARV_DEVICE_ERROR_NOT_CONNECTED:
        case ARV_DEVICE_ERROR_NOT_FOUND:
            return TOV_CAM_ERR_NO_DEVICE;
        case ARV_DEVICE_ERROR_GENICAM_NOT_FOUND:
            return TOV_CAM_ERR_GENICAM_TREE;
        case ARV_DEVICE_ERROR_NOT_CONTROLLER:
        case ARV_DEVICE_ERROR_PROTOCOL_ERROR_WRITE_PROTECT:
        case ARV_DEVICE_ERROR_PROTOCOL_ERROR_ACCESS_DENIED:
        case ARV_DEVICE_ERROR_PROTOCOL_ERROR_BUSY:
            return TOV_CAM_ERR_GENICAM_ACCESS;
        case ARV_DEVICE_ERROR_INVALID_PARAMETER:
        case ARV_DEVICE_ERROR_PROTOCOL_ERROR_INVALID_PARAMETER:
            return TOV_CAM_ERR_GENICAM_INVALID_ARGUMENT;
        default:
            break;
        }
    }
    return TOV_CAM_ERR_GENICAM_GENERIC;
}
