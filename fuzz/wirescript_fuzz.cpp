// A script for cameras on the network: parsed, and run against cameras that do whatever the script's bytes say.
#include "driver.h"

#include "wire/wirescript.h"

namespace {

constexpr std::size_t Cameras = 3;

class Host final : public WireScriptHost
{
public:
    Host(std::uint8_t const *data, std::size_t size) : m_data(data), m_size(size)
    {
    }

    bool HasClient(std::size_t camera) override
    {
        return Next(camera) % 2 == 0;
    }
    std::uint64_t GetClients(std::size_t camera) override
    {
        return Next(camera);
    }
    std::uint64_t GetFrames(std::size_t camera) override
    {
        return Next(camera);
    }
    bool SetFeature(std::size_t camera, std::string const &name, std::string const &, std::string &) override
    {
        return !name.empty() && Next(camera) != 0;
    }
    bool Execute(std::size_t camera, std::string const &name, std::string &) override
    {
        return !name.empty() && Next(camera) != 0;
    }
    bool Die(std::size_t camera, std::string &) override
    {
        return Next(camera) != 0;
    }
    bool Return(std::size_t camera, std::string const &, bool, std::string &) override
    {
        return Next(camera) != 0;
    }
    void Say(std::string const &) override
    {
    }

private:
    std::uint8_t Next(std::size_t camera)
    {
        if (camera >= Cameras)
            FuzzFail("a camera that is none");
        return m_size == 0 ? 1 : m_data[m_at++ % m_size];
    }

    std::uint8_t const *const m_data;
    std::size_t const m_size;
    std::size_t m_at = 0;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const *data, std::size_t size)
{
    constexpr int Steps = 50;
    try {
        WireScript const script({reinterpret_cast<char const *>(data), size}, "script", Cameras);
        Host host(data, size);
        WireScriptRun run(script, host);
        WireScriptRun::Clock::time_point now{};
        for (int i = 0; i < Steps && run.Step(now); ++i)
            now += std::chrono::milliseconds(100);
        std::optional<int> const code = run.GetExitCode();
        if (code && (*code < 0 || *code > 255))
            FuzzFail("an exit code that is none");
        return script.GetLines().empty() ? FuzzRefused : 0;
    } catch (WireScriptError const &error) {
        if (!std::string(error.what()).starts_with("script:"))
            FuzzFail("an error without a place");
        return FuzzRefused;
    }
}
