#include "seriesfiles.h"

#include "samplelayout.h"
#include "tovimage.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdio>

namespace SeriesFiles {

namespace {

constexpr std::string_view OlderHead =
    "number,file,position,frame_id,timestamp,arrival_utc_ns,exposure_us,gain,incomplete,missing_bytes,gap_before";
constexpr std::string_view LastColumn = ",loss_cause";
constexpr std::size_t Columns = 12, OlderColumns = 11;

template<class T>
void AppendNumber(std::string &text, T value)
{
    char digits[32];
    text.append(digits, std::to_chars(digits, digits + sizeof digits, value).ptr);
}

// Empty where it is not known.
template<class T>
void AppendKnown(std::string &text, std::optional<T> const &value)
{
    text += ',';
    if (value)
        AppendNumber(text, *value);
}
void AppendKnown(std::string &text, std::optional<double> const &value)
{
    text += ',';
    if (value && std::isfinite(*value))
        AppendNumber(text, *value);
}

void AppendField(std::string &text, std::string_view field)
{
    text += ',';
    if (field.find_first_of(",\"\r\n") == std::string_view::npos) {
        text += field;
        return;
    }
    text += '"';
    for (char const c : field)
        text.append(c == '"' ? 2 : 1, c);
    text += '"';
}

template<class T>
bool ReadNumber(std::string_view text, T &value, int base = 10)
{
    auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, base);
    return error == std::errc() && end == text.data() + text.size();
}
bool ReadNumber(std::string_view text, double &value)
{
    auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    return error == std::errc() && end == text.data() + text.size() && std::isfinite(value);
}

template<class T>
bool ReadKnown(std::string_view text, std::optional<T> &value)
{
    value.reset();
    if (text.empty())
        return true;
    T number{};
    if (!ReadNumber(text, number))
        return false;
    value = number;
    return true;
}

// A line ended by a program that writes both.
std::string_view WithoutReturn(std::string_view line)
{
    return line.ends_with('\r') ? line.substr(0, line.size() - 1) : line;
}

// The next field of the line, which is left with what follows it; `whole` is the memory of a quoted one.
bool TakeField(std::string_view &rest, std::string_view &field, std::string &whole)
{
    if (!rest.starts_with('"')) {
        field = rest.substr(0, rest.find(','));
        rest.remove_prefix(field.size());
        return field.find_first_of(std::string_view("\"\r\n\0", 4)) == std::string_view::npos;
    }
    whole.clear();
    std::size_t at = 1;
    for (; at < rest.size(); ++at) {
        if (rest[at] == '"' && (++at == rest.size() || rest[at] != '"')) {
            field = whole;
            rest.remove_prefix(at);
            return (rest.empty() || rest.front() == ',') && field.find('\0') == std::string_view::npos;
        }
        whole += rest[at];
    }
    return false;
}

bool IsInOrder(TovPixelTypeInfo const &info)
{
    return std::string_view(info.name).starts_with("RGB");
}

char const *ColourKind(TovPixelTypeInfo const &info)
{
    if (info.family != TOV_FAMILY_RGB || !IsInOrder(info))
        return "vector";
    return info.channels == 4 ? "RGBA-color" : "RGB-color";
}

// How samples that take no whole bytes follow one another.
char const *Packing(TovPixelTypeInfo const &info, SampleLayout const &samples)
{
    return samples.whole                     ? "none"
           : info.packing == TOV_PACKED_P    ? "lsb"
           : info.packing == TOV_PACKED_WEFT ? "msb"
                                             : "pairs";
}

std::string Hex(std::uint32_t number)
{
    char text[16];
    std::snprintf(text, sizeof text, "0x%08X", number);
    return text;
}

template<class T>
void AppendEntry(std::string &text, std::string_view key, T value)
{
    text += key;
    AppendNumber(text, value);
    text += '\n';
}

constexpr std::string_view ListLine = "data file: LIST";
constexpr std::string_view CodeKey = "tov pixel code:=", WidthKey = "tov width:=", HeightKey = "tov height:=",
                           LineKey = "tov line bytes:=", DepthKey = "tov bit depth:=", SizesKey = "sizes: ";

// The number behind a key, where the line has that key; false where it has no number.
template<class T>
bool ReadEntry(std::string_view line, std::string_view key, T &value, unsigned &found, unsigned bit)
{
    if (!line.starts_with(key))
        return true;
    line.remove_prefix(key.size());
    bool const hex = line.starts_with("0x");
    found |= bit;
    return ReadNumber(line.substr(hex ? 2 : 0), value, hex ? 16 : 10);
}

// Pictures that an image of ours can hold.
bool IsPossible(RawShape const &shape)
{
    if (shape.width == 0 || shape.height == 0 || shape.lineBytes == 0 || shape.lineBytes > UINT32_MAX / shape.height)
        return false;
    return !TovGetPixelTypeInfo(shape.pixelType) || TovLineBytes(shape.pixelType, shape.width) == shape.lineBytes;
}

} // namespace

