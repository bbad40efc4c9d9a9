// Whether the picture on the screen is still what the camera sends, judged by the counts of frames. It knows no clock
// and no thread: its owner looks a few times a second.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>

class StreamWatch
{
public:
    using Time = std::chrono::steady_clock::time_point;

    // A pause as short as this needs no notice.
    static constexpr std::chrono::seconds Patience{2};
    // The upper limit, for a stream whose frames are far apart.
    static constexpr std::chrono::seconds LongestPatience{10};

    struct Silence
    {
        std::chrono::seconds lasts{};
        std::int64_t incomplete = 0; // frames since the last complete one; 0: nothing comes at all
        bool operator==(Silence const &) const = default;
    };

    // The counts are of the frames that have arrived so far, and of the incomplete ones among them.
    void Start(Time now, std::int64_t arrived, std::int64_t incomplete);
    // Nothing while complete frames come.
    std::optional<Silence> Look(Time now, std::int64_t arrived, std::int64_t incomplete);

private:
    Time m_lastFrame;
    Time m_lastComplete;
    Time::duration m_interval{}; // between the last two frames
    bool m_hasFrame = false;     // since the start
    std::int64_t m_arrived = 0;
    std::int64_t m_complete = 0;
    std::int64_t m_incomplete = 0; // when the last complete one came
};
