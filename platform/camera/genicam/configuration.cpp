#include "configuration.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <fcntl.h>
#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <sys/stat.h>
#include <unistd.h>

using namespace TovCam;

namespace {

constexpr std::size_t MaxFile = 8u << 20;
constexpr std::uint64_t MaxCombinations = 4096; // of the values of selectors, for one feature
constexpr int MaxPasses = 10;

constexpr char const *HeadGroup = "TovScope camera configuration";
constexpr char const *CameraGroup = "Camera";
constexpr char const *FeatureGroup = "Features";
constexpr char const *SelectorGroup = "Selectors";
constexpr char const *EndGroup = "End";

char const *KindName(std::uint32_t kind)
{
    return kind == InterfaceKindGigEVision ? "GigE Vision" : kind == InterfaceKindUSB3Vision ? "USB3 Vision" : "Other";
}

// What stands in the file without quoting.
bool IsName(std::string const &text)
{
    return !text.empty() && std::all_of(text.begin(), text.end(), [](char c) {
        return g_ascii_isalnum(c) || c == '_' || c == '.' || c == '-' || c == ':';
    });
}

// ---- Values as text ------------------------------------------------------------------------------------------------

std::optional<std::string> ToText(FeatureKind kind, FeatureValue const &value)
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
        return IsName(value.text) ? std::optional(value.text) : std::nullopt;
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

std::optional<FeatureValue> FromText(FeatureKind kind, std::string const &text)
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
        return IsName(text) ? std::optional(value) : std::nullopt;
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

bool IsSame(FeatureKind kind, FeatureValue const &a, FeatureValue const &b)
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

// ---- What a camera has to store ------------------------------------------------------------------------------------

bool IsSelectorKind(FeatureKind kind)
{
    return kind == FeatureKind::Integer || kind == FeatureKind::Enumeration || kind == FeatureKind::Boolean;
}

// The features of a camera by their parts in a configuration.
class Layout
{
public:
    explicit Layout(NodeMap &nodes) : nodes(nodes), m_selectorsOf(nodes.GetFeatureCount())
    {
        std::uint32_t const count = nodes.GetFeatureCount();
        std::vector<std::vector<std::uint32_t>> direct(count);
        for (std::uint32_t i = 0; i < count; ++i) {
            FeatureInfo const &info = Info(i);
            m_byName.emplace(info.name, i);
            if (!IsSelector(i))
                continue;
            for (std::uint32_t const selected : info.selected)
                direct[selected].push_back(i);
        }
        for (std::uint32_t i = 0; i < count; ++i) {
            if (direct[i].empty() || !(IsSelector(i) || Info(i).streamable))
                continue;
            std::vector<std::uint32_t> &all = m_selectorsOf[i];
            all = direct[i];
            for (std::size_t k = 0; k < all.size(); ++k) {
                for (std::uint32_t const outer : direct[all[k]]) {
                    if (outer != i && std::find(all.begin(), all.end(), outer) == all.end())
                        all.push_back(outer);
                }
            }
        }
        for (std::uint32_t i = 0; i < count; ++i) {
            SortOuterFirst(m_selectorsOf[i]);
            if (IsSelector(i))
                m_selectors.push_back(i);
        }
        SortOuterFirst(m_selectors);
    }

    FeatureInfo const &Info(std::uint32_t index) const
    {
        return *nodes.GetFeature(index);
    }
    bool IsSelector(std::uint32_t index) const
    {
        return !Info(index).selected.empty() && IsSelectorKind(Info(index).kind);
    }
    // Stored as a value, and not among the selectors.
    bool IsStored(std::uint32_t index) const
    {
        return Info(index).streamable && !IsSelector(index) && IsName(Info(index).name);
    }
    std::optional<std::uint32_t> Find(std::string const &name) const
    {
        auto const found = m_byName.find(name);
        return found == m_byName.end() ? std::nullopt : std::optional(found->second);
    }
    std::vector<std::uint32_t> const &GetSelectors() const
    {
        return m_selectors;
    }
    // All that decide which value of the feature is meant, outer ones first.
    std::vector<std::uint32_t> const &GetSelectorsOf(std::uint32_t index) const
    {
        return m_selectorsOf[index];
    }