std::string TableHead()
{
    return std::string(OlderHead).append(LastColumn) + '\n';
}

void Append(std::string &line, Row const &row)
{
    AppendNumber(line, row.number);
    AppendField(line, row.file);
    AppendKnown(line, row.position);
    AppendKnown(line, std::optional(row.frameId));
    AppendKnown(line, std::optional(row.timestamp));
    AppendKnown(line, row.arrival);
    AppendKnown(line, row.exposure);
    AppendKnown(line, row.gain);
    line += row.incomplete ? ",1" : ",0";
    AppendKnown(line, std::optional(row.missingBytes));
    AppendKnown(line, std::optional(row.gapBefore));
    AppendField(line, row.lossCause);
    line += '\n';
}

std::string Encode(Row const &row)
{
    std::string line;
    Append(line, row);
    return line;
}

bool IsTableHead(std::string_view line)
{
    line = WithoutReturn(line);
    if (line.ends_with(LastColumn))
        line.remove_suffix(LastColumn.size());
    return line == OlderHead;
}

bool Decode(std::string_view line, Row &row)
{
    line = WithoutReturn(line);
    std::array<std::string_view, Columns> fields;
    std::string quoted[Columns];
    for (std::size_t i = 0; i < Columns; ++i) {
        if (i == OlderColumns && line.empty())
            break;
        if (i > 0) {
            if (!line.starts_with(','))
                return false;
            line.remove_prefix(1);
        }
        if (!TakeField(line, fields[i], quoted[i]))
            return false;
    }
    row.file = fields[1];
    row.lossCause = fields[OlderColumns];
    row.incomplete = fields[8] == "1";
    return line.empty() && !row.file.empty() && (row.incomplete || fields[8] == "0") &&
           ReadNumber(fields[0], row.number) && ReadKnown(fields[2], row.position) &&
           ReadNumber(fields[3], row.frameId) && ReadNumber(fields[4], row.timestamp) &&
           ReadKnown(fields[5], row.arrival) && ReadKnown(fields[6], row.exposure) && ReadKnown(fields[7], row.gain) &&
           ReadNumber(fields[9], row.missingBytes) && ReadNumber(fields[10], row.gapBefore);
}

