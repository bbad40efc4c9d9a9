#include "hostiledescription.h"

#include <zlib.h>

#include <algorithm>
#include <cstdio>
#include <initializer_list>
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

// ---- The good description with more in it ------------------------------------------------------------------------

using Number = std::size_t;

std::string Named(char const *prefix, Number number)
{
    std::string name = prefix;
    name += std::to_string(number);
    return name;
}

std::string IntegerNode(std::string const &name, std::string const &content)
{
    return "<Integer Name=\"" + name + "\"><ToolTip>" + name + "</ToolTip>" + content + "</Integer>\n";
}

std::string Escaped(std::string_view text)
{
    std::string out;
    for (char const c : text)
        out += c == '<' ? "&lt;" : c == '>' ? "&gt;" : c == '&' ? "&amp;" : std::string(1, c);
    return out;
}

std::string Formula(std::string const &name, std::string const &variables, std::string const &plain)
{
    std::string const formula = Escaped(plain);
    // Once for the integers and once for the real numbers.
    return "<IntSwissKnife Name=\"" + name + "\">" + variables + "<Formula>" + formula +
           "</Formula></IntSwissKnife>\n<SwissKnife Name=\"" + name + "Real\">" + variables + "<Formula>" + formula +
           "</Formula></SwissKnife>\n" + IntegerNode(name + "OfReal", "<pValue>" + name + "Real</pValue>");
}

struct Addition
{
    std::string nodes, features; // the latter as <pFeature>

    void Add(std::string const &node, std::string const &name)
    {
        nodes += node;
        features += "<pFeature>" + name + "</pFeature>";
    }
    void AddFormula(std::string const &name, std::string const &variables, std::string const &formula)
    {
        Add(Formula(name, variables, formula), name);
        features += "<pFeature>" + name + "Real</pFeature><pFeature>" + name + "OfReal</pFeature>";
    }
};

// Each formula with numbers, with features that hold the same, and with registers from which the same is made.
Addition MakeFormulas(std::initializer_list<char const *> formulas)
{
    constexpr char Smallest[] = "(0-9223372036854775807-1)";
    Addition addition;
    addition.nodes = IntegerNode("HostileOne", "<Value>-1</Value>") + IntegerNode("HostileNone", "<Value>0</Value>") +
                     IntegerNode("HostileLeast", "<Value>-9223372036854775808</Value>") +
                     "<IntReg Name=\"HostileZero\"><Address>0x20310</Address><Length>4</Length><AccessMode>RO"
                     "</AccessMode><pPort>Device</pPort><Sign>Signed</Sign><Endianess>BigEndian</Endianess></IntReg>\n";
    constexpr char Features[] = "<pVariable Name=\"M\">HostileLeast</pVariable><pVariable "
                                "Name=\"N\">HostileOne</pVariable><pVariable Name=\"Z\">HostileNone</pVariable>";
    constexpr char Registers[] = "<pVariable Name=\"R\">HostileZero</pVariable>";
    Number number = 0;
    for (std::string const formula : formulas) {
        auto const with = [&](std::string const &least, std::string const &one, std::string const &none) {
            std::string text;
            for (char const c : formula)
                text += c == 'M' ? least : c == 'N' ? one : c == 'Z' ? none : std::string(1, c);
            return text;
        };
        addition.AddFormula(Named("HostileNumber", number), {}, with(Smallest, "(0-1)", "0"));
        addition.AddFormula(Named("HostileFeature", number), Features, formula);
        addition.AddFormula(Named("HostileRegister", number), Registers,
                            with(std::string("(R+") + Smallest + ")", "(R-1)", "(R*1)"));
        ++number;
    }
    return addition;
}

Addition MakeDeepNodes()
{
    constexpr Number Depth = 10000;
    Addition addition;
    addition.Add(IntegerNode("Deep0", "<pValue>Deep1</pValue>"), "Deep0");
    for (Number i = 1; i < Depth; ++i)
        addition.nodes += IntegerNode(Named("Deep", i), "<pValue>" + Named("Deep", i + 1) + "</pValue>");
    addition.nodes += IntegerNode(Named("Deep", Depth), "<Value>1</Value>");
    return addition;
}