    // The stored features with the same selectors, those before others that depend on them. Where two depend on each
    // other the description's order decides.
    std::vector<std::uint32_t> InOrder(std::vector<std::uint32_t> const &features) const
    {
        std::map<std::uint32_t, int> waiting; // for how many
        for (std::uint32_t const index : features)
            waiting[index] = 0;
        std::map<std::uint32_t, std::vector<std::uint32_t>> followers;
        auto const follows = [this](std::uint32_t a, std::uint32_t b) {
            std::vector<std::uint32_t> const &all = Info(b).dependents;
            return std::binary_search(all.begin(), all.end(), a);
        };
        for (std::uint32_t const index : features) {
            for (std::uint32_t const other : Info(index).dependents) {
                if (other == index || !waiting.contains(other) || follows(index, other))
                    continue;
                followers[index].push_back(other);
                ++waiting[other];
            }
        }
        std::vector<std::uint32_t> order;
        std::set<std::uint32_t> ready, rest(features.begin(), features.end());
        for (auto const &[index, count] : waiting) {
            if (count == 0)
                ready.insert(index);
        }
        while (!rest.empty()) {
            std::uint32_t const next = ready.empty() ? *rest.begin() : *ready.begin();
            ready.erase(next);
            rest.erase(next);
            order.push_back(next);
            for (std::uint32_t const other : followers[next]) {
                if (--waiting[other] == 0 && rest.contains(other))
                    ready.insert(other);
            }
        }
        return order;
    }

    NodeMap &nodes;

private:
    void SortOuterFirst(std::vector<std::uint32_t> &selectors) const
    {
        std::sort(selectors.begin(), selectors.end(), [this](std::uint32_t a, std::uint32_t b) {
            return std::pair(m_selectorsOf[a].size(), a) < std::pair(m_selectorsOf[b].size(), b);
        });
    }

    std::map<std::string, std::uint32_t, std::less<>> m_byName;
    std::vector<std::uint32_t> m_selectors;
    std::vector<std::vector<std::uint32_t>> m_selectorsOf;
};

// Selectors as they are now, put back at the end.
class SelectorGuard
{
public:
    explicit SelectorGuard(Layout &layout) : m_layout(layout)
    {
        for (std::uint32_t const index : layout.GetSelectors()) {
            FeatureState state;
            if (layout.nodes.ReadValue(index, &state) == TOV_CAM_ERR_OK && state.access == FeatureAccess::ReadWrite &&
                state.valueStatus == TOV_CAM_ERR_OK)
                m_values.emplace_back(index, state.value);
        }
    }
    ~SelectorGuard()
    {
        if (m_moved) {
            for (auto const &[index, value] : m_values)
                Write(index, value);
        }
    }
    // 0 when the selector has the value.
    std::int32_t Set(std::uint32_t index, FeatureValue const &value)
    {
        FeatureKind const kind = m_layout.Info(index).kind;
        FeatureState state;
        std::int32_t status = m_layout.nodes.ReadValue(index, &state);
        if (status == TOV_CAM_ERR_OK && state.access >= FeatureAccess::ReadOnly &&
            state.valueStatus == TOV_CAM_ERR_OK && IsSame(kind, state.value, value))
            return TOV_CAM_ERR_OK;
        m_moved = true;
        return status == TOV_CAM_ERR_OK ? m_layout.nodes.WriteFeature(index, value) : status;
    }
    // What a selector shall have at the end.
    void SetFinal(std::uint32_t index, FeatureValue const &value)
    {
        auto const known =
            std::find_if(m_values.begin(), m_values.end(), [index](auto const &one) { return one.first == index; });
        if (known != m_values.end())
            known->second = value;
        m_moved = true;
    }
    std::vector<std::pair<std::uint32_t, FeatureValue>> const &GetValues() const
    {
        return m_values;
    }
    // At once, instead of at the end: 0, or why the first one failed, which is added to `refused`.
    std::int32_t PutBack(std::vector<std::pair<std::uint32_t, RefusedSetting>> *refused)
    {
        std::int32_t first = TOV_CAM_ERR_OK;
        for (auto const &[index, value] : m_values) {
            std::int32_t const status = Set(index, value);
            if (first != TOV_CAM_ERR_OK || status == TOV_CAM_ERR_OK)
                continue;
            first = status;
            FeatureInfo const &info = m_layout.Info(index);
            refused->push_back({index, {info.name, {}, ::ToText(info.kind, value).value_or(""), {}, status}});
        }
        m_moved = false;
        return first;
    }

private:
    void Write(std::uint32_t index, FeatureValue const &value)
    {
        m_layout.nodes.WriteFeature(index, value);
    }

