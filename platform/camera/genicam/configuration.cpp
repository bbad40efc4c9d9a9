// The text form of a configuration.
#include "configuration.h"

#include <glib.h>

#include <memory>
#include <optional>

using namespace TovCam;

namespace {

constexpr char const *HeadGroup = "TovScope camera configuration";
constexpr char const *CameraGroup = "Camera";
constexpr char const *FeatureGroup = "Features";
constexpr char const *SelectorGroup = "Selectors";
constexpr char const *EndGroup = "End";

char const *KindName(std::uint32_t kind)
{
    return kind == InterfaceKindGigEVision ? "GigE Vision" : kind == InterfaceKindUSB3Vision ? "USB3 Vision" : "Other";
}

struct FreeGlib
{
    void operator()(void *memory) const
    {
        g_free(memory);
    }
    void operator()(GKeyFile *file) const
    {
        g_key_file_unref(file);
    }
    void operator()(gchar **list) const
    {
        g_strfreev(list);
    }
};
using KeyFile = std::unique_ptr<GKeyFile, FreeGlib>;

// Null where there is none, or where it is escaped wrongly.
std::optional<std::string> GetText(GKeyFile *file, char const *group, char const *key)
{
    std::unique_ptr<gchar, FreeGlib> const text(g_key_file_get_string(file, group, key, nullptr));
    return text ? std::optional<std::string>(text.get()) : std::nullopt;
}

// The features of a group. Names are not checked: those that no feature has are ignored later. False where a value is
// escaped wrongly.
bool ReadValues(GKeyFile *file, char const *group, std::vector<std::pair<std::string, std::string>> &values)
{
    gsize keys = 0;
    std::unique_ptr<gchar *, FreeGlib> const names(g_key_file_get_keys(file, group, &keys, nullptr));
    bool sound = true;
    for (gsize i = 0; i < keys; ++i) {
        auto value = GetText(file, group, names.get()[i]);
        sound = sound && value;
        values.emplace_back(names.get()[i], value.value_or(""));
    }
    return sound;
}

// "Features GainSelector=All ...": the selectors behind the first word. False where one of them has no value.
bool ReadSelectors(std::string const &group, std::vector<std::pair<std::string, std::string>> &selectors)
{
    for (std::size_t begin = group.find(' '); begin != std::string::npos;) {
        std::size_t const end = group.find(' ', ++begin);
        std::string const word = group.substr(begin, end == std::string::npos ? end : end - begin);
        std::size_t const equals = word.find('=');
        if (equals == std::string::npos)
            return false;
        selectors.emplace_back(word.substr(0, equals), word.substr(equals + 1));
        begin = end;
    }
    return true;
}

CameraIdentity ReadCamera(GKeyFile *file)
{
    CameraIdentity camera;
    std::string const kind = GetText(file, CameraGroup, "Kind").value_or("");
    for (std::uint32_t const one : {InterfaceKindUSB3Vision, InterfaceKindGigEVision}) {
        if (kind == KindName(one))
            camera.kind = one;
    }
    camera.vendor = GetText(file, CameraGroup, "Vendor").value_or("");
    camera.model = GetText(file, CameraGroup, "Model").value_or("");
    camera.serial = GetText(file, CameraGroup, "SerialNumber").value_or("");
    camera.userID = GetText(file, CameraGroup, "UserID").value_or("");
    return camera;
}

} // namespace

std::string Configuration::ToText() const
{
    KeyFile const file(g_key_file_new());
    g_key_file_set_string(file.get(), HeadGroup, "Version", "1");
    auto const say = [&file](char const *group, char const *key, std::string const &text) {
        if (g_utf8_validate(text.data(), static_cast<gssize>(text.size()), nullptr))
            g_key_file_set_string(file.get(), group, key, text.c_str());
    };
    say(CameraGroup, "Kind", KindName(camera.kind));
    say(CameraGroup, "Vendor", camera.vendor);
    say(CameraGroup, "Model", camera.model);
    say(CameraGroup, "SerialNumber", camera.serial);
    say(CameraGroup, "UserID", camera.userID);
    std::size_t values = selectors.size();
    for (Group const &group : groups) {
        std::string name = FeatureGroup;
        for (auto const &[selector, value] : group.selectors)
            name += ' ' + selector + '=' + value;
        for (auto const &[feature, value] : group.values)
            g_key_file_set_string(file.get(), name.c_str(), feature.c_str(), value.c_str());
        values += group.values.size();
    }
    for (auto const &[selector, value] : selectors)
        g_key_file_set_string(file.get(), SelectorGroup, selector.c_str(), value.c_str());
    g_key_file_set_string(file.get(), EndGroup, "Values", std::to_string(values).c_str());
    gsize size = 0;
    std::unique_ptr<gchar, FreeGlib> const text(g_key_file_to_data(file.get(), &size, nullptr));
    return std::string(text.get(), size);
}

std::int32_t Configuration::Parse(std::string const &text)
{
    groups.clear();
    selectors.clear();
    camera = {};
    report = {};
    report.problem = ConfigurationReport::Problem::NoConfiguration;
    KeyFile const file(g_key_file_new());
    if (text.find('\0') != std::string::npos ||
        !g_key_file_load_from_data(file.get(), text.data(), text.size(), G_KEY_FILE_NONE, nullptr) ||
        GetText(file.get(), HeadGroup, "Version") != "1")
        return TOV_CAM_ERR_WRONG_CONFIGURATION;
    camera = ReadCamera(file.get());
    report.vendor = camera.vendor;
    report.model = camera.model;
    report.serial = camera.serial;
    report.problem = ConfigurationReport::Problem::NotWhole;
    if (camera.model.empty())
        return TOV_CAM_ERR_WRONG_CONFIGURATION;

    bool sound = true;
    std::unique_ptr<gchar *, FreeGlib> const names(g_key_file_get_groups(file.get(), nullptr));
    for (gchar **name = names.get(); *name; ++name) {
        std::string const group = *name;
        if (group == SelectorGroup) {
            sound = ReadValues(file.get(), *name, selectors) && sound;
        } else if (group == FeatureGroup || group.rfind(std::string(FeatureGroup) + ' ', 0) == 0) {
            Group &added = groups.emplace_back();
            sound = ReadSelectors(group, added.selectors) && sound;
            sound = ReadValues(file.get(), *name, added.values) && sound;
        }
    }
    std::size_t count = selectors.size();
    for (Group const &group : groups)
        count += group.values.size();
    // A file that has lost its end has lost this too.
    if (!sound || GetText(file.get(), EndGroup, "Values") != std::to_string(count))
        return TOV_CAM_ERR_WRONG_CONFIGURATION;
    report.problem = ConfigurationReport::Problem::None;
    return TOV_CAM_ERR_OK;
}
