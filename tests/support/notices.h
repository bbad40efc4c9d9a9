// What the operator reads.
#pragma once

#include "noticeboard.h"

#include <string>

// The line of a topic; empty without one.
inline std::string NoticeOf(NoticeTopic topic)
{
    for (Notice const &notice : NoticeBoard::Instance().Notices())
        if (notice.topic == topic)
            return notice.text.toStdString();
    return {};
}
