#include "hostiledescription.h"

#include <zlib.h>

#include <algorithm>
#include <cstdio>
#include <new>
#include <random>
#include <stdexcept>

namespace {

// ---- Archives ----------------------------------------------------------------------------------------------------

constexpr std::uint16_t Deflated = 8, NeededVersion = 20;
constexpr std::uint16_t Date1980 = 0x0021; // the first day that an archive can name

std::string Deflate(std::string_view content, int flush)
{
    z_stream stream{};
    // Negative: without a header of zlib's own, as archives have it.
    if (deflateInit2(&stream, Z_BEST_COMPRESSION, Z_DEFLATED, -MAX_WBITS, MAX_MEM_LEVEL, Z_DEFAULT_STRATEGY) != Z_OK)
        throw std::bad_alloc();
    std::string out(deflateBound(&stream, content.size()) + 16, '\0');
    stream.next_in = reinterpret_cast<Bytef *>(const_cast<char *>(content.data()));
    stream.avail_in = static_cast<uInt>(content.size());
    stream.next_out = reinterpret_cast<Bytef *>(out.data());
    stream.avail_out = static_cast<uInt>(out.size());
    deflate(&stream, flush);
    out.resize(stream.total_out);
    deflateEnd(&stream);
    return out;
}

void AppendLittle(std::string &out, std::uint32_t value, int bytes)
{
    for (int i = 0; i < bytes; ++i)
        out += static_cast<char>(value >> (8 * i));
}

struct ZipEntry
{
    std::string_view name;
    std::string deflated;
    std::uint32_t crc, size;
};

std::string ZipOf(ZipEntry const &entry)
{
    // What stands before the content and, once more, in the directory at the end.
    std::string common;
    AppendLittle(common, NeededVersion, 2);
    AppendLittle(common, 0, 2); // flags
    AppendLittle(common, Deflated, 2);
    AppendLittle(common, 0, 2); // time
    AppendLittle(common, Date1980, 2);
    AppendLittle(common, entry.crc, 4);
    AppendLittle(common, static_cast<std::uint32_t>(entry.deflated.size()), 4);
    AppendLittle(common, entry.size, 4);
    AppendLittle(common, static_cast<std::uint32_t>(entry.name.size()), 2);
    AppendLittle(common, 0, 2); // further fields

    std::string zip("PK\3\4", 4);
    zip.append(common).append(entry.name).append(entry.deflated);
    std::size_t const directory = zip.size();
    zip.append("PK\1\2", 4);
    AppendLittle(zip, NeededVersion, 2);
    zip.append(common);
    AppendLittle(zip, 0, 2); // comment
    AppendLittle(zip, 0, 2); // disk
    AppendLittle(zip, 0, 2); // internal attributes
    AppendLittle(zip, 0, 4); // external attributes
    AppendLittle(zip, 0, 4); // place of the entry
    zip.append(entry.name);
    std::size_t const directorySize = zip.size() - directory;
    zip.append("PK\5\6", 4);
    AppendLittle(zip, 0, 2); // disk
    AppendLittle(zip, 0, 2); // disk of the directory
    AppendLittle(zip, 1, 2); // entries of this disk
    AppendLittle(zip, 1, 2); // entries
    AppendLittle(zip, static_cast<std::uint32_t>(directorySize), 4);
    AppendLittle(zip, static_cast<std::uint32_t>(directory), 4);
    AppendLittle(zip, 0, 2); // comment
    return zip;
}

std::uint32_t CrcOf(std::string_view text)
{
    return static_cast<std::uint32_t>(crc32_z(0, reinterpret_cast<Bytef const *>(text.data()), text.size()));
}

// The bytes of the entry's middle are not those that were packed.
std::string MakeBadZip(std::string_view name, std::string_view content)
{
    std::string zip = MakeZip(name, content);
    std::size_t const middle = zip.size() / 2, length = std::min<std::size_t>(64, zip.size() - middle);
    for (std::size_t i = middle; i < middle + length; ++i)
        zip[i] = static_cast<char>(~zip[i]);
    return zip;
}

// A description with 3 GB of blanks in it. A mebibyte of them is packed once and repeated, which a full flush allows:
// what follows it refers to nothing before.
std::string MakeZipBomb(std::string_view name)
{
    constexpr std::uint32_t Blanks = 1 << 20, Times = 3 << 10;
    constexpr std::string_view Begin = "<?xml version=\"1.0\"?>\n<RegisterDescription>",
                               End = "</RegisterDescription>\n";
    std::string const blanks(Blanks, ' ');
    std::string const packed = Deflate(blanks, Z_FULL_FLUSH);
    uLong const crc = CrcOf(blanks);
    ZipEntry bomb{name, Deflate(Begin, Z_FULL_FLUSH), CrcOf(Begin), 0};
    for (std::uint32_t i = 0; i < Times; ++i) {
        bomb.deflated += packed;
        bomb.crc = static_cast<std::uint32_t>(crc32_combine(bomb.crc, crc, Blanks));
    }
    bomb.deflated += Deflate(End, Z_FINISH);
    bomb.crc = static_cast<std::uint32_t>(crc32_combine(bomb.crc, CrcOf(End), static_cast<z_off_t>(End.size())));
    bomb.size = static_cast<std::uint32_t>(Begin.size() + End.size() + std::size_t{Blanks} * Times);
    return ZipOf(bomb);
}

// ---- Texts -------------------------------------------------------------------------------------------------------

std::string Repeat(std::string_view text, std::size_t times)
{
    std::string out;
    out.reserve(text.size() * times);
    while (times-- > 0)
        out += text;
    return out;
}

// Small, but with all that a reader looks for: an element of this name, and the category that all begins with.
std::string Describe(std::string_view head, std::string_view nodes)
{
    std::string text = "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n";
    text.append(head);
    text += "<RegisterDescription ModelName=\"Hostile\" VendorName=\"Velmor\" SchemaMajorVersion=\"1\" "
            "SchemaMinorVersion=\"1\" SchemaSubMinorVersion=\"0\" MajorVersion=\"1\" MinorVersion=\"0\" "
            "SubMinorVersion=\"0\" xmlns=\"http://www.genicam.org/GenApi/Version_1_1\">\n";
    text.append(nodes);
    return text + "</RegisterDescription>\n";
}

std::string MakeRandomBytes()
{
    std::mt19937 random(20480117);
    std::string bytes(64 << 10, '\0');
    for (char &byte : bytes)
        byte = static_cast<char>(random());
    return bytes;
}

// Ten of ten of ten ...: 10^9 letters of ten.
std::string MakeEntities()
{
    std::string head = "<!DOCTYPE RegisterDescription [\n<!ENTITY e0 \"grumpy old\">\n";
    for (int level = 1; level <= 9; ++level) {
        head += "<!ENTITY e" + std::to_string(level) + " \"";
        head += Repeat("&e" + std::to_string(level - 1) + ";", 10) + "\">\n";
    }
    return Describe(head + "]>\n", "  <Category Name=\"Root\"><ToolTip>&e9;</ToolTip></Category>\n");
}

std::string MakeNested()
{
    constexpr std::size_t Depth = 100000;
    return Describe({}, Repeat("<Group Comment=\"\">", Depth) + Repeat("</Group>", Depth) + "\n");
}

std::string MakeCircle()
{
    return Describe({}, "  <Category Name=\"Root\"><pFeature>Width</pFeature><pFeature>Root</pFeature></Category>\n"
                        "  <Integer Name=\"Width\"><pValue>Height</pValue><pMax>Width</pMax></Integer>\n"
                        "  <Integer Name=\"Height\"><pValue>Width</pValue><pMin>Height</pMin></Integer>\n"
                        "  <IntSwissKnife Name=\"PayloadSize\"><pVariable Name=\"P\">PayloadSize</pVariable>"
                        "<Formula>P + 1</Formula></IntSwissKnife>\n"
                        "  <Port Name=\"Device\"/>\n");
}

std::string MakeOther()
{
    return Describe({}, "  <Category Name=\"Root\"><pFeature>Width</pFeature></Category>\n"
                        "  <StringReg Name=\"Width\"><Address>0x10100</Address><Length>64</Length>"
                        "<AccessMode>RO</AccessMode><pPort>Device</pPort></StringReg>\n"
                        "  <Port Name=\"Device\"/>\n");
}

std::string MakePlain(WireDescription kind, std::string_view good)
{
    switch (kind) {
    case WireDescription::Truncated:
        return std::string(good.substr(0, good.size() / 2));
    case WireDescription::NotXml:
        return MakeRandomBytes();
    case WireDescription::Empty:
        return {};
    case WireDescription::Entities:
        return MakeEntities();
    case WireDescription::Nested:
        return MakeNested();
    case WireDescription::Circle:
        return MakeCircle();
    case WireDescription::ChangesOnce:
        return MakeOther();
    default:
        return std::string(good);
    }
}

// Of an URL register; for some kinds it is not true.
std::string MakeUrl(WireDescription kind, std::string const &file, std::uint32_t address, std::size_t size)
{
    constexpr std::uint32_t Nowhere = 0xF0000000;
    constexpr std::size_t Huge = std::size_t{1} << 31;
    if (kind == WireDescription::FileUrl)
        return "File:///etc/passwd";
    char place[40];
    std::snprintf(place, sizeof place, ";%X;%zX", kind == WireDescription::OutsideUrl ? Nowhere : address,
                  kind == WireDescription::HugeUrl ? Huge : size);
    return "Local:" + file + place;
}

} // namespace

std::string MakeZip(std::string_view name, std::string_view content)
{
    if (name.size() > UINT16_MAX || content.size() > UINT32_MAX)
        throw std::length_error("Too large for a zip file");
    return ZipOf({name, Deflate(content, Z_FINISH), CrcOf(content), static_cast<std::uint32_t>(content.size())});
}

ServedDescription MakeDescription(WireDescription kind, std::string_view model, std::string_view good)
{
    std::string const name(model), entry = name + ".xml";
    ServedDescription served;
    served.plain = MakePlain(kind, good);
    if (kind == WireDescription::BadZip)
        served.zipped = MakeBadZip(entry, good);
    else if (kind == WireDescription::ZipBomb)
        served.zipped = MakeZipBomb(entry);
    else if (kind != WireDescription::Empty)
        served.zipped = MakeZip(entry, served.plain);
    served.firstUrl = MakeUrl(kind, name + ".zip", ZippedDescriptionAddress, served.zipped.size());
    served.secondUrl = MakeUrl(kind, entry, PlainDescriptionAddress, served.plain.size());
    return served;
}