    Layout &m_layout;
    std::vector<std::pair<std::uint32_t, FeatureValue>> m_values; // outer ones first
    bool m_moved = false;
};

// ---- Files ---------------------------------------------------------------------------------------------------------

class File
{
public:
    explicit File(int descriptor) : m_descriptor(descriptor)
    {
    }
    ~File()
    {
        Close();
    }
    File(File const &) = delete;
    File &operator=(File const &) = delete;
    int Get() const
    {
        return m_descriptor;
    }
    bool Close()
    {
        int const descriptor = std::exchange(m_descriptor, -1);
        return descriptor < 0 || close(descriptor) == 0;
    }

private:
    int m_descriptor;
};

bool WriteAll(int descriptor, std::string const &text)
{
    for (std::size_t done = 0; done < text.size();) {
        ssize_t const written = write(descriptor, text.data() + done, text.size() - done);
        if (written < 0 && errno != EINTR)
            return false;
        done += static_cast<std::size_t>(std::max<ssize_t>(written, 0));
    }
    return true;
}

bool Copy(std::string const &from, std::string const &to)
{
    File const source(open(from.c_str(), O_RDONLY | O_CLOEXEC));
    struct stat status;
    if (source.Get() < 0 || fstat(source.Get(), &status) != 0)
        return false;
    File target(open(to.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, status.st_mode & 0777));
    if (target.Get() < 0)
        return false;
    std::string block(65536, '\0');
    for (;;) {
        ssize_t const got = read(source.Get(), block.data(), block.size());
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0 || !WriteAll(target.Get(), block.substr(0, static_cast<std::size_t>(got))))
            return false;
        if (got == 0)
            return fsync(target.Get()) == 0 && target.Close();
    }
}

// The file gets a second name, which it has still when another one takes its first: 0, or an errno, and all is as it
// was.
int KeepAs(std::string const &file, std::string const &name)
{
    std::string const temporary = name + '.' + std::to_string(g_random_int()) + ".part";
    // Not every file system has links.
    bool const kept = (link(file.c_str(), temporary.c_str()) == 0 || Copy(file, temporary)) &&
                      rename(temporary.c_str(), name.c_str()) == 0;
    int const error = errno;
    unlink(temporary.c_str()); // also where both names were the same file already: nothing is renamed then
    return kept ? 0 : error;
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

} // namespace

// ---- Taking from a camera ------------------------------------------------------------------------------------------

