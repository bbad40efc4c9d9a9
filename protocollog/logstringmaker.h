// One line of text for each packet of a camera's protocol. Packets are given as they came off the transport, from the
// protocol's first byte on, and any bytes give a line: what lies past the packet reads as zero. Lines have no line end;
// an unknown packet gives a line that says so, or a shorter one. Saved logs are searched for these texts, so odd ones
// stay too; comments mark them.
//
// Thread-safety: control and event packets on any threads at once; stream packets in their order on one thread at a
// time. Different makers share nothing that changes.
#pragma once

#include <QString>

#include <cstdint>

class LogStringMaker
{
public:
    LogStringMaker();
    virtual ~LogStringMaker();
    LogStringMaker(LogStringMaker const &) = delete;
    LogStringMaker &operator=(LogStringMaker const &) = delete;

    // `size` in bytes.
    virtual QString MakeControlLogString(void const *data, unsigned long size) = 0;
    virtual QString MakeStreamLogString(void const *data, unsigned long size) = 0;
    virtual QString MakeEventLogString(void const *data, unsigned long size) = 0;

protected:
    // Bytes shown of a packet's data.
    std::uint64_t const m_maxStreamData;
    std::uint64_t const m_maxControlData;
    std::uint64_t const m_maxEventData;
};

// USB3 Vision. Control and event packets are as long as they say they are; `size` only bounds what is read.
class LogStringMakerU3V : public LogStringMaker
{
public:
    QString MakeControlLogString(void const *data, unsigned long size) override;
    QString MakeStreamLogString(void const *data, unsigned long size) override;
    QString MakeEventLogString(void const *data, unsigned long size) override;

private:
    std::uint16_t m_payloadType = 0; // of the last leader, for the trailer; the thread of the stream's packets
};

// GigE Vision. Events travel as commands, and read as such.
class LogStringMakerGEV : public LogStringMaker
{
public:
    QString MakeControlLogString(void const *data, unsigned long size) override;
    QString MakeStreamLogString(void const *data, unsigned long size) override;
    QString MakeEventLogString(void const *data, unsigned long size) override;
};

namespace TovGEV::_internal {

// Headers of stream packets as on the wire: all fields are big-endian.
struct GVSP_Header10
{
    std::uint16_t status;
    std::uint16_t blockId;
    std::uint32_t formatAndPacketId; // top byte: EI flag and format
};
static_assert(sizeof(GVSP_Header10) == 8);

struct GVSP_Header20
{
    std::uint16_t status;
    std::uint16_t flag;
    std::uint32_t format; // top byte: EI flag and format
    std::uint32_t words[3];
};
static_assert(sizeof(GVSP_Header20) == 20);

} // namespace TovGEV::_internal

QString MakeStreamLogHeader10(TovGEV::_internal::GVSP_Header10 const *header);
QString MakeStreamLogHeader20(TovGEV::_internal::GVSP_Header20 const *header);
