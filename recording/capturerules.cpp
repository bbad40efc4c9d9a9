#include "capturerules.h"

bool CaptureRuleSnap::NeedToWrite(_TovImage * /*image*/)
{
    return m_countdown-- == 1;
}

bool CaptureRuleSnap::IsFinished(_TovImage * /*image*/)
{
    return true;
}

bool CaptureRuleContinous::NeedToWrite(_TovImage * /*image*/)
{
    return true;
}

bool CaptureRuleContinous::IsFinished(_TovImage * /*image*/)
{
    return false;
}

bool CaptureRuleEventN::NeedToWrite(_TovImage * /*image*/)
{
    return true;
}

bool CaptureRuleEventN::IsFinished(_TovImage * /*image*/)
{
    return false;
}

bool CaptureRuleEventTime::NeedToWrite(_TovImage * /*image*/)
{
    return true;
}

bool CaptureRuleEventTime::IsFinished(_TovImage * /*image*/)
{
    return false;
}

void CaptureRules::SnapNextFrame()
{
    m_bSnap = true;
    m_rule = std::make_unique<CaptureRuleSnap>();
}

void CaptureRules::StartImgWriting(CaptureMode mode)
{
    switch (mode) {
    case CaptureModeContinous:
        m_rule = std::make_unique<CaptureRuleContinous>();
        break;
    case CaptureModeEventN:
    case CaptureModeEventN2:
        m_rule = std::make_unique<CaptureRuleEventN>();
        break;
    case CaptureModeEventTime:
    case CaptureModeEventTime2:
        m_rule = std::make_unique<CaptureRuleEventTime>();
        break;
    }
}

void CaptureRules::StopImgWriting()
{
    m_rule.reset();
    m_bSnap = false;
}

bool CaptureRules::NeedToWrite(_TovImage *image)
{
    return m_rule && m_rule->NeedToWrite(image);
}

bool CaptureRules::IsFinished(_TovImage *image)
{
    return m_rule && m_rule->IsFinished(image);
}
