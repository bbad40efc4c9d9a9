// Images: the header every frame carries, the pixel formats, allocation and conversion.
//
// Pixel memory is 64-byte aligned. Behind the last line there is room for one more line of 16-bit samples, zeroed, so
// that header arithmetic over packed data stays inside the allocation. Frame-sized memory is pooled.
//
// Threads: all functions may be called from any thread; one image is used by one thread at a time.
#pragma once

#include <cstddef>
#include <cstdint>

#if defined(TovImageApi_EXPORTS)
#define TOV_IMAGE_API __attribute__((visibility("default")))
#else
#define TOV_IMAGE_API
#endif

// A pixel type code: family in bits 31 to 24, bits a pixel takes in 23 to 16, packing and depth in 15 to 8, and the
// one-based row of the colour model table in 7 to 0. Any 32-bit value may arrive; these are the ones used by name.
enum TV_PIXEL_TYPE_DEFINES : std::uint32_t {
    TV_PIXEL_MONO8 = 0x01080101,
    TV_PIXEL_MONO10 = 0x01100202,
    TV_PIXEL_MONO12 = 0x01100306,
    TV_PIXEL_MONO16 = 0x0110050B,
    TV_PIXEL_RGB8 = 0x02180171,
    TV_PIXEL_BGR8 = 0x02180172,
    TV_PIXEL_RGBA8 = 0x02200173,
    TV_PIXEL_BGRA8 = 0x02200174,
    TV_PIXEL_RGB10 = 0x02300275,
    TV_PIXEL_RGB12 = 0x02300377,
    TV_PIXEL_RGB16 = 0x0230057B,
};

enum TovPixelFamily : std::uint32_t {
    TOV_FAMILY_MONO = 1,
    TOV_FAMILY_RGB = 2,
    TOV_FAMILY_BAYER = 3,
    TOV_FAMILY_TRUESENSE = 4,
    TOV_FAMILY_YUV = 5,
};

// Values of _TovImage::formatClass.
enum TovFormatClass : std::uint32_t {
    TOV_CLASS_8BIT = 0x100,
    TOV_CLASS_MONO_UNPACKED = 0x200,
    TOV_CLASS_BAYER_UNPACKED = 0x300,
    TOV_CLASS_PACKED = 0x400,
    TOV_CLASS_RGB = 0x500,
    TOV_CLASS_YUV = 0x600,
};

// Header of an image. Whoever makes the image fills it; others read it only.
struct _TovImage
{
    std::uint64_t header; // private to the image library
    std::uint32_t pixelType;
    std::uint32_t bitDepth; // significant bits of a sample
    std::uint32_t reserved1;
    std::uint32_t formatClass; // TovFormatClass
    std::uint32_t reserved2;
    std::uint32_t bitsPerPixel; // bits one pixel takes in memory
    std::uint32_t reserved3;
    std::uint32_t width;     // pixels per line
    std::uint32_t height;    // lines
    std::uint32_t imageSize; // bytes of the pixel data
    std::uint64_t lineStep;  // bytes from one line to the next
    std::uint64_t timestamp; // ticks of the device's clock
    std::uint64_t frameID;
    std::uint64_t reserved4;
    std::uint8_t *imageData; // first pixel; null in a header-only image
};

struct TovImageSize
{
    std::uint32_t width;
    std::uint32_t height;
};

// Status of the functions below: 0 in the low 16 bits is success, as in tovmisc.h.
enum TovImageError : unsigned long {
    TOV_IMAGE_OK = 0,
    TOV_IMAGE_ERR_ARGUMENT = 0x80000001, // null pointer, no pixels, an unknown pixel type
    TOV_IMAGE_ERR_MEMORY = 0x80000002,
    TOV_IMAGE_ERR_SHAPE = 0x80000003,       // the images' shapes differ
    TOV_IMAGE_ERR_UNSUPPORTED = 0x80000004, // no conversion between the two types
};

// Header and zeroed pixels. The line step is the bytes of a line, rounded up to whole bytes. Refused: a width or height
// of 0, and more bytes than imageSize can hold.
TOV_IMAGE_API unsigned long TovCreateImage(_TovImage **image, TovImageSize size, std::uint32_t pixelType);
// Header alone, or over memory of the caller's when `data` is given; a `lineStep` of 0 takes the packed one.
TOV_IMAGE_API unsigned long TovCreateImageHeader(_TovImage **image, TovImageSize size, std::uint32_t pixelType,
                                                 std::uint64_t lineStep = 0, void *data = nullptr);
// Pixels and fields, between images of one width, height and pixel type; the line steps may differ. What changes in the
// destination is stored by relaxed atomics, so that other threads may read it the same way meanwhile.
TOV_IMAGE_API unsigned long TovCopyImage(_TovImage *destination, _TovImage const *source);
// Either frees the header, and the pixels if the image owns them. Null and a pointer to null are ignored; an image that
// this library has not made is refused. The caller clears its pointer.
TOV_IMAGE_API unsigned long TovReleaseImage(_TovImage **image);
TOV_IMAGE_API unsigned long TovReleaseImageHeader(_TovImage **image);

