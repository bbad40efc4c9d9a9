#include "lossfindings.h"

#include "numbertext.h"

#include <QCoreApplication>
#include <QLocale>

#include <algorithm>

namespace {

constexpr std::uint64_t RecommendedRoom = 32u << 20; // bytes
constexpr int RecommendedBacklog = 10000;            // packets

QString Words(char const *text)
{
    return QCoreApplication::translate("Losses", text);
}

QString Count(std::uint64_t number, char const *one, char const *many)
{
    return number == 1 ? Words(one) : Words(many).arg(GroupedNumber(static_cast<qlonglong>(number)));
}

QString Packets(std::uint64_t number)
{
    return Count(number, "1 packet", "%1 packets");
}

// What became of the frames: "3 frames are missing, and 2 are incomplete".
QString Frames(LossTally::Frames const &frames)
{
    auto const missing = static_cast<std::uint64_t>(frames.missing),
               incomplete = static_cast<std::uint64_t>(frames.incomplete);
    if (incomplete == 0)
        return Count(missing, "1 frame is missing", "%1 frames are missing");
    if (missing == 0)
        return Count(incomplete, "1 frame is incomplete", "%1 frames are incomplete");
    return Words("%1, and %2")
        .arg(Count(missing, "1 frame is missing", "%1 frames are missing"),
             Count(incomplete, "1 is incomplete", "%1 are incomplete"));
}

QString Size(std::uint64_t bytes)
{
    return QLocale::c().formattedDataSize(static_cast<qint64>(bytes), 1, QLocale::DataSizeTraditionalFormat);
}

class Explanation
{
public:
    Explanation(LossCounts const &before, LossCounts const &after)
        : m_before(before),
          m_after(after),
          m_frames(after.frames - before.frames)
    {
    }

    std::vector<LossFinding> Take()
    {
        AddCamera();
        AddNetwork();
        AddAdapter();
        AddSocket();
        AddReceiver();
        AddFifo();
        AddDisk();
        AddOthers();
        return std::move(m_findings);
    }

private:
    using Number = std::uint64_t TovCam::StreamLosses::*;

    std::uint64_t Since(Number number) const
    {
        std::uint64_t const before = m_before.stream.*number, after = m_after.stream.*number;
        return m_after.hasStream && after > before ? after - before : 0;
    }
    static bool IsSome(LossTally::Frames const &frames)
    {
        return frames.missing + frames.incomplete > 0;
    }
    // `what` follows on what became of the frames, or on what became of packets whose frames are whole.
    void Add(LossPlace place, std::uint64_t packets, QString const &what, QString const &mending, bool isCommand)
    {
        LossTally::Frames const &frames = m_frames.At(place);
        // Some cards tell only once a second.
        bool const isLate = place == LossPlace::Adapter && IsSome(m_frames.At(LossPlace::Network));
        QString const outcome = IsSome(frames) ? Frames(frames)
                                : isLate       ? Words("frames that are put down to the wire may be among them")
                                         : Words("no frame is lost, for they came again when they were asked for");
        m_findings.push_back({place, frames.missing + frames.incomplete, static_cast<std::int64_t>(packets),
                              Words("%1: %2").arg(what, outcome), mending, isCommand});
    }

    void AddCamera()
    {
        LossTally::Frames const &frames = m_frames.At(LossPlace::Camera);
        if (!IsSome(frames))
            return;
        QString const what = frames.missing == 0 ? Words("The camera has sent what is no picture of the set format")
                             : frames.incomplete == 0 ? Words("The camera has counted frames and not sent them")
                                                      : Words("The camera has not sent frames, or no pictures");
        Add(LossPlace::Camera, 0, what,
            m_after.stream.isUsb ? Words("Lower the frame rate, or give the camera a USB controller of its own")
                                 : Words("Lower the frame rate, or give the camera fewer triggers than it can follow"),
            false);
    }

    void AddNetwork()
    {
        if (!IsSome(m_frames.At(LossPlace::Network)))
            return;
        if (m_after.stream.isUsb) {
            AddPort();
            return;
        }
        auto const missing = static_cast<std::uint64_t>(m_frames.At(LossPlace::Network).packets);
        std::uint64_t const damaged = Since(&TovCam::StreamLosses::adapterDamaged),
                            cuts = Since(&TovCam::StreamLosses::linkLosses);
        QString const adapter = QString::fromStdString(m_after.stream.adapter);
        QString what = Words("%1 got lost on the wire or in a switch").arg(Packets(missing)), mending;
        if (missing == 0)
            what = Words("Whole frames got lost on the wire or in a switch");
        if (std::uint64_t const late = std::min(Since(&TovCam::StreamLosses::late), missing); late > 0)
            what += Words(", or came after their frame had been given up");
        if (cuts > 0) {
            what += Words(", and the link of %1 was down %2").arg(adapter, Count(cuts, "once", "%1 times"));
            mending = Words("Look at plugs and cable, and at the power of camera and switch");
        } else if (damaged > 0) {
            what += Words(", %1 of them damaged").arg(GroupedNumber(static_cast<qlonglong>(damaged)));
            mending = Words("Try another cable, and another port of the switch");
        } else {
            mending = Words("Have the camera send slower (DeviceLinkThroughputLimit, GevSCPD), give it a link of its "
                            "own, and look at cable and switch");
        }
        Add(LossPlace::Network, missing, what, mending, false);
    }

