#include "reference.h"

#include <gtest/gtest.h>

namespace {

// The reference as well.
TEST(Unpack, PackedFormsByTheLetter)
{
    struct
    {
        char const *type;
        std::vector<std::uint8_t> bytes;
        std::vector<std::uint16_t> samples;
    } const forms[] = {
        {"Mono12Packed", {0x12, 0xC3, 0xAB}, {0x123, 0xABC}},
        {"Mono10Packed", {0x48, 0x23, 0xFF}, {0x123, 0x3FE}},
        {"Mono12p", {0x23, 0xC1, 0xAB}, {0x123, 0xABC}},
        {"Mono10p", {0x23, 0xF9, 0x0F, 0x40, 0x80}, {0x123, 0x3FE, 0x000, 0x201}},
        {"Mono12_WEftPacked", {0x12, 0x3A, 0xBC}, {0x123, 0xABC}},
    };
    for (auto const &form : forms) {
        std::vector<std::uint16_t> samples(form.samples.size());
        TovUnpackLine(TypeOf(form.type), form.bytes.data(), std::uint32_t(samples.size()), samples.data());
        EXPECT_EQ(samples, form.samples) << form.type;
    }
}

} // namespace