Addition MakeSelectors()
{
    constexpr Number Selectors = 3000, Selected = 20;
    Addition addition;
    for (Number i = 0; i < Selectors; ++i) {
        std::string content = "<Streamable>Yes</Streamable><Value>1</Value><Min>0</Min><Max>3</Max>";
        for (Number k = 1; k <= Selected; ++k)
            content += "<pSelected>" + Named("S", (i + k) % Selectors) + "</pSelected>";
        addition.Add(IntegerNode(Named("S", i), content), Named("S", i));
    }
    return addition;
}

Addition MakeManyFeatures()
{
    constexpr Number Features = 8000;
    Addition addition;
    for (Number i = 0; i < Features; ++i)
        addition.Add(IntegerNode(Named("Many", i), "<Value>1</Value>"), Named("Many", i));
    return addition;
}

Addition MakeManyEntries()
{
    constexpr Number Entries = 20000;
    Addition addition;
    std::string node = "<Enumeration Name=\"Many\">";
    for (Number i = 0; i < Entries; ++i)
        node += "<EnumEntry Name=\"" + Named("E", i) + "\"><Value>" + std::to_string(i) + "</Value></EnumEntry>";
    addition.Add(node + "<Value>7</Value></Enumeration>\n", "Many");
    return addition;
}

Addition MakeHugeTexts()
{
    std::string const text(1 << 20, 'x'), name(60000, 'n');
    Addition addition;
    addition.Add("<Integer Name=\"HugeTexts\"><ToolTip>" + text + "</ToolTip><DisplayName>" + text +
                     "</DisplayName><Value>1</Value><Unit>" + name + "</Unit></Integer>\n",
                 "HugeTexts");
    addition.Add(IntegerNode(name, "<Value>1</Value>"), name);
    return addition;
}

Addition MakeMarkup()
{
    // The last one turns the direction of what follows.
    constexpr char Text[] = "&lt;h1&gt;Big&lt;/h1&gt;&lt;img src=&quot;file:///etc/hostname&quot;&gt;&lt;a "
                            "href=&quot;x&quot;&gt;a&#10;b&#9;%s%n&amp;amp;&#x202E;";
    std::string const texts = std::string("<ToolTip>") + Text + "</ToolTip><Description>" + Text +
                              "</Description><DisplayName>" + Text + "</DisplayName>";
    Addition addition;
    addition.Add("<Integer Name=\"MarkupNumber\">" + texts + "<Value>1</Value><Unit>" + Text + "</Unit></Integer>\n",
                 "MarkupNumber");
    addition.Add("<Enumeration Name=\"MarkupChoice\">" + texts + "<EnumEntry Name=\"One\">" + texts +
                     "<Value>1</Value></EnumEntry><EnumEntry Name=\"Two\">" + texts +
                     "<Value>2</Value></EnumEntry><Value>1</Value></Enumeration>\n",
                 "MarkupChoice");
    addition.Add("<Command Name=\"MarkupCommand\">" + texts +
                     "<Value>0</Value><CommandValue>1</CommandValue></Command>\n",
                 "MarkupCommand");
    addition.Add("<Category Name=\"MarkupCategory\">" + texts + "<pFeature>MarkupNumber</pFeature></Category>\n",
                 "MarkupCategory");
    return addition;
}

std::string RegisterNode(char const *type, std::string const &name, std::uint32_t length)
{
    return std::string("<") + type + " Name=\"" + name + "\"><Address>0x10100</Address><Length>" +
           std::to_string(length) + "</Length><AccessMode>RW</AccessMode><pPort>Device</pPort></" + type + ">\n";
}

Addition MakeHugeRegisters()
{
    constexpr std::uint32_t Huge = 0x7FFFFFFF;
    Addition addition;
    addition.Add(RegisterNode("StringReg", "HugeText", Huge), "HugeText");
    addition.Add(RegisterNode("Register", "HugeRegister", Huge), "HugeRegister");
    addition.Add(RegisterNode("IntReg", "HugeNumber", Huge), "HugeNumber");
    addition.Add(RegisterNode("StringReg", "NoText", 0), "NoText");
    return addition;
}