NrrdHead MakeNrrdHead(RawShape const &shape)
{
    TovPixelTypeInfo const *info = TovGetPixelTypeInfo(shape.pixelType);
    SampleLayout const samples = SamplesOf(info, shape.width, shape.lineBytes);
    bool const colour = samples.channels > 1;

    NrrdHead head;
    std::string &text = head.text;
    text = "NRRD0004\n# A series of TovScope; the keys that begin with \"tov\" tell what the bytes mean.\n";
    text += samples.bytes == 2 ? "type: ushort\n" : "type: uchar\n";
    AppendEntry(text, "dimension: ", colour ? 4 : 3);
    text += SizesKey;
    if (colour) {
        AppendNumber(text, samples.channels);
        text += ' ';
    }
    AppendNumber(text, samples.perLine);
    text += ' ';
    AppendNumber(text, shape.height);
    text += ' ';
    head.countAt = text.size();
    text += NrrdCount(0);
    text += "\nkinds: ";
    if (colour)
        text.append(ColourKind(*info)).append(" ");
    text += "domain domain time\n";
    if (samples.bytes == 2)
        text += "endian: little\n";
    text += "encoding: raw\n";
    text.append("tov pixel type:=").append(info ? info->name : "unknown").append("\n");
    text.append(CodeKey).append(Hex(shape.pixelType)).append("\n");
    AppendEntry(text, WidthKey, shape.width);
    AppendEntry(text, HeightKey, shape.height);
    AppendEntry(text, LineKey, shape.lineBytes);
    AppendEntry(text, DepthKey, shape.bitDepth);
    if (info) {
        AppendEntry(text, "tov samples:=", TovSamplesPerPixel(shape.pixelType));
        text.append("tov packing:=").append(Packing(*info, samples)).append("\n");
    }
    if (std::string const mosaic = MosaicColours(info); !mosaic.empty())
        text.append("tov mosaic:=").append(mosaic).append("\n");
    text.append(ListLine).append("\n");
    return head;
}

std::string NrrdCount(std::uint64_t frames)
{
    std::string const digits = std::to_string(frames);
    return std::string(CountDigits - std::min(CountDigits, digits.size()), ' ') + digits;
}

std::string NrrdFileLine(std::string_view file)
{
    if (file.find_first_of("\r\n") != std::string_view::npos)
        return {};
    return std::string(file) + '\n';
}

bool ParseNrrdHead(std::string_view text, RawShape &shape, std::uint64_t &frames, std::size_t &listAt)
{
    constexpr unsigned All = 0x3F;
    unsigned found = 0;
    bool good = text.starts_with("NRRD000");
    for (std::size_t at = 0; good && at < text.size();) {
        std::size_t const end = text.find('\n', at);
        if (end == std::string_view::npos)
            return false;
        std::string_view line = text.substr(at, end - at);
        at = end + 1;
        if (line == ListLine) {
            listAt = at;
            return found == All && IsPossible(shape);
        }
        if (line.starts_with(SizesKey)) { // the last one counts the frames
            good = ReadNumber(line.substr(line.rfind(' ') + 1), frames);
            found |= 32;
            continue;
        }
        good = good && ReadEntry(line, CodeKey, shape.pixelType, found, 1) &&
               ReadEntry(line, WidthKey, shape.width, found, 2) && ReadEntry(line, HeightKey, shape.height, found, 4) &&
               ReadEntry(line, LineKey, shape.lineBytes, found, 8) &&
               ReadEntry(line, DepthKey, shape.bitDepth, found, 16);
    }
    return false;
}

std::string EnviHeader(RawShape const &shape)
{
    TovPixelTypeInfo const *info = TovGetPixelTypeInfo(shape.pixelType);
    SampleLayout const samples = SamplesOf(info, shape.width, shape.lineBytes);
    if (!samples.whole)
        return {};
    std::string text = "ENVI\n";
    text.append("description = {TovScope, ").append(info->name).append("}\n");
    AppendEntry(text, "samples = ", samples.perLine);
    AppendEntry(text, "lines = ", shape.height);
    AppendEntry(text, "bands = ", samples.channels);
    text += "header offset = 0\nfile type = ENVI Standard\n";
    text += samples.bytes == 2 ? "data type = 12\n" : "data type = 1\n";
    text += samples.channels > 1 ? "interleave = bip\n" : "interleave = bsq\n";
    text += "byte order = 0\n";
    if (info->family == TOV_FAMILY_RGB)
        text += IsInOrder(*info) ? "default bands = {1, 2, 3}\n" : "default bands = {3, 2, 1}\n";
    return text;
}

} // namespace SeriesFiles
