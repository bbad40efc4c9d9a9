// Differences between the releases of Aravis that this program is built with: 0.8.20 (Ubuntu 22.04), 0.8.26 (Debian
// 12), 0.8.34 (Debian 13), 0.8.36 (Debian testing). Nothing else asks for the version.
#pragma once

#include <arv.h>

#include <cstdint>
#include <optional>

template<typename Data>
Data DataWritten(gboolean (*)(ArvDevice *, guint64, guint32, Data, GError **));

// The data that an ArvDeviceClass::write_memory is given: `void *` in the older ones, `const void *` in 0.8.34.
using ArvWrittenData = decltype(DataWritten(ArvDeviceClass::write_memory));

// An image in a buffer: pixels and bytes behind each line. `data` is null where the image begins with the buffer.
struct ArvBufferImage
{
    gint width, height, linePadding;
    ArvPixelFormat format;
    std::uint8_t const *data;
};

// The first image of a whole buffer, nothing when the buffer does not say. Before 0.8.23 a buffer has no parts, and
// describes images alone, without their padding.
inline std::optional<ArvBufferImage> FirstImageOf(ArvBuffer *buffer)
{
    gint x, y;
    ArvBufferImage image{};
#if ARAVIS_CHECK_VERSION(0, 8, 23)
    guint part = 0;
    guint const parts = arv_buffer_get_n_parts(buffer);
    while (part < parts && arv_buffer_get_part_data_type(buffer, part) != ARV_BUFFER_PART_DATA_TYPE_2D_IMAGE)
        ++part;
    if (part == parts)
        return std::nullopt;
    gint yPadding;
    arv_buffer_get_part_region(buffer, part, &x, &y, &image.width, &image.height);
    arv_buffer_get_part_padding(buffer, part, &image.linePadding, &yPadding);
    image.format = arv_buffer_get_part_pixel_format(buffer, part);
    if (parts > 1) {
        size_t size;
        image.data = static_cast<std::uint8_t const *>(arv_buffer_get_part_data(buffer, part, &size));
    }
#else
    if (arv_buffer_get_payload_type(buffer) != ARV_BUFFER_PAYLOAD_TYPE_IMAGE)
        return std::nullopt;
    arv_buffer_get_image_region(buffer, &x, &y, &image.width, &image.height);
    image.format = arv_buffer_get_image_pixel_format(buffer);
#endif
    return image;
}

// Whether a whole buffer is chunks, or ends with some. Before 0.8.23 those behind an image are not told from others.
inline bool HasChunks(ArvBuffer *buffer)
{
#if ARAVIS_CHECK_VERSION(0, 8, 23)
    return arv_buffer_has_chunks(buffer);
#else
    ArvBufferPayloadType const type = arv_buffer_get_payload_type(buffer);
    return type == ARV_BUFFER_PAYLOAD_TYPE_CHUNK_DATA || type == ARV_BUFFER_PAYLOAD_TYPE_EXTENDED_CHUNK_DATA;
#endif
}