std::int32_t Configuration::Take(NodeMap &nodes)
{
    groups.clear();
    selectors.clear();
    Layout layout(nodes);
    SelectorGuard guard(layout);
    std::int32_t failure = TOV_CAM_ERR_OK;
    std::vector<std::pair<std::uint32_t, RefusedSetting>> disobedient;

    // While frames run the format is locked, and belongs into the file all the same. What another feature has locked
    // has no effect as things are.
    std::set<std::uint32_t> lockedByTransport;
    std::int32_t error = 0;
    if (nodes.GetIntegerValue("TLParamsLocked", &error) != 0 && error == 0) {
        if (auto const index = layout.Find("TLParamsLocked")) {
            std::vector<std::uint32_t> const &all = layout.Info(*index).dependents;
            lockedByTransport.insert(all.begin(), all.end());
        }
    }
    auto const take = [&](Group &group, std::uint32_t index) {
        FeatureRole role;
        FeatureState state;
        std::int32_t status = nodes.GetRole(index, &role);
        if (status == TOV_CAM_ERR_OK && role.available && role.writable &&
            (!role.locked || lockedByTransport.contains(index))) {
            status = nodes.ReadValue(index, &state);
            if (status == TOV_CAM_ERR_OK)
                status = state.valueStatus;
            if (status == TOV_CAM_ERR_OK && state.access >= FeatureAccess::ReadOnly) {
                if (auto text = ::ToText(layout.Info(index).kind, state.value))
                    group.values.emplace_back(layout.Info(index).name, std::move(*text));
            }
        }
        // One feature that cannot be read does not keep the others from the file; a camera that is gone does.
        if (status == TOV_CAM_ERR_NO_DEVICE)
            failure = status;
    };

    std::vector<std::vector<std::uint32_t>> lists; // of selectors, in the order of the features they belong to
    std::map<std::vector<std::uint32_t>, std::vector<std::uint32_t>> features;
    for (std::uint32_t i = 0; i < nodes.GetFeatureCount(); ++i) {
        if (!layout.IsStored(i))
            continue;
        auto const [place, isNew] = features.try_emplace(layout.GetSelectorsOf(i));
        place->second.push_back(i);
        if (isNew)
            lists.push_back(place->first);
    }
    std::stable_partition(lists.begin(), lists.end(), [](auto const &list) { return list.empty(); });

    for (std::vector<std::uint32_t> const &list : lists) {
        std::vector<std::uint32_t> const order = layout.InOrder(features[list]);
        std::uint64_t combinations = 0;
        Group group;
        std::function<void(std::size_t)> const walk = [&](std::size_t depth) {
            if (failure != TOV_CAM_ERR_OK || combinations > MaxCombinations)
                return;
            if (depth == list.size()) {
                ++combinations;
                for (std::uint32_t const index : order)
                    take(group, index);
                if (!group.values.empty())
                    groups.push_back(group);
                group.values.clear();
                return;
            }
            std::uint32_t const selector = list[depth];
            FeatureInfo const &info = layout.Info(selector);
            FeatureState state;
            failure = nodes.ReadFeature(selector, &state);
            if (failure != TOV_CAM_ERR_OK)
                return;
            std::vector<FeatureValue> choices;
            if (state.access < FeatureAccess::ReadOnly) {
                walk(depth + 1); // as if there were no such selector
                return;
            }
            if (state.access == FeatureAccess::ReadOnly) {
                choices.push_back(state.value);
            } else if (info.kind == FeatureKind::Enumeration) {
                for (std::uint32_t const entry : state.available)
                    choices.emplace_back().text = info.entries[entry].name;
            } else {
                std::int64_t const last = info.kind == FeatureKind::Boolean ? 1 : state.maximum;
                std::int64_t value = info.kind == FeatureKind::Boolean ? 0 : state.minimum;
                // A table that is larger is not walked.
                std::uint64_t const steps = (static_cast<std::uint64_t>(last) - static_cast<std::uint64_t>(value)) /
                                            static_cast<std::uint64_t>(state.increment);
                if (value > last || steps >= MaxCombinations)
                    choices.push_back(state.value);
                else
                    for (std::uint64_t k = 0; k <= steps; ++k, value += state.increment)
                        choices.emplace_back().integer = value;
            }
            for (FeatureValue const &choice : choices) {
                auto text = ::ToText(info.kind, choice);
                if (!text || !IsName(info.name))
                    continue;
                std::int32_t const status = guard.Set(selector, choice);
                if (status != TOV_CAM_ERR_OK) {
                    failure = status == TOV_CAM_ERR_NO_DEVICE ? status : TOV_CAM_ERR_GENICAM_GENERIC;
                    disobedient.push_back({selector, {info.name, {}, *text, {}, status}});
                    return;
                }
                group.selectors.emplace_back(info.name, std::move(*text));
                walk(depth + 1);
                group.selectors.pop_back();
                if (failure != TOV_CAM_ERR_OK)
                    return;
            }
            // A selector may have a value of its own for each value of an outer one.
            if (state.access == FeatureAccess::ReadWrite && state.valueStatus == TOV_CAM_ERR_OK &&
                guard.Set(selector, state.value) != TOV_CAM_ERR_OK) {
                failure = TOV_CAM_ERR_GENICAM_GENERIC;
                disobedient.push_back({selector, {info.name, {}, {}, {}, failure}});
            }
        };
        walk(0);
    }
    for (auto const &[index, value] : guard.GetValues()) {
        auto text = ::ToText(layout.Info(index).kind, value);
        if (text && IsName(layout.Info(index).name))
            selectors.emplace_back(layout.Info(index).name, std::move(*text));
    }
    std::int32_t const back = guard.PutBack(&disobedient);
    if (failure == TOV_CAM_ERR_OK && back != TOV_CAM_ERR_OK)
        failure = back == TOV_CAM_ERR_NO_DEVICE ? back : TOV_CAM_ERR_GENICAM_GENERIC;
    if (failure == TOV_CAM_ERR_GENICAM_GENERIC && !disobedient.empty()) {
        report.problem = ConfigurationReport::Problem::Selector;
        report.refused = {disobedient.front().second};
    }
    return failure;
}

