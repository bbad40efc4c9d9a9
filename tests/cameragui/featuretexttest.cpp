#include "featuretext.h"
#include "featurescale.h"
#include "featureviewstate.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <limits>

using namespace TovGui;
using namespace TovCam;

namespace {

struct ParseCase
{
    FeatureKind kind;
    FeatureRepresentation representation;
    double minimum, maximum, increment;
    char const *typed;
    char const *taken; // null: refused
    bool hint;
};

using FeatureParseTest = testing::TestWithParam<ParseCase>;

TEST_P(FeatureParseTest, TakesClampsOrRefusesWithAHint)
{
    ParseCase const &c = GetParam();
    FeatureInfo info;
    info.kind = c.kind;
    info.representation = c.representation;
    info.unit = "us";
    FeatureState state;
    state.minimum = c.minimum <= -9e18 ? INT64_MIN : std::int64_t(c.minimum);
    state.maximum = c.maximum >= 9e18 ? INT64_MAX : std::int64_t(c.maximum);
    state.increment = std::int64_t(c.increment);
    state.realMinimum = c.minimum;
    state.realMaximum = c.maximum;
    state.realIncrement = c.increment;
    state.length = std::uint64_t(c.maximum);
    ParsedValue const parsed = FeatureText::Parse(info, state, QString::fromUtf8(c.typed));
    EXPECT_EQ(parsed.accepted, c.taken != nullptr) << parsed.hint.toStdString();
    if (c.taken) {
        EXPECT_EQ(FeatureText::Value(info, parsed.value).toStdString(), c.taken);
    }
    EXPECT_EQ(!parsed.hint.isEmpty(), c.hint) << parsed.hint.toStdString();
}

constexpr auto Int = FeatureKind::Integer, Real = FeatureKind::Float, Text = FeatureKind::String;
constexpr auto Pure = FeatureRepresentation::PureNumber, Hex = FeatureRepresentation::HexNumber,
               Ip = FeatureRepresentation::IPV4, Mac = FeatureRepresentation::MAC;

INSTANTIATE_TEST_SUITE_P(
    Values, FeatureParseTest,
    testing::Values(ParseCase{Int, Pure, 16, 2048, 16, " 640 us ", "640", false},
                    ParseCase{Int, Pure, 16, 2048, 16, "649", "656", true},
                    ParseCase{Int, Pure, 16, 2060, 16, "9999", "2048", true},
                    ParseCase{Int, Pure, 16, 2048, 16, "-99999999999999999999", "16", true},
                    ParseCase{Int, Pure, -1e19, 1e19, 1, "-9223372036854775808", "-9223372036854775808", false},
                    ParseCase{Int, Pure, 0, 10, 1, "1.5", nullptr, true},
                    ParseCase{Int, Pure, 10, 0, 1, "77", "77", false}, // a senseless range: the camera decides
                    ParseCase{Int, Hex, 0, 65535, 1, "1f", "0x1F", false},
                    ParseCase{Int, Hex, 0, 65535, 1, "12345", "0xFFFF", true},
                    ParseCase{Int, Hex, -1e19, 1e19, 1, "0xFFFFFFFFFFFFFFFF", "0xFFFFFFFFFFFFFFFF", false},
                    ParseCase{Int, Ip, 0, 4294967295.0, 1, "10.0.0.9", "10.0.0.9", false},
                    ParseCase{Int, Ip, 0, 4294967295.0, 1, "10.0.0.256", nullptr, true},
                    ParseCase{Int, Mac, 0, 281474976710655.0, 1, "00:1a:2b-3c:4d:5e", "00:1A:2B:3C:4D:5E", false},
                    ParseCase{Int, Mac, 0, 281474976710655.0, 1, "00:1a:2b", nullptr, true},
                    ParseCase{Real, Pure, 10, 1e6, 0, "12,5", "12.5", false},
                    ParseCase{Real, Pure, 10, 1e6, 0, "1e9", "1000000", true},
                    ParseCase{Real, Pure, 10, 1e6, 0, "nan", nullptr, true},
                    ParseCase{Real, Pure, 0, 1, 0.1, "0.3", "0.3", false},
                    ParseCase{Real, Pure, 0, 1, 0.25, "0.4", "0.5", true},
                    ParseCase{Text, Pure, 0, 4, 0, "\xC3\xA4\xC3\xB6", "\xC3\xA4\xC3\xB6", false},
                    ParseCase{Text, Pure, 0, 4, 0, "\xC3\xA4\xC3\xB6!", nullptr, true}));

// What a formula of the camera may come to.
TEST(FeatureSliderTest, WhatIsNoNumberFreezesNoEditor)
{
    constexpr double Inf = std::numeric_limits<double>::infinity(), NaN = std::numeric_limits<double>::quiet_NaN();
    FeatureInfo info;
    info.kind = Real;
    for (auto const &[minimum, maximum, increment] : std::initializer_list<std::array<double, 3>>{
             {NaN, NaN, NaN}, {-Inf, Inf, Inf}, {-1e308, 1e308, 1e-300}, {0, 1e12, Inf}, {Inf, -Inf, -1}}) {
        for (auto const representation : {FeatureRepresentation::Linear, FeatureRepresentation::Logarithmic}) {
            SCOPED_TRACE(testing::Message() << minimum << ' ' << maximum << ' ' << increment);
            info.representation = representation;
            FeatureState state;
            state.realMinimum = minimum;
            state.realMaximum = maximum;
            state.realIncrement = increment;
            for (double const number : {NaN, Inf, -Inf, 1e308, 12.5}) {
                FeatureValue value;
                value.real = number;
                double const position = FeatureScale::PositionOf(info, state, value);
                EXPECT_TRUE(position >= 0 && position <= 1) << number << ": " << position;
            }
            ParsedValue const typed = FeatureText::Parse(info, state, QStringLiteral("12.5"));
            EXPECT_TRUE(typed.accepted);
            EXPECT_TRUE(std::isfinite(FeatureScale::Stepped(info, state, typed.value, 1).real));
            if (FeatureScale::EditingOf(info, state) == FeatureEditing::Slider) {
                EXPECT_TRUE(std::isfinite(FeatureScale::ValueAt(info, state, 0.5).real));
            }
        }
    }
}

TEST(FeatureSliderTest, PlacesAndValuesAgreeOnEveryScale)
{
    struct
    {
        FeatureKind kind;
        FeatureRepresentation representation;
        double minimum, maximum, increment, middle;
    } const cases[] = {
        {Int, FeatureRepresentation::Linear, 0, 48, 1, 24},
        {Int, FeatureRepresentation::Linear, 16, 2048, 16, 1040},
        {Int, FeatureRepresentation::Logarithmic, 1, 10000, 1, 100},
        {Int, FeatureRepresentation::Logarithmic, 0, 9999, 1, 99},
        {Real, FeatureRepresentation::Linear, -1, 1, 0, 0},
        {Real, FeatureRepresentation::Logarithmic, 10, 1e6, 0, 3162},
    };
    for (auto const &c : cases) {
        FeatureInfo info;
        info.kind = c.kind;
        info.representation = c.representation;
        FeatureState state;
        state.minimum = std::int64_t(state.realMinimum = c.minimum);
        state.maximum = std::int64_t(state.realMaximum = c.maximum);
        state.increment = std::int64_t(state.realIncrement = c.increment);
        auto const at = [&](double position) {
            FeatureValue const value = FeatureScale::ValueAt(info, state, position);
            return c.kind == Int ? double(value.integer) : value.real;
        };
        EXPECT_EQ(FeatureScale::EditingOf(info, state), FeatureEditing::Slider);
        EXPECT_EQ(at(0.0), c.minimum);
        EXPECT_EQ(at(1.0), c.maximum);
        EXPECT_NEAR(at(0.5), c.middle, 0.5) << c.minimum << " to " << c.maximum;
        FeatureValue const value = FeatureScale::ValueAt(info, state, 0.5);
        EXPECT_NEAR(FeatureScale::PositionOf(info, state, value), 0.5, 0.02);
        FeatureValue const next = FeatureScale::Stepped(info, state, value, 1);
        EXPECT_GT(FeatureScale::PositionOf(info, state, next), FeatureScale::PositionOf(info, state, value));
    }
}

} // namespace
