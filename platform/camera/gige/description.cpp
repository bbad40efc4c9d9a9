#include "description.h"

#include "controlchannel.h"
#include "genicam/xmlcheck.h"
#include "openwatch.h"
#include "protocol/gigevision.h"
#include "ziparchive.h"

#include <algorithm>
#include <charconv>
#include <strings.h>
#include <vector>

namespace {

constexpr std::size_t ReadStep = 4096; // bytes, after which the progress is told

bool EndsWith(std::string_view text, std::string_view end)
{
    return text.size() >= end.size() &&
           strncasecmp(text.data() + text.size() - end.size(), end.data(), end.size()) == 0;
}

bool StartsWith(std::string_view text, std::string_view start)
{
    return text.size() >= start.size() && strncasecmp(text.data(), start.data(), start.size()) == 0;
}

// Some cameras write "0x" in front.
std::optional<std::uint64_t> ParseHex(std::string_view text)
{
    if (StartsWith(text, "0x"))
        text.remove_prefix(2);
    std::uint64_t value = 0;
    auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, 16);
    if (error != std::errc() || end != text.data() + text.size())
        return std::nullopt;
    return value;
}

// "1.0.0"
bool IsVersion(std::string_view text)
{
    int numbers = 0;
    for (;; ++numbers) {
        unsigned number;
        auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
        if (error != std::errc())
            return false;
        text.remove_prefix(static_cast<std::size_t>(end - text.data()));
        if (text.empty())
            return numbers == 2;
        if (text.front() != '.')
            return false;
        text.remove_prefix(1);
    }
}

// Cuts off what follows the last separator. False where there is none.
bool CutLast(std::string_view &text, char separator, std::string_view &last)
{
    std::size_t const at = text.rfind(separator);
    if (at == std::string_view::npos)
        return false;
    last = text.substr(at + 1);
    text = text.substr(0, at);
    return true;
}

// 0 when there is a good description there.
std::int32_t ReadDescription(ControlChannel &camera, OpenWatch &watch, DescriptionPlace const &place, std::string &xml,
                             std::string &why)
{
    std::vector<std::uint8_t> bytes;
    while (bytes.size() < place.size) {
        watch.SetBytes(bytes.size(), place.size);
        std::size_t const done = bytes.size(), step = std::min(ReadStep, place.size - done);
        bytes.resize(done + step);
        std::int32_t const status =
            camera.ReadMemory(static_cast<std::uint32_t>(place.address + done), std::span(bytes).subspan(done));
        if (status != TOV_CAM_ERR_OK) {
            why = "the camera refuses to send it";
            return status == TOV_CAM_ERR_NO_DEVICE ? status : static_cast<std::int32_t>(TOV_CAM_ERR_GENICAM_TREE);
        }
    }
    watch.SetBytes(bytes.size(), place.size);
    if (place.isArchive || IsZipArchive(bytes)) {
        std::optional<std::string> file = UnpackFirstFile(bytes, GenicamXmlLimit);
        if (!file) {
            why = "its archive cannot be unpacked";
            return TOV_CAM_ERR_GENICAM_TREE;
        }
        xml = std::move(*file);
    } else {
        xml.assign(bytes.begin(), bytes.end());
    }
    return CheckGenicamXml(xml.data(), xml.size(), &why);
}

} // namespace

std::optional<DescriptionPlace> ParseDescriptionUrl(std::string_view url)
{
    constexpr std::string_view Scheme = "local:", Query = "SchemaVersion=";
    if (!StartsWith(url, Scheme))
        return std::nullopt;
    std::string_view rest = url.substr(Scheme.size()), query, size, address;
    if (CutLast(rest, '?', query) && (!StartsWith(query, Query) || !IsVersion(query.substr(Query.size()))))
        return std::nullopt;
    // A name may have semicolons of its own.
    if (!CutLast(rest, ';', size) || !CutLast(rest, ';', address))
        return std::nullopt;
    std::optional<std::uint64_t> const first = ParseHex(address), bytes = ParseHex(size);
    constexpr std::uint64_t Space = std::uint64_t{1} << 32;
    if (!first || !bytes || *bytes == 0 || *bytes > GenicamXmlLimit || *first >= Space || *bytes > Space - *first)
        return std::nullopt;
    return DescriptionPlace{static_cast<std::uint32_t>(*first), static_cast<std::size_t>(*bytes),
                            EndsWith(rest, ".zip")};
}

std::int32_t DownloadDescription(ControlChannel &camera, OpenWatch &watch, std::string &xml, std::string *why)
{
    watch.Enter(TovCam::OpenProgress::Stage::Description);
    std::string first;
    for (std::uint32_t const address : {gvcp::bootstrap::FirstUrl, gvcp::bootstrap::SecondUrl}) {
        std::array<std::uint8_t, gvcp::bootstrap::UrlSize> text;
        std::int32_t status = camera.ReadMemory(address, text);
        std::string const url(text.begin(), std::find(text.begin(), text.end(), 0));
        std::string wrong = "the camera does not say where it is";
        if (status == TOV_CAM_ERR_OK) {
            std::optional<DescriptionPlace> const place = ParseDescriptionUrl(url);
            status = place ? ReadDescription(camera, watch, *place, xml, wrong)
                           : static_cast<std::int32_t>(TOV_CAM_ERR_GENICAM_TREE);
        }
        if (status == TOV_CAM_ERR_OK || status == TOV_CAM_ERR_NO_DEVICE)
            return status;
        if (first.empty())
            first = std::move(wrong);
    }
    if (why)
        *why = std::move(first);
    return TOV_CAM_ERR_GENICAM_TREE;
}