Addition MakeRestless()
{
    constexpr Number Features = 500;
    Addition addition;
    for (Number i = 0; i < Features; ++i)
        addition.Add("<IntReg Name=\"" + Named("Restless", i) +
                         "\"><Address>0x20308</Address><Length>8</Length><AccessMode>RO</AccessMode><pPort>Device"
                         "</pPort><Cachable>NoCache</Cachable><PollingTime>1</PollingTime></IntReg>\n",
                     Named("Restless", i));
    return addition;
}

std::string WithWrongTypes(std::string text)
{
    struct Change
    {
        std::string_view from, to;
    };
    // The good ones are still there, under names that nobody looks for.
    for (Change const &change : {Change{"<Integer Name=\"Width\"", "<Integer Name=\"Width_\""},
                                 Change{"<Integer Name=\"Height\"", "<Integer Name=\"Height_\""},
                                 Change{"<Enumeration Name=\"PixelFormat\"", "<Enumeration Name=\"PixelFormat_\""},
                                 Change{"<Integer Name=\"PayloadSize\"", "<Integer Name=\"PayloadSize_\""}}) {
        if (std::size_t const at = text.find(change.from); at != text.npos)
            text.replace(at, change.from.size(), change.to);
    }
    return text;
}

Addition MakeWrongTypes()
{
    Addition addition;
    addition.Add(RegisterNode("StringReg", "Width", 64), "Width");
    addition.Add("<Command Name=\"Height\"><Value>0</Value><CommandValue>1</CommandValue></Command>\n", "Height");
    addition.Add("<Float Name=\"PixelFormat\"><Value>1e300</Value></Float>\n", "PixelFormat");
    addition.Add("<Category Name=\"PayloadSize\"><pFeature>Width</pFeature></Category>\n", "PayloadSize");
    return addition;
}

std::string MakeDeepFormula()
{
    constexpr Number Depth = 20000;
    return std::string(Depth, '(') + '1' + std::string(Depth, ')');
}

Addition MakeAddition(WireDescription kind)
{
    switch (kind) {
    case WireDescription::Divisions:
        return MakeFormulas({"M / N", "M % N", "N / Z", "N % Z", "M / (N * 1)", "(M / N) % N", "M * N / N",
                             "(Z = 1) ? (M / N) : (M % N)"});
    case WireDescription::Shifts:
        return MakeFormulas({"1 << 64", "N << 65", "N >> 64", "M >> 4000000000", "1 << N", "M >> M", "N << M"});
    case WireDescription::NotNumbers:
        return MakeFormulas({"1e308 * 1e308", "1.0 / Z", "(0.0 - 1.0) / Z", "0.0 / Z", "SQRT(N)", "LN(Z)", "N ** 0.5",
                             "1e300 ** 1e300", "ROUND(1e308 * 10.0) & 1", "~(1e308 * 10.0)", "ASIN(2.0)"});
    case WireDescription::DeepFormula: {
        Addition addition;
        addition.AddFormula("HostileDeep", {}, MakeDeepFormula());
        return addition;
    }
    case WireDescription::DeepNodes:
        return MakeDeepNodes();
    case WireDescription::Selectors:
        return MakeSelectors();
    case WireDescription::ManyFeatures:
        return MakeManyFeatures();
    case WireDescription::ManyEntries:
        return MakeManyEntries();
    case WireDescription::HugeTexts:
        return MakeHugeTexts();
    case WireDescription::Markup:
        return MakeMarkup();
    case WireDescription::HugeRegisters:
        return MakeHugeRegisters();
    case WireDescription::Restless:
        return MakeRestless();
    default:
        return MakeWrongTypes();
    }
}

std::string AddTo(std::string text, Addition const &addition)
{
    constexpr std::string_view End = "</RegisterDescription>";
    std::size_t const root = text.find("<Category Name=\"Root\"");
    std::size_t const feature = root == text.npos ? root : text.find("<pFeature>", root);
    std::size_t const end = text.rfind(End);
    if (feature == text.npos || end == text.npos || feature > end)
        return text;
    text.insert(end, addition.nodes + "<Category Name=\"Hostile\">" + addition.features + "</Category>\n");
    return text.insert(feature, "<pFeature>Hostile</pFeature>");
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
    case WireDescription::WrongTypes:
        return AddTo(WithWrongTypes(std::string(good)), MakeAddition(kind));
    default:
        return kind >= WireDescription::Divisions ? AddTo(std::string(good), MakeAddition(kind)) : std::string(good);
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
