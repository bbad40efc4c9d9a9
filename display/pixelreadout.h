// The values of one pixel, as the operator reads them under the pointer.
#pragma once

struct _TovImage;

struct PixelValues
{
    // As in memory; -1 for what the image does not have. A monochrome pixel has green alone, and so does one of a
    // 16-bit mosaic.
    int r = -1;
    int g = -1;
    int b = -1;
};

// x and y lie in the image. Formats that are packed, and mosaics of 8 bits, have no values. The display thread may be
// writing the pixel: relaxed reads, like its stores. Any thread.
PixelValues ReadPixel(_TovImage const &image, int x, int y);
