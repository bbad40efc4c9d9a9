// The node map of a camera for the feature tree, made by the test: features in categories, values that the test sets,
// accesses that it holds up, and a log of them.
//
// Any thread; the features are made before the first access.
#pragma once

#include "../support/bareparams.h"

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

class FeatureCamera final : public BareParams, public std::enable_shared_from_this<FeatureCamera>
{
public:
    using Index = std::uint32_t;

    FeatureCamera()
    {
        Add("Root", TovCam::FeatureKind::Category, 0);
    }

    // A feature at the end of a category, readable and writable, or a category. `setUp` changes what it is.
    Index Add(std::string const &name, TovCam::FeatureKind kind, Index category,
              std::function<void(TovCam::FeatureInfo &, TovCam::FeatureState &)> const &setUp = {})
    {
        auto const index = Index(m_infos.size());
        auto &info = *m_infos.emplace_back(std::make_unique<TovCam::FeatureInfo>());
        TovCam::FeatureState &state = m_states.emplace_back();
        info.name = info.displayName = name;
        info.kind = kind;
        state.access = TovCam::FeatureAccess::ReadWrite;
        state.maximum = 100;
        state.realMaximum = 100.0;
        if (setUp)
            setUp(info, state);
        for (std::size_t i = 0; i < info.entries.size() && state.available.empty(); ++i)
            for (Index entry = 0; entry < info.entries.size(); ++entry)
                state.available.push_back(entry);
        if (index != 0)
            m_infos[category]->children.push_back(index);
        return index;
    }
    TovCam::FeatureInfo &Info(Index feature)
    {
        return *m_infos[feature];
    }

    // Changes or reads a state under the camera's lock.
    template<typename F>
    auto With(Index feature, F f)
    {
        std::lock_guard const lock(m_mutex);
        return f(m_states[feature]);
    }
    // "r1 w2 a2": reads, writes and questions by feature; forgets them.
    std::string TakeLog()
    {
        std::lock_guard const lock(m_mutex);
        return std::exchange(m_log, {});
    }
    void Hold(bool on) // accesses wait inside the camera
    {
        m_held = on;
        m_held.notify_all();
    }

    std::function<void(Index)> onWrite; // under the lock; may change states by Unlocked
    std::atomic<std::int32_t> readStatus{0}, writeStatus{0};
    std::atomic<int> running{0}, reads{0};
    std::atomic<bool> commandDone{true};

    TovCam::FeatureState &Unlocked(Index feature)
    {
        return m_states[feature];
    }

    FAKE_GIVES(std::uint32_t GetFeatureCount(), (Wait(), Index(m_infos.size())));
    FAKE_GIVES(TovCam::FeatureInfo const *GetFeature(Index feature),
               feature < m_infos.size() ? m_infos[feature].get() : nullptr);
    std::int32_t ReadFeature(Index feature, TovCam::FeatureState *state) override
    {
        Wait();
        ++reads;
        std::lock_guard const lock(m_mutex);
        Log("r", feature);
        if (readStatus == 0)
            *state = m_states[feature];
        return readStatus;
    }
    std::int32_t WriteFeature(Index feature, TovCam::FeatureValue const &value) override
    {
        Wait();
        std::lock_guard const lock(m_mutex);
        Log("w", feature);
        if (writeStatus)
            return writeStatus;
        m_states[feature].value = value;
        if (onWrite)
            onWrite(feature);
        return 0;
    }
    std::int32_t IsCommandDone(Index feature, bool *done) override
    {
        Wait();
        std::lock_guard const lock(m_mutex);
        Log("a", feature);
        *done = commandDone;
        return 0;
    }
    FAKE_GIVES(std::shared_ptr<void> Hold(), shared_from_this());

private:
    void Log(char const *access, Index feature)
    {
        m_log += (m_log.empty() ? "" : " ") + (access + std::to_string(feature));
    }
    void Wait()
    {
        ++running;
        m_held.wait(true);
        --running;
    }

    std::atomic<bool> m_held{false};
    std::vector<std::unique_ptr<TovCam::FeatureInfo>> m_infos;
    std::mutex m_mutex; // guards the next two
    std::vector<TovCam::FeatureState> m_states;
    std::string m_log;
};

// One feature of each kind that has an editor of its own, in two categories, and what hangs on a selector.
struct SampleCamera
{
    std::shared_ptr<FeatureCamera> camera = std::make_shared<FeatureCamera>();
    FeatureCamera::Index image, transport, width, exposure, gain, mask, selector, flag, run, memory, counter;

    SampleCamera()
    {
        using enum TovCam::FeatureKind;
        using TovCam::FeatureInfo, TovCam::FeatureState, TovCam::FeatureRepresentation, TovCam::FeatureVisibility;
        FeatureCamera &c = *camera;
        auto const number = [](FeatureRepresentation representation, std::int64_t value, std::int64_t minimum,
                               std::int64_t maximum, std::int64_t increment) {
            return [=](FeatureInfo &info, FeatureState &state) {
                info.representation = representation;
                state.value.integer = value;
                state.minimum = minimum;
                state.maximum = maximum;
                state.increment = increment;
            };
        };
        image = c.Add("ImageFormatControl", Category, 0);
        transport = c.Add("TransportLayerControl", Category, 0);
        width = c.Add("Width", Integer, image, number(FeatureRepresentation::PureNumber, 640, 16, 2048, 16));
        exposure = c.Add("ExposureTime", Float, image, [](FeatureInfo &info, FeatureState &) {
            info.displayName = "Exposure Time";
            info.description = "How long the sensor collects light.";
        });
        selector = c.Add("GainSelector", Enumeration, image, [](FeatureInfo &info, FeatureState &state) {
            for (char const *entry : {"All", "Red", "Green", "Blue"}) {
                info.entries.push_back(
                    {entry, entry, "", std::int64_t(info.entries.size()), FeatureVisibility::Beginner});
            }
            state.available = {0, 1, 3}; // no green now
            state.value.text = "All";
        });
        gain = c.Add("Gain", Integer, image, number(FeatureRepresentation::Linear, 5, 0, 48, 1));
        flag = c.Add("ReverseX", Boolean, image);
        run = c.Add("TriggerSoftware", Command, image);
        mask = c.Add("EventMask", Integer, transport, number(FeatureRepresentation::HexNumber, 0x1F, 0, 0xFFFF, 1));
        memory = c.Add("FileAccessBuffer", Register, transport, [](FeatureInfo &info, FeatureState &state) {
            info.visibility = FeatureVisibility::Guru;
            state.access = TovCam::FeatureAccess::ReadOnly;
            state.value.text = std::string("\x01\xAB\0z", 4);
            state.length = 4;
        });
        counter = c.Add("DeviceTemperature", Float, transport, [](FeatureInfo &info, FeatureState &state) {
            info.pollingTime = 100;
            info.unit = "C";
            state.access = TovCam::FeatureAccess::ReadOnly;
            state.value.real = 41.5;
        });
        c.Info(selector).selected = c.Info(selector).dependents = {gain};
    }
};