// ---- Applying to a camera ------------------------------------------------------------------------------------------

namespace {

struct Target
{
    std::uint32_t index;
    FeatureValue value;
    std::string text;         // as the file has it
    std::int32_t status = 0;  // as the last pass found it: 1 where the camera has another value
    std::int32_t refusal = 0; // of the last attempt to write it
    std::string present;      // the camera's value, once the last pass of all is through
    bool streamLocked = false;
};

struct TargetGroup
{
    std::vector<Target> selectors, values;
};

// Brings one feature to its value: 0 where it has it already, 1 where it was changed, or why it could not be.
std::int32_t Bring(Layout &layout, Target const &target, bool write)
{
    NodeMap &nodes = layout.nodes;
    FeatureKind const kind = layout.Info(target.index).kind;
    FeatureState state;
    auto const has = [&] {
        std::int32_t const status = nodes.ReadValue(target.index, &state);
        if (status != TOV_CAM_ERR_OK)
            return status;
        if (state.access == FeatureAccess::NotImplemented)
            return std::int32_t{TOV_CAM_ERR_OK}; // as good as unknown
        if (state.access < FeatureAccess::ReadOnly)
            return std::int32_t{TOV_CAM_ERR_GENICAM_ACCESS};
        if (state.valueStatus != TOV_CAM_ERR_OK)
            return state.valueStatus;
        return IsSame(kind, state.value, target.value) ? std::int32_t{TOV_CAM_ERR_OK} : 1;
    };
    std::int32_t status = has();
    if (status == TOV_CAM_ERR_OK || status == TOV_CAM_ERR_NO_DEVICE || !write)
        return status;
    status = nodes.WriteFeature(target.index, target.value);
    if (status != TOV_CAM_ERR_OK || kind != FeatureKind::Float)
        return status == TOV_CAM_ERR_OK ? 1 : status;
    // On its way through the camera's formulas a number may have come out a hair below the one that was meant.
    for (double const nudge : {4.0, -4.0}) {
        if (has() != 1)
            break;
        FeatureValue value = target.value;
        value.real *= 1.0 + nudge * std::numeric_limits<double>::epsilon();
        nodes.WriteFeature(target.index, value);
    }
    return 1;
}

// What a file has for this camera.
class Targets
{
public:
    Targets(Layout const &layout, Configuration const &configuration, bool sameCamera) : m_layout(layout)
    {
        auto const isSelector = [&](std::uint32_t index) {
            return layout.IsSelector(index);
        };
        for (Configuration::Group const &group : configuration.groups) {
            TargetGroup resolved;
            bool known = true;
            for (auto const &[name, text] : group.selectors) {
                if (auto target = Resolve(name, text, isSelector))
                    resolved.selectors.push_back(std::move(*target));
                else
                    known = false;
            }
            for (auto const &[name, text] : group.values) {
                // A camera keeps its own name, whoever's settings it gets.
                if (!sameCamera && (name == "DeviceUserID" || name == "DeviceUserDefinedName"))
                    continue;
                if (auto target = Resolve(name, text, [&](std::uint32_t index) { return layout.IsStored(index); }))
                    resolved.values.push_back(std::move(*target));
            }
            if (known && !resolved.values.empty())
                groups.push_back(std::move(resolved));
        }
        for (auto const &[name, text] : configuration.selectors) {
            if (auto target = Resolve(name, text, isSelector))
                finals.push_back(std::move(*target));
        }
    }

    std::vector<TargetGroup> groups;
    std::vector<Target> finals; // the selectors themselves
    // The first value that is none for its feature.
    std::optional<RefusedSetting> misunderstood;

private:
    template<class Wanted>
    std::optional<Target> Resolve(std::string const &name, std::string const &text, Wanted const &wanted)
    {
        auto const index = m_layout.Find(name);
        if (!index || !wanted(*index))
            return std::nullopt;
        if (auto value = FromText(m_layout.Info(*index).kind, text))
            return Target{*index, std::move(*value), text, 0, 0, {}, false};
        if (!misunderstood)
            misunderstood = RefusedSetting{name, {}, text, {}, TOV_CAM_ERR_WRONG_CONFIGURATION};
        return std::nullopt;
    }

