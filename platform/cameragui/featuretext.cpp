#include "featuretext.h"

#include <QRegularExpression>
#include <QStringList>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>

using namespace TovCam;

namespace TovGui {

namespace {

constexpr int ShownBytes = 64;               // of a register
constexpr int ToldCharacters = 24;           // of what was typed
constexpr double SliderWidth = 4294967296.0; // a wider range of integers gets no slider
constexpr double SliderRealWidth = 1e12;

bool IsNumber(FeatureInfo const &info)
{
    return info.kind == FeatureKind::Integer || info.kind == FeatureKind::Float;
}

bool IsHex(FeatureInfo const &info)
{
    return info.representation == FeatureRepresentation::HexNumber;
}

QString RealText(double value)
{
    auto const format = value == 0.0 || (std::abs(value) >= 1e-4 && std::abs(value) < 1e12)
                            ? std::chars_format::fixed
                            : std::chars_format::general;
    // A number that came as 32 bits reads as it was meant: 0.1, not 0.10000000149.
    auto const narrow = static_cast<float>(value);
    bool const exact = std::isfinite(narrow) && static_cast<double>(narrow) == value;
    // Of the others, the digits that arithmetic leaves behind the tenth go.
    double const wide = exact ? value : QString::number(value, 'g', 10).toDouble();
    std::array<char, 64> text{};
    char *const begin = text.data(), *const end = begin + text.size();
    auto const last = exact ? std::to_chars(begin, end, narrow, format) : std::to_chars(begin, end, wide, format);
    return QString::fromLatin1(begin, int(last.ptr - begin));
}

QString HexText(std::int64_t value)
{
    return QStringLiteral("0x") + QString::number(static_cast<quint64>(value), 16).toUpper();
}

QString AddressText(std::int64_t value, int bytes, int base, QLatin1Char separator)
{
    QStringList parts;
    for (int i = bytes - 1; i >= 0; --i) {
        auto const part = static_cast<unsigned>((static_cast<quint64>(value) >> (8 * i)) & 0xFF);
        parts << QStringLiteral("%1").arg(part, base == 16 ? 2 : 0, base, QLatin1Char('0')).toUpper();
    }
    return parts.join(separator);
}

QString IntegerText(FeatureInfo const &info, std::int64_t value)
{
    switch (info.representation) {
    case FeatureRepresentation::HexNumber:
        return HexText(value);
    case FeatureRepresentation::IPV4:
        return AddressText(value, 4, 10, QLatin1Char('.'));
    case FeatureRepresentation::MAC:
        return AddressText(value, 6, 16, QLatin1Char(':'));
    default:
        return QString::number(value);
    }
}

QString BytesText(std::string const &bytes)
{
    QByteArray const shown = QByteArray(bytes.data(), int(std::min<std::size_t>(bytes.size(), ShownBytes)));
    QString text = QString::fromLatin1(shown.toHex(' ').toUpper());
    if (bytes.size() > ShownBytes)
        text += QStringLiteral(" ...");
    return text;
}

// A line can break between words only.
QString Brief(QString const &typed)
{
    return typed.size() <= ToldCharacters ? typed : typed.left(ToldCharacters) + QStringLiteral("...");
}

FeatureEntry const *EntryOf(FeatureInfo const &info, FeatureValue const &value)
{
    for (FeatureEntry const &entry : info.entries) {
        if (value.text.empty() ? entry.value == value.integer : entry.name == value.text)
            return &entry;
    }
    return nullptr;
}

bool ParseAddress(QString const &text, int bytes, int base, QRegularExpression const &separator, std::int64_t *value)
{
    QStringList const parts = text.split(separator);
    if (parts.size() != bytes)
        return false;
    quint64 sum = 0;
    for (QString const &part : parts) {
        bool good = false;
        uint const number = part.toUInt(&good, base);
        if (!good || number > 0xFF || part.size() > 3)
            return false;
        sum = sum << 8 | number;
    }
    *value = static_cast<std::int64_t>(sum);
    return true;
}

// A number beyond 64 bits goes to the end of them, for the range to say the rest.
bool ParseInteger(FeatureInfo const &info, QString text, std::int64_t *value)
{
    static QRegularExpression const dots(QStringLiteral("\\."));
    static QRegularExpression const colons(QStringLiteral("[:-]"));
    if (info.representation == FeatureRepresentation::IPV4 && text.contains(QLatin1Char('.')))
        return ParseAddress(text, 4, 10, dots, value);
    if (info.representation == FeatureRepresentation::MAC && text.contains(colons))
        return ParseAddress(text, 6, 16, colons, value);

    bool const prefixed = text.startsWith(QLatin1String("0x"), Qt::CaseInsensitive);
    bool const hex = prefixed || IsHex(info) || info.representation == FeatureRepresentation::MAC;
    static QRegularExpression const hexDigits(QStringLiteral("\\A[0-9A-Fa-f]+\\z"));
    static QRegularExpression const digits(QStringLiteral("\\A[+-]?[0-9]+\\z"));
    if (prefixed)
        text = text.mid(2);
    if (!(hex ? hexDigits : digits).match(text).hasMatch())
        return false;
    bool good = false;
    *value = hex ? static_cast<std::int64_t>(text.toULongLong(&good, 16)) : text.toLongLong(&good, 10);
    if (!good)
        *value = text.startsWith(QLatin1Char('-')) ? INT64_MIN : INT64_MAX;
    return true;
}

bool ParseReal(QString text, double *value)
{
    if (!text.contains(QLatin1Char('.')))
        text.replace(QLatin1Char(','), QLatin1Char('.'));
    bool good = false;
    *value = text.toDouble(&good);
    return good && std::isfinite(*value);
}

// From the smallest value, as the camera may use all 64 bits.
std::uint64_t Offset(std::int64_t value, std::int64_t minimum)
{
    return static_cast<std::uint64_t>(value) - static_cast<std::uint64_t>(minimum);
}

std::int64_t ClampInteger(FeatureState const &state, std::int64_t value)
{
    if (state.minimum > state.maximum)
        return value; // no range that makes sense: the camera will say
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
        // A value that stands on a step stays as it was typed, not as the arithmetic has it.
        if (std::abs(stepped - value) > state.realIncrement * 1e-6)
            value = stepped > state.realMaximum ? stepped - state.realIncrement : stepped;
    }
    return value;
}

double Minimum(FeatureInfo const &info, FeatureState const &state)
{
    return info.kind == FeatureKind::Integer ? static_cast<double>(state.minimum) : state.realMinimum;
}

double Maximum(FeatureInfo const &info, FeatureState const &state)
{
    return info.kind == FeatureKind::Integer ? static_cast<double>(state.maximum) : state.realMaximum;
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

// What a logarithmic scale counts in where it begins at zero or below.
double LogUnit(FeatureInfo const &info, FeatureState const &state)
{
    if (info.kind == FeatureKind::Integer)
        return 1.0;
    return state.realIncrement > 0.0 ? state.realIncrement : (state.realMaximum - state.realMinimum) * 1e-6;
}

} // namespace

FeatureEditing FeatureText::EditingOf(FeatureInfo const &info, FeatureState const &state)
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

QString FeatureText::Value(FeatureInfo const &info, FeatureValue const &value)
{
    switch (info.kind) {
    case FeatureKind::Integer:
        return IntegerText(info, value.integer);
    case FeatureKind::Float:
        return RealText(value.real);
    case FeatureKind::Boolean:
        return value.integer ? tr("On") : tr("Off");
    case FeatureKind::Enumeration:
        if (FeatureEntry const *entry = EntryOf(info, value))
            return QString::fromStdString(entry->displayName);
        return value.text.empty() ? QString::number(value.integer) : QString::fromStdString(value.text);
    case FeatureKind::String:
        return QString::fromStdString(value.text);
    case FeatureKind::Register:
        return BytesText(value.text);
    case FeatureKind::Command:
    case FeatureKind::Category:
        break;
    }
    return {};
}

QString FeatureText::Shown(FeatureInfo const &info, FeatureValue const &value)
{
    QString text = Value(info, value);
    if (info.kind == FeatureKind::Float && info.precision >= 0 && std::isfinite(value.real)) {
        int const precision = std::min(info.precision, 17);
        if (info.notation == FeatureNotation::Scientific)
            text = QString::number(value.real, 'e', precision);
        else if (info.notation == FeatureNotation::Fixed)
            text = QString::number(value.real, 'f', precision);
        else if (QString const brief = QString::number(value.real, 'g', std::max(precision, 1));
                 !brief.contains(QLatin1Char('e'))) // all digits in front of the point stay
            text = brief;
    }
    return info.unit.empty() || text.isEmpty() ? text : text + QLatin1Char(' ') + QString::fromStdString(info.unit);
}

ParsedValue FeatureText::Parse(FeatureInfo const &info, FeatureState const &state, QString const &text)
{
    ParsedValue result;
    if (info.kind == FeatureKind::String) {
        result.value.text = text.toStdString();
        result.accepted = state.length == 0 || result.value.text.size() <= state.length;
        if (!result.accepted)
            result.hint =
                tr("The camera takes %1 bytes at most; this is %2.").arg(state.length).arg(result.value.text.size());
        return result;
    }

    QString number = text.trimmed();
    QString const unit = QString::fromStdString(info.unit);
    while (!unit.isEmpty() && number.endsWith(unit)) // typed once more in front of the one that stands there
        number = number.left(number.size() - unit.size()).trimmed();
    bool const integer = info.kind == FeatureKind::Integer;
    FeatureValue typed;
    if (!(integer ? ParseInteger(info, number, &typed.integer) : ParseReal(number, &typed.real))) {
        result.hint =
            info.representation == FeatureRepresentation::IPV4  ? tr("\"%1\" is no address such as 192.168.0.10.")
            : info.representation == FeatureRepresentation::MAC ? tr("\"%1\" is no address such as 00:1A:2B:3C:4D:5E.")
            : IsHex(info)                                       ? tr("\"%1\" is no hexadecimal number.")
            : integer                                           ? tr("\"%1\" is no whole number.")
                                                                : tr("\"%1\" is no number.");
        result.hint = result.hint.arg(Brief(number));
        return result;
    }
    result.accepted = true;
    result.value = Clamped(info, state, typed);
    if (integer ? result.value.integer != typed.integer : result.value.real != typed.real) {
        QString const taken = Value(info, result.value) + (unit.isEmpty() ? QString() : QLatin1Char(' ') + unit);
        bool const below = integer ? typed.integer < state.minimum : typed.real < state.realMinimum;
        bool const above = integer ? typed.integer > state.maximum : typed.real > state.realMaximum;
        result.hint = (below   ? tr("%1 is below the range; %2 was taken.")
                       : above ? tr("%1 is above the range; %2 was taken.")
                               : tr("%1 is between two steps; %2 was taken."))
                          .arg(IsHex(info) ? Value(info, typed) : Brief(number), taken);
    }
    return result;
}

FeatureValue FeatureText::Clamped(FeatureInfo const &info, FeatureState const &state, FeatureValue value)
{
    value.integer = info.kind == FeatureKind::Integer ? ClampInteger(state, value.integer) : value.integer;
    value.real = info.kind == FeatureKind::Float ? ClampReal(state, value.real) : value.real;
    return value;
}

FeatureValue FeatureText::Stepped(FeatureInfo const &info, FeatureState const &state, FeatureValue const &value,
                                  int steps)
{
    FeatureValue stepped;
    if (info.kind == FeatureKind::Integer) {
        __int128 const wide = static_cast<__int128>(value.integer) +
                              static_cast<__int128>(steps) * std::max<std::int64_t>(state.increment, 1);
        stepped.integer = static_cast<std::int64_t>(std::clamp<__int128>(wide, INT64_MIN, INT64_MAX));
    } else {
        double const width = state.realMaximum - state.realMinimum;
        double const unit = state.realIncrement > 0.0                 ? state.realIncrement
                            : width > 0.0 && width <= SliderRealWidth ? width / 100
                                                                      : 1.0;
        bool const factor =
            info.representation == FeatureRepresentation::Logarithmic && state.realIncrement <= 0.0 && value.real > 0.0;
        stepped.real = factor ? value.real * std::pow(1.05, steps) : value.real + steps * unit;
    }
    return Clamped(info, state, stepped);
}

double FeatureText::PositionOf(FeatureInfo const &info, FeatureState const &state, FeatureValue const &value)
{
    double const low = Minimum(info, state), high = Maximum(info, state);
    if (!(high > low))
        return 0.0;
    double const number = std::clamp(Number(info, value), low, high);
    if (info.representation != FeatureRepresentation::Logarithmic)
        return (number - low) / (high - low);
    if (low > 0.0)
        return std::log(number / low) / std::log(high / low);
    double const unit = LogUnit(info, state);
    return std::log1p((number - low) / unit) / std::log1p((high - low) / unit);
}

FeatureValue FeatureText::ValueAt(FeatureInfo const &info, FeatureState const &state, double position)
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

QString FeatureText::Range(FeatureInfo const &info, FeatureState const &state)
{
    if (info.kind == FeatureKind::String)
        return state.length ? tr("up to %1 bytes").arg(state.length) : QString();
    if (info.kind == FeatureKind::Register)
        return state.length == 1 ? tr("1 byte") : tr("%1 bytes").arg(state.length);
    if (!IsNumber(info) || !(Minimum(info, state) <= Maximum(info, state)))
        return {};
    FeatureValue low, high, step;
    low.integer = state.minimum;
    low.real = state.realMinimum;
    high.integer = state.maximum;
    high.real = state.realMaximum;
    step.integer = state.increment;
    step.real = state.realIncrement;
    QString text = tr("%1 to %2").arg(Value(info, low), Value(info, high));
    if (!info.unit.empty())
        text += QLatin1Char(' ') + QString::fromStdString(info.unit);
    bool const plain =
        info.representation != FeatureRepresentation::IPV4 && info.representation != FeatureRepresentation::MAC;
    if (plain && (info.kind == FeatureKind::Integer ? step.integer > 1 : step.real > 0.0))
        text += tr(", in steps of %1").arg(Value(info, step));
    return text;
}

QString FeatureText::Type(FeatureInfo const &info)
{
    switch (info.kind) {
    case FeatureKind::Category:
        return tr("Category");
    case FeatureKind::Integer:
        return tr("Integer");
    case FeatureKind::Float:
        return tr("Float");
    case FeatureKind::Boolean:
        return tr("Boolean");
    case FeatureKind::Enumeration:
        return tr("Enumeration");
    case FeatureKind::String:
        return tr("String");
    case FeatureKind::Command:
        return tr("Command");
    case FeatureKind::Register:
        return tr("Register");
    }
    return {};
}

QString FeatureText::Access(FeatureState const &state)
{
    return state.streamLocked ? tr("locked while the picture runs: Stop first") : Access(state.access);
}

QString FeatureText::Access(FeatureAccess access)
{
    switch (access) {
    case FeatureAccess::NotImplemented:
        return tr("not implemented");
    case FeatureAccess::NotAvailable:
        return tr("not available now");
    case FeatureAccess::WriteOnly:
        return tr("write only");
    case FeatureAccess::ReadOnly:
        return tr("read only");
    case FeatureAccess::ReadWrite:
        return tr("read and write");
    }
    return {};
}

QString FeatureText::Refused(RefusedSetting const &setting)
{
    QString const wanted = QString::fromStdString(setting.wanted);
    QString const value =
        setting.selectors.empty() ? wanted : tr("%1 at %2").arg(wanted, QString::fromStdString(setting.selectors));
    QString const why = setting.streamLocked  ? tr("locked while the picture ran")
                        : setting.status == 0 ? tr("it did not keep the value")
                                              : Status(setting.status);
    return tr("the camera refused %1 of the configuration file: %2").arg(value, why);
}

QString FeatureText::Status(std::int32_t status)
{
    QString text;
    switch (status) {
    case TOV_CAM_ERR_NO_DEVICE:
        text = tr("The camera is gone");
        break;
    case TOV_CAM_ERR_INVALID_STATE:
        text = tr("The camera is in no state for it");
        break;
    case TOV_CAM_ERR_GENICAM_ACCESS:
        text = tr("The camera does not permit it now");
        break;
    case TOV_CAM_ERR_GENICAM_PARAM_TYPE:
        text = tr("The value is of another type");
        break;
    case TOV_CAM_ERR_GENICAM_OUT_OF_RANGE:
        text = tr("The value is out of range");
        break;
    case TOV_CAM_ERR_GENICAM_UNKNOWN_PARAM:
        text = tr("The camera has no such feature");
        break;
    case TOV_CAM_ERR_INVALID_ARGUMENT:
    case TOV_CAM_ERR_GENICAM_INVALID_ARGUMENT:
        text = tr("The camera does not take the value");
        break;
    default:
        text = tr("The camera did not answer as it should");
        break;
    }
    return tr("%1 (error %2)").arg(text).arg(status);
}

} // namespace TovGui
