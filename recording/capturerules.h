// What of a recording is written, and when it is over. One rule is in force from the start of a recording to its stop.
//
// Threads: SnapNextFrame, StartImgWriting and StopImgWriting on the GUI thread while the recording thread sleeps;
// NeedToWrite and IsFinished on the recording thread. Its start and stop order the accesses; there is no lock.
#pragma once

#include <cstdint>
#include <memory>

struct _TovImage;

// Values of the parameter "CaptureMode". All of them write every frame until something else ends the recording.
enum CaptureMode : std::int64_t {
    CaptureModeContinous = 0,
    CaptureModeEventN = 1,
    CaptureModeEventN2 = 2,
    CaptureModeEventTime = 3,
    CaptureModeEventTime2 = 4,
};

// Asked once for every frame, in this order. No rule looks at the image.
class CaptureRule
{
public:
    virtual ~CaptureRule() = default;
    virtual bool NeedToWrite(_TovImage *image) = 0;
    virtual bool IsFinished(_TovImage *image) = 0;
};

// One frame. Frames beyond it are asked about as well until the recording has been stopped; the count wraps, so the
// 257th would be written too.
class CaptureRuleSnap : public CaptureRule
{
public:
    bool NeedToWrite(_TovImage *image) override;
    bool IsFinished(_TovImage *image) override;

private:
    std::uint8_t m_countdown = 1;
};

class CaptureRuleContinous : public CaptureRule
{
public:
    bool NeedToWrite(_TovImage *image) override;
    bool IsFinished(_TovImage *image) override;
};

// Holds no count so far.
class CaptureRuleEventN : public CaptureRule
{
public:
    bool NeedToWrite(_TovImage *image) override;
    bool IsFinished(_TovImage *image) override;
};

// Holds no time so far.
class CaptureRuleEventTime : public CaptureRule
{
public:
    bool NeedToWrite(_TovImage *image) override;
    bool IsFinished(_TovImage *image) override;
};

class CaptureRules
{
public:
    virtual ~CaptureRules() = default;

    void SnapNextFrame();
    // A mode beyond the table changes nothing.
    void StartImgWriting(CaptureMode mode);
    void StopImgWriting();
    // Without a rule: nothing is written, and nothing ends.
    bool NeedToWrite(_TovImage *image);
    bool IsFinished(_TovImage *image);

private:
    std::unique_ptr<CaptureRule> m_rule; // null between recordings

public:
    bool m_bSnap = false; // the rule in force came from SnapNextFrame
};
