#include "cameraerrortext.h"

#include "tovcamera.h"

#include <QCoreApplication>

#include <algorithm>
#include <iterator>
#include <utility>

namespace {

constexpr std::pair<std::int32_t, char const *> Texts[] = {
    {TOV_CAM_ERR_OK, QT_TRANSLATE_NOOP("CameraErrorText", "OK")},
    {TOV_CAM_ERR_UNKNOWN, QT_TRANSLATE_NOOP("CameraErrorText", "Unknown error")},
    {TOV_CAM_ERR_FILE_NOT_FOUND, QT_TRANSLATE_NOOP("CameraErrorText", "File not found")},
    {TOV_CAM_ERR_FILE_READ, QT_TRANSLATE_NOOP("CameraErrorText", "File read error")},
    {TOV_CAM_ERR_WRONG_CONFIGURATION, QT_TRANSLATE_NOOP("CameraErrorText", "Wrong configuration")},
    {TOV_CAM_ERR_INVALID_INDEX, QT_TRANSLATE_NOOP("CameraErrorText", "Invalid index")},
    {TOV_CAM_ERR_NO_DEVICE, QT_TRANSLATE_NOOP("CameraErrorText", "No device")},
    {TOV_CAM_ERR_INVALID_ARGUMENT, QT_TRANSLATE_NOOP("CameraErrorText", "Invalid argument")},
    {TOV_CAM_ERR_INVALID_STATE, QT_TRANSLATE_NOOP("CameraErrorText", "Invalid state")},
    {TOV_CAM_ERR_FLASH_ERASE, QT_TRANSLATE_NOOP("CameraErrorText", "Flash erase error")},
    {TOV_CAM_ERR_GENICAM_GENERIC, QT_TRANSLATE_NOOP("CameraErrorText", "GenICam: Generic error")},
    {TOV_CAM_ERR_GENICAM_TREE, QT_TRANSLATE_NOOP("CameraErrorText", "GenICam: Tree error")},
    {TOV_CAM_ERR_GENICAM_ACCESS, QT_TRANSLATE_NOOP("CameraErrorText", "GenICam: Access error")},
    {TOV_CAM_ERR_GENICAM_PARAM_TYPE, QT_TRANSLATE_NOOP("CameraErrorText", "GenICam: Parameter type is invalid")},
    {TOV_CAM_ERR_GENICAM_OUT_OF_RANGE, QT_TRANSLATE_NOOP("CameraErrorText", "GenICam: Parameter is out of range")},
    {TOV_CAM_ERR_GENICAM_UNKNOWN_PARAM, QT_TRANSLATE_NOOP("CameraErrorText", "GenICam: Unknown param")},
    {TOV_CAM_ERR_GENICAM_INVALID_ARGUMENT, QT_TRANSLATE_NOOP("CameraErrorText", "GenICam: Invalid argument")},
};

} // namespace

QString CameraErrorText(std::int32_t error)
{
    auto const found =
        std::find_if(std::begin(Texts), std::end(Texts), [error](auto const &text) { return text.first == error; });
    return QCoreApplication::translate("CameraErrorText", found != std::end(Texts)
                                                              ? found->second
                                                              : QT_TRANSLATE_NOOP("CameraErrorText", "Unknown code"));
}