    // The system tells nobody but its log of the errors of a USB controller.
    void AddPort()
    {
        Add(LossPlace::Network, 0, Words("Transfers on the USB failed, or ended early"),
            Words("Look at the system's log (sudo dmesg) for errors of the USB, at plugs and cable, try another port "
                  "without a hub, and give the USB more memory (tovdoctor says how)"),
            false);
    }

    void AddAdapter()
    {
        TovCam::StreamLosses const &now = m_after.stream;
        std::uint64_t const noRoom = Since(&TovCam::StreamLosses::adapterNoRoom),
                            dropped = Since(&TovCam::StreamLosses::adapterDropped);
        if (!IsSome(m_frames.At(LossPlace::Adapter)) && noRoom == 0)
            return;
        QString const adapter = QString::fromStdString(now.adapter);
        if (noRoom == 0) {
            Add(LossPlace::Adapter, dropped,
                Words("The system dropped %1 that %2 had received").arg(Packets(dropped), adapter),
                QStringLiteral("sudo sysctl -w net.core.netdev_max_backlog=%1").arg(RecommendedBacklog), true);
            return;
        }
        bool const mayGrow = now.ring < now.largestRing;
        Add(LossPlace::Adapter, noRoom, Words("%1 found no room in the network card %2").arg(Packets(noRoom), adapter),
            mayGrow ? QStringLiteral("sudo ethtool -G %1 rx %2").arg(adapter).arg(now.largestRing)
                    : Words("Have the camera send slower, or in larger packets, or take a better card"),
            mayGrow);
    }

    void AddSocket()
    {
        TovCam::StreamLosses const &now = m_after.stream;
        std::uint64_t const dropped = Since(&TovCam::StreamLosses::dropped);
        bool const isSmall = now.socketRoom != 0 && now.socketRoom < now.wantedRoom;
        if (!IsSome(m_frames.At(LossPlace::Socket)) && (dropped == 0 || !isSmall))
            return;
        Add(LossPlace::Socket, dropped,
            Words(dropped == 1 ? "%1 packet was dropped by the socket, which has room for %2 and not for %3"
                               : "%1 packets were dropped by the socket, which has room for %2 and not for %3")
                .arg(GroupedNumber(static_cast<qlonglong>(dropped)), Size(now.socketRoom), Size(now.wantedRoom)),
            QStringLiteral("sudo sysctl -w net.core.rmem_max=%1").arg(std::max(RecommendedRoom, now.wantedRoom)), true);
    }

    void AddReceiver()
    {
        if (!IsSome(m_frames.At(LossPlace::Receiver)))
            return;
        std::uint64_t const unbuffered = Since(&TovCam::StreamLosses::unbuffered),
                            dropped = Since(&TovCam::StreamLosses::dropped);
        QString const held = Words("The program did not give buffers back in time"),
                      unread = Words("The program did not come to read %1 before there was no more room for them")
                                   .arg(Packets(dropped));
        bool const isHeld = unbuffered > 0 || dropped == 0;
        Add(LossPlace::Receiver, dropped, isHeld ? held : unread,
            isHeld ? Words("End other programs, or raise the size of the queue (QueueSize)")
                   : Words("End other programs, or use a faster computer"),
            false);
    }

    void AddFifo()
    {
        if (IsSome(m_frames.At(LossPlace::Fifo)))
            Add(LossPlace::Fifo, 0,
                Words("The queue was full, because the recording takes longer for a frame than the camera"),
                Words("Record raw frames, raise the size of the queue (QueueSize), or lower the frame rate"), false);
    }

    void AddDisk()
    {
        if (!IsSome(m_frames.At(LossPlace::Disk)))
            return;
        std::int64_t const all = m_frames.At(LossPlace::Disk).missing,
                           unwritten = std::min(m_after.unwritten - m_before.unwritten, all);
        bool const isSlow = all > unwritten;
        Add(LossPlace::Disk, 0,
            unwritten == 0 ? Words("The disk took longer for a frame than the camera")
            : isSlow       ? Words("The disk refused frames, and took longer for others than the camera")
                           : Words("The disk refused frames"),
            isSlow ? Words("Record to a faster disk of this computer, or lower the frame rate")
                   : Words("Make room, or choose another folder or name"),
            false);
    }

    void AddOthers()
    {
        if (IsSome(m_frames.At(LossPlace::Recording)))
            Add(LossPlace::Recording, 0, Words("Frames could not be converted for the file"),
                Words("Choose another format, or end other programs that take memory"), false);
        if (IsSome(m_frames.At(LossPlace::Unknown)))
            Add(LossPlace::Unknown, 0, Words("Somewhere between camera and program, which this camera does not tell"),
                {}, false);
    }

    LossCounts const &m_before, &m_after;
    LossTally const m_frames;
    std::vector<LossFinding> m_findings;
};

} // namespace

std::vector<LossFinding> ExplainLosses(LossCounts const &before, LossCounts const &after)
{
    return Explanation(before, after).Take();
}
