#include "logstringmaker.h"

LogStringMaker::LogStringMaker() : m_maxStreamData(32), m_maxControlData(16), m_maxEventData(16)
{
}

LogStringMaker::~LogStringMaker() = default;
