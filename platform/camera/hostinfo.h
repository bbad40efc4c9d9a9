// What the host says of the way to a camera, read from /sys and /proc.
#pragma once

#include "tovcamera.h"

#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

// Lines "Label: value", the values below each other in a fixed pitch. Facts that are not known are left out.
std::string AlignLines(std::vector<std::pair<std::string, std::string>> const &facts);

struct NetworkAdapter
{
    std::string name; // "" when there is none
    std::uint64_t mac = 0;
    std::string mtu, speed, driver; // as an operator reads them, "" when not known
};

// Reads below `root`, which is "" but for tests.
class HostFacts
{
public:
    explicit HostFacts(std::string root = {});
    NetworkAdapter GetAdapter(std::string const &name) const;
    std::string GetReceiveBuffer() const; // the most that a socket may ask for
    std::string GetUsbBuffer() const;     // for all USB transfers of the host together
    std::string GetKernel() const;
    std::string GetUsbSpeed(std::string const &serialNumber) const; // of the device with it

private:
    std::string Read(std::string const &file) const; // the first line, "" when it cannot be read

    std::string const m_root;
};

// The adapter that has the host's address `address` (dotted IPv4), "" when there is none.
std::string FindAdapter(std::string const &address);

// Parameters that never change: integers and texts.
class FixedParams final : public TovCam::ParamArray
{
public:
    FixedParams(std::map<std::string, std::int64_t> const &integers, std::map<std::string, std::string> const &texts);
    ~FixedParams();

    TovCam::EnumParam *GetEnum(char const *name, std::int32_t *error) override;
    TovCam::IntParam *GetInt(char const *name, std::int32_t *error) override;
    TovCam::StringParam *GetString(char const *name, std::int32_t *error) override;
    char const *GetEnumValueStr(char const *name, std::int32_t *error) override;
    std::int32_t SetIntegerValue(char const *name, std::int64_t value) override;
    std::int64_t GetIntegerValue(char const *name, std::int32_t *error) override;
    std::int32_t ExecuteCommand(char const *name) override;
    std::int32_t SetEnumValueStr(char const *name, char const *value) override;
    std::int32_t SetFloatValue(char const *name, double value) override;
    double GetFloatValue(char const *name, std::int32_t *error) override;
    std::int32_t SetBooleanValue(char const *name, bool value) override;
    std::int32_t SetStringValue(char const *name, char const *value) override;

private:
    class Integer;
    class Text;
    std::int32_t Missing(char const *name) const; // why a node of another type is not to be had
    std::int32_t Refuse(char const *name) const;  // a write

    std::map<std::string, std::unique_ptr<Integer>, std::less<>> m_integers;
    std::map<std::string, std::unique_ptr<Text>, std::less<>> m_texts;
};

// The parameters of the interface that a camera is reached by; without a MAC address for none.
std::unique_ptr<FixedParams> MakeInterfaceParams(std::string const &displayName, std::string const &id,
                                                 std::uint64_t const *mac);