    Layout const &m_layout;
};

class Applier
{
public:
    Applier(Layout &layout, Targets &targets) : m_layout(layout), m_targets(targets), m_guard(layout)
    {
    }

    // 0, or why the first setting failed of those that did.
    std::int32_t Run()
    {
        // A value may be refused as long as another one is in its way, and may change others: once more, until that
        // does not help any longer.
        std::int32_t why = TOV_CAM_ERR_OK;
        std::size_t best = std::numeric_limits<std::size_t>::max();
        int idle = 0;
        for (int i = 0; i < MaxPasses && idle < 2 && why != TOV_CAM_ERR_NO_DEVICE; ++i) {
            std::size_t const different = Pass(true, why);
            if (different == 0)
                break;
            idle = different < best ? 0 : idle + 1;
            best = std::min(best, different);
        }
        std::int32_t left = TOV_CAM_ERR_OK;
        if (why != TOV_CAM_ERR_OK && why != TOV_CAM_ERR_NO_DEVICE) {
            if (Pass(false, left) == 0)
                why = TOV_CAM_ERR_OK;
            else if (left != TOV_CAM_ERR_NO_DEVICE)
                CollectRefused();
        }
        for (Target const &target : m_targets.finals)
            m_guard.SetFinal(target.index, target.value);
        std::int32_t const back = m_guard.PutBack(&refused);
        if (why == TOV_CAM_ERR_OK)
            why = back;
        if (why == TOV_CAM_ERR_NO_DEVICE)
            refused.clear();
        // Taken without a word, and not kept.
        return why > 0 ? static_cast<std::int32_t>(TOV_CAM_ERR_GENICAM_GENERIC) : why;
    }

    std::vector<std::pair<std::uint32_t, RefusedSetting>> refused; // by the index of the feature

private:
    // How many features differ from the file, as each is come by, and why the first of them does.
    std::size_t Pass(bool write, std::int32_t &why)
    {
        std::size_t different = 0;
        why = TOV_CAM_ERR_OK;
        for (TargetGroup &group : m_targets.groups) {
            // Selectors that have a value of their own for each value of an outer one.
            std::vector<std::pair<std::uint32_t, FeatureValue>> inner;
            std::int32_t const selected = Select(group, inner);
            for (Target &target : group.values) {
                target.status = selected != TOV_CAM_ERR_OK ? selected : Bring(m_layout, target, write);
                if (write)
                    target.refusal = target.status;
                if (target.status == TOV_CAM_ERR_OK)
                    continue;
                ++different;
                if (why == TOV_CAM_ERR_OK || target.status == TOV_CAM_ERR_NO_DEVICE)
                    why = target.status;
                if (why == TOV_CAM_ERR_NO_DEVICE)
                    return different;
                if (!write && selected == TOV_CAM_ERR_OK)
                    Describe(target);
            }
            for (auto i = inner.rbegin(); i != inner.rend(); ++i)
                m_guard.Set(i->first, i->second);
        }
        return different;
    }

    std::int32_t Select(TargetGroup const &group, std::vector<std::pair<std::uint32_t, FeatureValue>> &inner)
    {
        for (Target const &selector : group.selectors) {
            FeatureState state;
            if (!m_layout.GetSelectorsOf(selector.index).empty() &&
                m_layout.nodes.ReadValue(selector.index, &state) == TOV_CAM_ERR_OK &&
                state.access == FeatureAccess::ReadWrite && state.valueStatus == TOV_CAM_ERR_OK)
                inner.emplace_back(selector.index, state.value);
            if (std::int32_t const status = m_guard.Set(selector.index, selector.value); status != TOV_CAM_ERR_OK)
                return status;
        }
        return TOV_CAM_ERR_OK;
    }

    // What the camera has in its place, while its selectors stand as the file has them.
    void Describe(Target &target)
    {
        FeatureState state;
        if (m_layout.nodes.ReadFeature(target.index, &state) != TOV_CAM_ERR_OK)
            return;
        target.streamLocked = state.streamLocked;
        if (state.access >= FeatureAccess::ReadOnly && state.valueStatus == TOV_CAM_ERR_OK)
            target.present = ToText(m_layout.Info(target.index).kind, state.value).value_or("");
    }

