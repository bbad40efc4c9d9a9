#include "featurescale.h"

#include <algorithm>
#include <cmath>

using namespace TovCam;

namespace TovGui {

namespace {

constexpr double SliderWidth = 4294967296.0; // a wider range of integers gets no slider
constexpr double SliderRealWidth = 1e12;

// From the smallest value, as the camera may use all 64 bits.
std::uint64_t Offset(std::int64_t value, std::int64_t minimum)
{
    return static_cast<std::uint64_t>(value) - static_cast<std::uint64_t>(minimum);
}

std::int64_t ClampInteger(FeatureState const &state, std::int64_t value)
{
    if (state.minimum > state.maximum)
        return value; // no sensible range: the camera will judge
    value = std::clamp(value, state.minimum, state.maximum);
    if (state.increment <= 1)
        return value;
    auto const increment = static_cast<std::uint64_t>(state.increment);
    std::uint64_t const offset = Offset(value, state.minimum);
    std::uint64_t steps = offset / increment;
    std::uint64_t const span = Offset(state.maximum, state.minimum);
    if (offset % increment >= increment - increment / 2 && steps < span / increment)
        ++steps;
    return static_cast<std::int64_t>(static_cast<std::uint64_t>(state.minimum) + steps * increment);
}

double ClampReal(FeatureState const &state, double value)
{
    if (!(state.realMinimum <= state.realMaximum))
        return value;
    value = std::clamp(value, state.realMinimum, state.realMaximum);
    if (state.realIncrement > 0.0 && std::isfinite(state.realMinimum)) {
        double const steps = std::round((value - state.realMinimum) / state.realIncrement);
        double const stepped = state.realMinimum + steps * state.realIncrement;
        // A value on a step stays as it was typed, without the arithmetic's rounding.
        if (std::isfinite(stepped) && std::abs(stepped - value) > state.realIncrement * 1e-6)
            value = stepped > state.realMaximum ? stepped - state.realIncrement : stepped;
    }
    return value;
}

double Number(FeatureInfo const &info, FeatureValue const &value)
{
    return info.kind == FeatureKind::Integer ? static_cast<double>(value.integer) : value.real;
}

FeatureValue NumberValue(FeatureInfo const &info, FeatureState const &state, double number)
{
    FeatureValue value;
    if (info.kind == FeatureKind::Float)
        value.real = ClampReal(state, number);
    else if (number >= 9.2233720368547e18 || number <= -9.2233720368547e18)
        value.integer = ClampInteger(state, number > 0 ? INT64_MAX : INT64_MIN);
    else
        value.integer = ClampInteger(state, std::llround(number));
    return value;
}

// The unit of a logarithmic scale that begins at zero or below.
double LogUnit(FeatureInfo const &info, FeatureState const &state)
{
    if (info.kind == FeatureKind::Integer)
        return 1.0;
    return state.realIncrement > 0.0 && std::isfinite(state.realIncrement)
               ? state.realIncrement
               : (state.realMaximum - state.realMinimum) * 1e-6;
}

} // namespace

double FeatureScale::Minimum(FeatureInfo const &info, FeatureState const &state)
{
    return info.kind == FeatureKind::Integer ? static_cast<double>(state.minimum) : state.realMinimum;
}

double FeatureScale::Maximum(FeatureInfo const &info, FeatureState const &state)
{
    return info.kind == FeatureKind::Integer ? static_cast<double>(state.maximum) : state.realMaximum;
}

FeatureEditing FeatureScale::EditingOf(FeatureInfo const &info, FeatureState const &state)
{
    switch (info.kind) {
    case FeatureKind::Integer:
        switch (info.representation) {
        case FeatureRepresentation::Boolean:
            return FeatureEditing::Check;
        case FeatureRepresentation::IPV4:
        case FeatureRepresentation::MAC:
            return FeatureEditing::Text;
        default:
            break;
        }
        [[fallthrough]];
    case FeatureKind::Float: {
        double const width = Maximum(info, state) - Minimum(info, state);
        bool const scaled = info.representation == FeatureRepresentation::Linear ||
                            info.representation == FeatureRepresentation::Logarithmic;
        double const limit = info.kind == FeatureKind::Integer ? SliderWidth : SliderRealWidth;
        return scaled && width > 0.0 && width <= limit ? FeatureEditing::Slider : FeatureEditing::Spin;
    }
    case FeatureKind::Boolean:
        return FeatureEditing::Check;
    case FeatureKind::Enumeration:
        return FeatureEditing::Choice;
    case FeatureKind::String:
        return FeatureEditing::Text;
    case FeatureKind::Command:
        return FeatureEditing::Button;
    case FeatureKind::Register:
        return FeatureEditing::Bytes;
    case FeatureKind::Category:
        break;
    }
    return FeatureEditing::None;
}

FeatureValue FeatureScale::Clamped(FeatureInfo const &info, FeatureState const &state, FeatureValue value)
{
    value.integer = info.kind == FeatureKind::Integer ? ClampInteger(state, value.integer) : value.integer;
    value.real = info.kind == FeatureKind::Float ? ClampReal(state, value.real) : value.real;
    return value;
}

FeatureValue FeatureScale::Stepped(FeatureInfo const &info, FeatureState const &state, FeatureValue const &value,
                                   int steps)
{
    FeatureValue stepped;
    if (info.kind == FeatureKind::Integer) {
        __int128 const wide = static_cast<__int128>(value.integer) +
                              static_cast<__int128>(steps) * std::max<std::int64_t>(state.increment, 1);
        stepped.integer = static_cast<std::int64_t>(std::clamp<__int128>(wide, INT64_MIN, INT64_MAX));
    } else {
        double const width = state.realMaximum - state.realMinimum;
        bool const hasIncrement = state.realIncrement > 0.0 && std::isfinite(state.realIncrement);
        double const unit = hasIncrement                              ? state.realIncrement
                            : width > 0.0 && width <= SliderRealWidth ? width / 100
                                                                      : 1.0;
        bool const factor =
            info.representation == FeatureRepresentation::Logarithmic && state.realIncrement <= 0.0 && value.real > 0.0;
        stepped.real = factor ? value.real * std::pow(1.05, steps) : value.real + steps * unit;
    }
    return Clamped(info, state, stepped);
}

double FeatureScale::PositionOf(FeatureInfo const &info, FeatureState const &state, FeatureValue const &value)
{
    double const low = Minimum(info, state), high = Maximum(info, state);
    if (!(high > low) || !std::isfinite(high - low) || std::isnan(Number(info, value)))
        return 0.0;
    double const number = std::clamp(Number(info, value), low, high);
    if (info.representation != FeatureRepresentation::Logarithmic)
        return (number - low) / (high - low);
    if (low > 0.0)
        return std::log(number / low) / std::log(high / low);
    double const unit = LogUnit(info, state);
    return std::log1p((number - low) / unit) / std::log1p((high - low) / unit);
}

FeatureValue FeatureScale::ValueAt(FeatureInfo const &info, FeatureState const &state, double position)
{
    double const low = Minimum(info, state), high = Maximum(info, state);
    if (position <= 0.0 || !(high > low))
        return NumberValue(info, state, low);
    if (position >= 1.0)
        return NumberValue(info, state, high);
    double number = low + position * (high - low);
    if (info.representation == FeatureRepresentation::Logarithmic) {
        double const unit = LogUnit(info, state);
        number = low > 0.0 ? low * std::pow(high / low, position)
                           : low + unit * std::expm1(position * std::log1p((high - low) / unit));
    }
    if (info.kind == FeatureKind::Float && state.realIncrement <= 0.0) {
        // No more digits than the slider has places.
        double const size = std::max(std::min(std::abs(number), high - low), 1e-12);
        double const digit = std::pow(10.0, std::floor(std::log10(size)) - 3);
        number = std::round(number / digit) * digit;
    }
    return NumberValue(info, state, number);
}

} // namespace TovGui
