#include "storedvalue.h"

#include <glib.h>

#include <algorithm>
#include <charconv>
#include <cmath>

using namespace TovCam;

bool IsPlainName(std::string const &text)
{
    return !text.empty() && std::all_of(text.begin(), text.end(), [](char c) {
        return g_ascii_isalnum(c) || c == '_' || c == '.' || c == '-' || c == ':';
    });
}

std::optional<std::string> ToStoredText(FeatureKind kind, FeatureValue const &value)
{
    switch (kind) {
    case FeatureKind::Integer:
        return std::to_string(value.integer);
    case FeatureKind::Boolean:
        return value.integer ? "true" : "false";
    case FeatureKind::Float: {
        if (!std::isfinite(value.real))
            return std::nullopt;
        char text[G_ASCII_DTOSTR_BUF_SIZE];
        return g_ascii_dtostr(text, sizeof text, value.real);
    }
    case FeatureKind::Enumeration:
        return IsPlainName(value.text) ? std::optional(value.text) : std::nullopt;
    case FeatureKind::String:
        return g_utf8_validate(value.text.data(), static_cast<gssize>(value.text.size()), nullptr)
                   ? std::optional(value.text)
                   : std::nullopt;
    case FeatureKind::Register: {
        std::string text;
        for (char const byte : value.text) {
            text += "0123456789abcdef"[static_cast<unsigned char>(byte) >> 4];
            text += "0123456789abcdef"[byte & 15];
        }
        return text;
    }
    default:
        return std::nullopt;
    }
}

std::optional<FeatureValue> FromStoredText(FeatureKind kind, std::string const &text)
{
    FeatureValue value;
    switch (kind) {
    case FeatureKind::Integer: {
        auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), value.integer);
        if (error != std::errc() || end != text.data() + text.size())
            return std::nullopt;
        return value;
    }
    case FeatureKind::Boolean:
        value.integer = text == "true";
        return text == "true" || text == "false" ? std::optional(value) : std::nullopt;
    case FeatureKind::Float: {
        char *end = nullptr;
        value.real = g_ascii_strtod(text.c_str(), &end);
        if (text.empty() || *end != '\0' || !std::isfinite(value.real))
            return std::nullopt;
        return value;
    }
    case FeatureKind::Enumeration:
        value.text = text;
        return IsPlainName(text) ? std::optional(value) : std::nullopt;
    case FeatureKind::String:
        value.text = text;
        return value;
    case FeatureKind::Register:
        if (text.size() % 2 != 0)
            return std::nullopt;
        for (std::size_t i = 0; i < text.size(); i += 2) {
            int const high = g_ascii_xdigit_value(text[i]), low = g_ascii_xdigit_value(text[i + 1]);
            if (high < 0 || low < 0)
                return std::nullopt;
            value.text += static_cast<char>(high << 4 | low);
        }
        return value;
    default:
        return std::nullopt;
    }
}

bool IsSameValue(FeatureKind kind, FeatureValue const &a, FeatureValue const &b)
{
    switch (kind) {
    case FeatureKind::Integer:
    case FeatureKind::Boolean:
        return a.integer == b.integer;
    case FeatureKind::Float:
        return std::abs(a.real - b.real) <= 1e-9 * std::max(std::abs(a.real), std::abs(b.real));
    default:
        return a.text == b.text;
    }
}
