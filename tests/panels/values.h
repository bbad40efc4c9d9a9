// A component with one parameter of each kind, which tells panels of changes.
#pragma once

#include "params.h"

#include "paramchanged.h"
#include "playerpanel.h"
#include "tovcomponentimp.h"

class Values : public TovComponentImp
{
public:
    Values() : TovComponentImp(1)
    {
        SetParamChangedHandler(&PlayerPanel::OnParamChanged);
        AddIntParam("Count", &m_count, 5, 0, 1000000);
        AddIntParam("Other", &m_other, 7, 0, 1000000);
        AddFloatParam("Rate", &m_rate, 0.5, 0, 100);
        AddFloatParam("Speed", &m_rate, 0.5, 0, 100);
        AddBoolParam("Switch", &m_switch, false);
        AddBoolParam("Group", &m_group, true);
        AddStringParam("Text", m_text, sizeof m_text, "start");
    }

    std::string Text(char const *key)
    {
        return ParamText(this, key);
    }

private:
    std::int64_t m_count = 5;
    std::int64_t m_other = 7;
    double m_rate = 0.5;
    bool m_switch = false;
    bool m_group = true;
    char m_text[4000] = "start";
};
