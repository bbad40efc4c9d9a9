#include "streamframe.h"

#include "genicam/genicamerror.h"
#include "genicam/guardedgenicam.h"
#include "tovmisc.h"

#include <algorithm>
#include <cstring>
#include <limits>

std::int32_t ReadStreamFormat(ArvDevice *device, std::endian chunkOrder, StreamFormat &format)
{
    auto const read = [device](char const *name, std::uint64_t limit, auto &value) {
        ErrorSlot error;
        gint64 const number = ReadGuardedInteger(device, name, error);
        if (error.Status() != TOV_CAM_ERR_OK)
            return error.Status();
        if (number <= 0 || static_cast<std::uint64_t>(number) > limit)
            return static_cast<std::int32_t>(TOV_CAM_ERR_GENICAM_OUT_OF_RANGE);
        value = static_cast<std::remove_reference_t<decltype(value)>>(number);
        return static_cast<std::int32_t>(TOV_CAM_ERR_OK);
    };
    format = {};
    StreamShape &shape = format.shape;
    std::int32_t status = read("Width", 0xFFFFFF, shape.width);
    if (status == TOV_CAM_ERR_OK)
        status = read("Height", 0xFFFFFF, shape.height);
    if (status == TOV_CAM_ERR_OK)
        status = read("PixelFormat", 0xFFFFFFFF, shape.pfnc);
    if (status == TOV_CAM_ERR_OK)
        status = read("PayloadSize", StreamFrameLimit, format.payload);
    if (status != TOV_CAM_ERR_OK)
        return status;
    if (read("GevTimestampTickFrequency", std::numeric_limits<std::int64_t>::max(), format.tickFrequency) !=
        TOV_CAM_ERR_OK)
        format.tickFrequency = 0;
    format.info = TovGetPixelTypeInfoByPfnc(shape.pfnc);
    // Frames that nobody can read are of no use: better to say so than to show nothing.
    if (!format.info || TovLineBytes(format.info->pixelType, shape.width) * shape.height > StreamFrameLimit)
        return TOV_CAM_ERR_GENICAM_OUT_OF_RANGE;
    format.chunkFacts = ChunkFacts::Find(device, chunkOrder);
    return TOV_CAM_ERR_OK;
}

bool StreamFrame::Make(StreamFormat const &format)
{
    StreamShape const &shape = format.shape;
    TovPixelTypeInfo const &info = *format.info;
    std::size_t const imageSize =
        std::size_t(TovLineBytes(info.pixelType, shape.width) + shape.linePadding) * shape.height;
    // A line of 16-bit samples may be read past the pixels.
    std::size_t const size = std::max(format.payload, imageSize) + std::size_t(shape.width) * 2;
    m_memory = static_cast<std::uint8_t *>(TovAllocFrameMemory(size));
    if (!m_memory)
        return false;
    std::memset(m_memory + format.payload, 0, size - format.payload);
    if (!TovSucceeded(TovCreateImageHeader(&m_image, {shape.width, shape.height}, info.pixelType, 0, m_memory)))
        return false;
    m_payload = format.payload;
    m_room = size;
    m_chunkFacts = format.chunkFacts;
    return SetShape(shape, info);
}

StreamFrame::~StreamFrame()
{
    TovReleaseImageHeader(&m_image);
    TovFreeFrameMemory(m_memory);
}

bool StreamFrame::SetShape(StreamShape const &shape, TovPixelTypeInfo const &info, std::size_t offset)
{
    std::uint64_t const step = TovLineBytes(info.pixelType, shape.width) + shape.linePadding;
    if (shape.width == 0 || shape.height == 0 || step > StreamFrameLimit || shape.height > StreamFrameLimit ||
        offset > m_room || step * shape.height + std::uint64_t(shape.width) * 2 > m_room - offset)
        return false;
    m_image->pixelType = info.pixelType;
    m_image->bitDepth = info.bitDepth;
    m_image->formatClass = info.formatClass;
    m_image->bitsPerPixel = info.bitsPerPixel;
    m_image->width = shape.width;
    m_image->height = shape.height;
    m_image->lineStep = step;
    m_image->imageSize = static_cast<std::uint32_t>(step * shape.height);
    m_image->imageData = m_memory + offset;
    m_shape = shape;
    return true;
}

bool StreamFrame::Describe(StreamShape const &shape, std::size_t offset, StreamFormat const &announced)
{
    if (shape == m_shape && m_image->imageData == m_memory + offset)
        return true;
    TovPixelTypeInfo const *const info = TovGetPixelTypeInfoByPfnc(shape.pfnc);
    if (info && SetShape(shape, *info, offset))
        return true;
    SetShape(announced.shape, *announced.info);
    return false;
}