    void CollectRefused()
    {
        for (TargetGroup const &group : m_targets.groups) {
            std::string selectors;
            for (Target const &selector : group.selectors)
                selectors += (selectors.empty() ? "" : " ") + m_layout.Info(selector.index).name + '=' + selector.text;
            for (Target const &target : group.values) {
                if (target.status == TOV_CAM_ERR_OK)
                    continue;
                std::int32_t const why = target.status < 0 ? target.status : std::min(target.refusal, 0);
                refused.push_back({target.index,
                                   {m_layout.Info(target.index).name, selectors, target.text, target.present, why,
                                    target.streamLocked}});
            }
        }
    }

    Layout &m_layout;
    Targets &m_targets;
    SelectorGuard m_guard;
};

} // namespace

std::int32_t Configuration::Apply(NodeMap &nodes, bool sameCamera)
{
    nodes.SetRefused({});
    Layout layout(nodes);
    // Everything is understood before anything is written.
    Targets targets(layout, *this, sameCamera);
    if (targets.misunderstood) {
        report.problem = ConfigurationReport::Problem::NoValue;
        report.refused = {*targets.misunderstood};
        return TOV_CAM_ERR_WRONG_CONFIGURATION;
    }
    Applier applier(layout, targets);
    std::int32_t const status = applier.Run();
    report.settings = targets.finals.size();
    for (TargetGroup const &group : targets.groups)
        report.settings += group.values.size();
    std::map<std::uint32_t, std::vector<RefusedSetting>> byFeature;
    for (auto &[index, setting] : applier.refused) {
        report.refused.push_back(setting);
        byFeature[index].push_back(std::move(setting));
    }
    nodes.SetRefused(std::move(byFeature));
    return status;
}

// ---- The file ------------------------------------------------------------------------------------------------------

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
    std::string const kind = GetText(file.get(), CameraGroup, "Kind").value_or("");
    for (std::uint32_t const one : {InterfaceKindUSB3Vision, InterfaceKindGigEVision}) {
        if (kind == KindName(one))
            camera.kind = one;
    }
    camera.vendor = GetText(file.get(), CameraGroup, "Vendor").value_or("");
    camera.model = GetText(file.get(), CameraGroup, "Model").value_or("");
    camera.serial = GetText(file.get(), CameraGroup, "SerialNumber").value_or("");
    camera.userID = GetText(file.get(), CameraGroup, "UserID").value_or("");
    report.vendor = camera.vendor;
    report.model = camera.model;
    report.serial = camera.serial;
    report.problem = ConfigurationReport::Problem::NotWhole;
    if (camera.model.empty())
        return TOV_CAM_ERR_WRONG_CONFIGURATION;

    std::size_t count = 0;
    bool sound = true;
    // The features of a group. Names are not looked at: a camera does not know those that are none.
    auto const readValues = [&](char const *group, std::vector<std::pair<std::string, std::string>> &values) {
        gsize keys = 0;
        std::unique_ptr<gchar *, FreeGlib> const names(g_key_file_get_keys(file.get(), group, &keys, nullptr));
        for (gsize i = 0; i < keys; ++i) {
            auto value = GetText(file.get(), group, names.get()[i]);
            sound = sound && value;
            values.emplace_back(names.get()[i], value.value_or(""));
        }
        count += keys;
    };
    std::unique_ptr<gchar *, FreeGlib> const names(g_key_file_get_groups(file.get(), nullptr));
    for (gchar **name = names.get(); *name; ++name) {
        std::string const group = *name;
        if (group == SelectorGroup) {
            readValues(*name, selectors);
            continue;
        }
        if (group != FeatureGroup && group.rfind(std::string(FeatureGroup) + ' ', 0) != 0)
            continue;
        Group &added = groups.emplace_back();
        for (std::size_t begin = group.find(' '); begin != std::string::npos;) {
            std::size_t const end = group.find(' ', ++begin);
            std::string const word = group.substr(begin, end == std::string::npos ? end : end - begin);
            std::size_t const equals = word.find('=');
            sound = sound && equals != std::string::npos;
            if (sound)
                added.selectors.emplace_back(word.substr(0, equals), word.substr(equals + 1));
            begin = end;
        }
        readValues(*name, added.values);
    }
    // A file that has lost its end has lost this too.
    if (!sound || GetText(file.get(), EndGroup, "Values") != std::to_string(count))
        return TOV_CAM_ERR_WRONG_CONFIGURATION;
    report.problem = ConfigurationReport::Problem::None;
    return TOV_CAM_ERR_OK;
}