// ---- For the other platform libraries, and the application's colour model table --------------------------------

enum TovBayerPhase : std::uint8_t { TOV_BAYER_NONE = 0, TOV_BAYER_GR, TOV_BAYER_RG, TOV_BAYER_GB, TOV_BAYER_BG };
enum TovPacking : std::uint8_t {
    TOV_UNPACKED = 0,   // whole bytes a sample
    TOV_PACKED_GEV = 1, // GigE Vision "Packed": two samples in three bytes
    TOV_PACKED_P = 2,   // PFNC "p": samples one after another, least significant bit first
    TOV_PACKED_WEFT = 3 // samples one after another, most significant bit first
};

// One row of the pixel format table.
struct TovPixelTypeInfo
{
    std::uint32_t pixelType;   // the code
    std::uint32_t pfnc;        // the standard's 32-bit code of the same layout, 0 where there is none
    char const *name;          // the format's own name, such as "Mono12Packed"
    char const *pfncName;      // the entry of GenICam's PixelFormat, null where there is none
    std::uint8_t family;       // TovPixelFamily
    std::uint8_t bitsPerPixel; // bits a pixel takes in memory
    std::uint8_t bitDepth;     // significant bits of a sample
    std::uint8_t channels;
    TovPacking packing;
    TovBayerPhase bayer;
    std::uint8_t mosaic;       // TrueSense: 0 BGGR, 1 GBRG, 2 GRBG, 3 RGGB
    std::uint8_t phase;        // TrueSense: 0 to 3
    std::uint32_t formatClass; // TovFormatClass
};

constexpr std::uint32_t TOV_PIXEL_TYPE_ROWS = 133;

// Null for an unknown code, row (0-based), or standard code.
TOV_IMAGE_API TovPixelTypeInfo const *TovGetPixelTypeInfo(std::uint32_t pixelType);
TOV_IMAGE_API TovPixelTypeInfo const *TovGetPixelTypeInfoByRow(std::uint32_t row);
TOV_IMAGE_API TovPixelTypeInfo const *TovGetPixelTypeInfoByPfnc(std::uint32_t pfnc);

// The colour of the filter before the pixel at (x, y) of a mosaic, 'R', 'G', 'B' or 'W'; 0 for every other format.
TOV_IMAGE_API char TovGetFilterColour(TovPixelTypeInfo const *info, std::uint32_t x, std::uint32_t y);

// Bytes of one line of packed pixels, rounded up to whole bytes; 0 for an unknown type.
TOV_IMAGE_API std::uint64_t TovLineBytes(std::uint32_t pixelType, std::uint32_t width);

// Converts pixels between types; shapes equal, destination allocated. Timestamp and frame id are taken over.
//
// Every type converts to RGB8, BGR8, RGBa8, BGRa8, to their 10, 12, 14 and 16-bit forms, and to Mono8 to Mono16; a
// mosaic also to an unpacked mosaic of the same filters. Samples change their depth by shifting: a 12-bit 0x123 becomes
// 0x1230 in 16 bits and 0x12 in 8. Grey from colour and colour from YUV go by ITU-R BT.601, full range. The source
// and destination may be parts of larger pictures: their lines are read and written to their last byte, not beyond.
// A part of a mosaic has to begin at an even column and line (TrueSense: at a multiple of four) to keep its colours.
// Bayer mosaics of a megapixel and more are shared among OpenCV's threads (cv::setNumThreads).
TOV_IMAGE_API unsigned long TovConvertImage(_TovImage *destination, _TovImage const *source);

// Samples that TovUnpackLine gives for a pixel: 1 for mono and mosaics, 2 for YUV 4:2:2, 3 and 4 for the others; 0 for
// an unknown type.
TOV_IMAGE_API std::uint32_t TovSamplesPerPixel(std::uint32_t pixelType);
// The raw samples of `width` pixels of one line, from pixel `first` on, in memory order, at their own depth and
// right-aligned. `line` is the first byte of the line; nothing behind the last pixel's byte is read. Returns false,
// writing nothing, for an unknown type.
TOV_IMAGE_API bool TovUnpackLine(std::uint32_t pixelType, void const *line, std::uint32_t width, std::uint16_t *samples,
                                 std::uint32_t first = 0);
// The same with the samples' upper eight bits, which costs half as much.
TOV_IMAGE_API bool TovUnpackLine8(std::uint32_t pixelType, void const *line, std::uint32_t width, std::uint8_t *samples,
                                  std::uint32_t first = 0);

// Frame-sized memory from a pool: aligned to 64 bytes, from 128 KB on to 4096; its contents undefined; null when there
// is none. Freed blocks are kept for the next request of about their size, up to a bound, since fresh pages of a large
// image cost more than any conversion. Any thread may free what another allocated.
TOV_IMAGE_API void *TovAllocFrameMemory(std::size_t size);
TOV_IMAGE_API void TovFreeFrameMemory(void *memory);
// The frame memory of an image of packed lines: the pixels and the room behind them. 0 for what TovCreateImage refuses.
TOV_IMAGE_API std::size_t TovFrameMemorySize(std::uint32_t pixelType, TovImageSize size);
