#include "featuretext.h"

#include "featurescale.h"

#include "tovplaintext.h"

#include <QRegularExpression>
#include <QStringList>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>

using namespace TovCam;

namespace TovGui {

namespace {

constexpr int ShownBytes = 64;     // of a register
constexpr int ToldCharacters = 24; // of what was typed
bool IsHex(FeatureInfo const &info)
{
    return info.representation == FeatureRepresentation::HexNumber;
}

QString RealText(double value)
{
    auto const format = value == 0.0 || (std::abs(value) >= 1e-4 && std::abs(value) < 1e12)
                            ? std::chars_format::fixed
                            : std::chars_format::general;
    // A number that came as 32 bits reads as its shortest form in 32 bits: 0.1, not 0.10000000149.
    auto const narrow = static_cast<float>(value);
    bool const exact = std::isfinite(narrow) && static_cast<double>(narrow) == value;
    // Of other numbers, the digits after the tenth, which arithmetic leaves, go.
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

// A number beyond 64 bits becomes the nearest limit, which the range check then reports.
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

} // namespace

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
                 !brief.contains(QLatin1Char('e'))) // all digits before the point stay
            text = brief;
    }
    if (!info.unit.empty() && !text.isEmpty())
        text += QLatin1Char(' ') + QString::fromStdString(info.unit);
    return TovPlainLine(text, 4096);
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
    while (!unit.isEmpty() && number.endsWith(unit)) // typed again before the one already there
        number = number.left(number.size() - unit.size()).trimmed();
    bool const integer = info.kind == FeatureKind::Integer;
    FeatureValue typed;
    if (!(integer ? ParseInteger(info, number, &typed.integer) : ParseReal(number, &typed.real))) {
        result.hint = info.representation == FeatureRepresentation::IPV4
                          ? tr("\"%1\" is not an address such as 192.168.0.10.")
                      : info.representation == FeatureRepresentation::MAC
                          ? tr("\"%1\" is not an address such as 00:1A:2B:3C:4D:5E.")
                      : IsHex(info) ? tr("\"%1\" is not a hexadecimal number.")
                      : integer     ? tr("\"%1\" is not a whole number.")
                                    : tr("\"%1\" is not a number.");
        result.hint = result.hint.arg(Brief(number));
        return result;
    }
    result.accepted = true;
    result.value = FeatureScale::Clamped(info, state, typed);
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

} // namespace TovGui