std::int32_t Configuration::Read(char const *path)
{
    report = {};
    camera = {};
    auto const failed = [this](int error, std::int32_t status) {
        report.problem = ConfigurationReport::Problem::File;
        report.systemError = error;
        return status;
    };
    // Not to be held up by a pipe.
    File const file(open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (file.Get() < 0)
        return failed(errno, errno == ENOENT || errno == ENOTDIR ? TOV_CAM_ERR_FILE_NOT_FOUND : TOV_CAM_ERR_FILE_READ);
    struct stat status;
    if (fstat(file.Get(), &status) != 0)
        return failed(errno, TOV_CAM_ERR_FILE_READ);
    if (!S_ISREG(status.st_mode))
        return failed(S_ISDIR(status.st_mode) ? EISDIR : EINVAL, TOV_CAM_ERR_FILE_READ);
    if (static_cast<std::uint64_t>(status.st_size) > MaxFile) {
        report.problem = ConfigurationReport::Problem::NoConfiguration;
        return TOV_CAM_ERR_WRONG_CONFIGURATION;
    }
    std::string text(static_cast<std::size_t>(status.st_size), '\0');
    std::size_t size = 0;
    for (ssize_t got = 1; got != 0 && size < text.size(); size += static_cast<std::size_t>(std::max<ssize_t>(got, 0))) {
        got = read(file.Get(), text.data() + size, text.size() - size);
        if (got < 0 && errno != EINTR)
            return failed(errno, TOV_CAM_ERR_FILE_READ);
    }
    text.resize(size);
    return Parse(text);
}

std::int32_t Configuration::Write(char const *path)
{
    auto const failed = [this](ConfigurationReport::Problem problem, int error, std::int32_t status) {
        report.problem = problem;
        report.systemError = error;
        return status;
    };
    using enum ConfigurationReport::Problem;
    // Behind a link the file itself is replaced.
    std::unique_ptr<char, decltype(&std::free)> const resolved(realpath(path, nullptr), std::free);
    std::string const target = resolved ? resolved.get() : path;
    struct stat old;
    bool const exists = stat(target.c_str(), &old) == 0;
    if (exists && !S_ISREG(old.st_mode))
        return failed(File, S_ISDIR(old.st_mode) ? EISDIR : EINVAL, TOV_CAM_ERR_FILE_NOT_FOUND);
    if (exists && access(target.c_str(), W_OK) != 0)
        return failed(File, errno, TOV_CAM_ERR_FILE_NOT_FOUND);
    std::string const temporary = target + '.' + std::to_string(g_random_int()) + ".part";
    ::File file(open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
    if (file.Get() < 0)
        return failed(File, errno, TOV_CAM_ERR_FILE_NOT_FOUND);
    auto const giveUp = [&](ConfigurationReport::Problem problem, int error, std::int32_t status) {
        unlink(temporary.c_str());
        return failed(problem, error, status);
    };
    if (!WriteAll(file.Get(), ToText()) || (exists && fchmod(file.Get(), old.st_mode & 07777) != 0) ||
        fsync(file.Get()) != 0 || !file.Close())
        return giveUp(File, errno, TOV_CAM_ERR_UNKNOWN);
    if (exists && old.st_size > 0 && IsOfAnother(target)) {
        if (int const error = KeepAs(target, target + '~'))
            return giveUp(NotKept, error, TOV_CAM_ERR_FILE_NOT_FOUND);
        report.keptAs = target + '~';
    }
    if (rename(temporary.c_str(), target.c_str()) != 0)
        return giveUp(File, errno, TOV_CAM_ERR_UNKNOWN);
    // The new name is to last as well.
    std::size_t const slash = target.rfind('/');
    ::File const folder(open(slash == std::string::npos ? "." : target.substr(0, slash + 1).c_str(),
                             O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (folder.Get() >= 0)
        fsync(folder.Get());
    return TOV_CAM_ERR_OK;
}

// Whether a file is not known to be this camera's; who it is of goes into the report.
bool Configuration::IsOfAnother(std::string const &file)
{
    Configuration other;
    other.Read(file.c_str());
    report.vendor = other.camera.vendor;
    report.model = other.camera.model;
    report.serial = other.camera.serial;
    return other.camera.vendor != camera.vendor || other.camera.model != camera.model ||
           other.camera.serial != camera.serial;
}
