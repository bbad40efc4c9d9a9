#include "serializererrortext.h"

#include "tovserializer.h"

#include <QCoreApplication>

namespace {

QString Text(char const *text)
{
    return QCoreApplication::translate("SerializerErrorText", text);
}

} // namespace

QString SerializerErrorText(std::int32_t status)
{
    switch (status) {
    case TOV_SERIALIZER_ERR_ARGUMENT:
        return Text(QT_TRANSLATE_NOOP("SerializerErrorText", "the picture has changed its size or format"));
    case TOV_SERIALIZER_ERR_FORMAT:
        return Text(QT_TRANSLATE_NOOP("SerializerErrorText", "the file format cannot hold these pictures"));
    case TOV_SERIALIZER_ERR_STATE:
        return Text(QT_TRANSLATE_NOOP("SerializerErrorText", "the file could not be started"));
    case TOV_SERIALIZER_ERR_WRITE:
        return Text(QT_TRANSLATE_NOOP("SerializerErrorText", "the file system refuses it"));
    case TOV_SERIALIZER_ERR_MEMORY:
        return Text(QT_TRANSLATE_NOOP("SerializerErrorText", "not enough memory"));
    default:
        return Text(QT_TRANSLATE_NOOP("SerializerErrorText", "error %1")).arg(status);
    }
}
