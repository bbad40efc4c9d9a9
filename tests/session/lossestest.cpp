// Where losses are put, and the words for them: tables of counts.
#include "losscauses.h"
#include "losstext.h"

#include <gtest/gtest.h>

namespace {

using P = LossPlace;

struct EvidenceRow
{
    char const *what;
    TovCam::FrameLosses frame;
    std::uint64_t noRoom = 0, dropped = 0, links = 0, room = 8, wanted = 8;
    P incomplete; // where such a frame's packets were lost
    P skipped;    // where two frames before it were, but for those without a buffer
};

EvidenceRow const evidenceRows[] = {
    {.what = "ids jump", .frame = {.skipped = 2, .packets = 40}, .incomplete = P::Camera, .skipped = P::Camera},
    {.what = "single packets", .frame = {.packets = 40, .missing = 2}, .incomplete = P::Network, .skipped = P::Camera},
    {.what = "the frames around are broken off",
     .frame = {.packets = 40, .missing = 1, .isEdgeMissing = true},
     .incomplete = P::Network,
     .skipped = P::Network},
    {.what = "a quarter is missing around",
     .frame = {.packets = 4, .missing = 1, .packetsBefore = 4, .missingBefore = 1},
     .incomplete = P::Network,
     .skipped = P::Network},
    {.what = "the link was down", .frame = {.packets = 40}, .links = 1, .incomplete = P::Camera, .skipped = P::Network},
    {.what = "a small socket",
     .frame = {.packets = 40, .missing = 2, .dropped = 2},
     .room = 7,
     .incomplete = P::Socket,
     .skipped = P::Socket},
    {.what = "a full socket",
     .frame = {.packets = 40, .missing = 2, .dropped = 2},
     .incomplete = P::Receiver,
     .skipped = P::Receiver},
    {.what = "a full ring",
     .frame = {.packets = 40, .missing = 2, .dropped = 2},
     .room = 0,
     .incomplete = P::Receiver,
     .skipped = P::Receiver},
    {.what = "less than half of it was dropped",
     .frame = {.skipped = 1, .packets = 40, .missing = 20, .dropped = 29},
     .incomplete = P::Network,
     .skipped = P::Network},
    {.what = "no room in the card",
     .frame = {.packets = 40, .missing = 9},
     .noRoom = 1,
     .incomplete = P::Adapter,
     .skipped = P::Adapter},
    {.what = "dropped behind the card",
     .frame = {.packets = 40, .missing = 4},
     .dropped = 2,
     .incomplete = P::Adapter,
     .skipped = P::Adapter},
    {.what = "what nobody wanted",
     .frame = {.packets = 40, .missing = 4},
     .dropped = 1,
     .incomplete = P::Network,
     .skipped = P::Camera},
};

TEST(LossCauses, FollowTheEvidence)
{
    for (EvidenceRow const &row : evidenceRows) {
        SCOPED_TRACE(row.what);
        LossEvidence evidence{true, row.frame, row.noRoom, row.dropped, row.links, row.room, row.wanted};
        EXPECT_EQ(WordOf(PlaceOfIncomplete(evidence)), WordOf(row.incomplete));
        EXPECT_EQ(WordOf(PlacesOfMissing(evidence, 2).skipped), WordOf(row.skipped));
        evidence.frame.unbuffered = 3;
        EXPECT_EQ(PlacesOfMissing(evidence, 2).unbuffered, 2u) << "by the ids there are no more";
        evidence.isKnown = false;
        EXPECT_EQ(WordOf(PlaceOfIncomplete(evidence)), std::string("unknown"));
        EXPECT_EQ(WordOf(PlacesOfMissing(evidence, 2).skipped), std::string("unknown"));
    }
}

struct FindingRow
{
    char const *what;
    P place;
    LossTally::Frames frames;
    std::uint64_t TovCam::StreamLosses::*packets; // of which some more
    char const *line;                             // begins and ends so, with "..." in between; empty for no finding
    std::int64_t unwritten = 0;
    std::uint64_t room = 212992;
    bool isUsb = false;
    std::uint64_t more = 1204; // of those packets
};

FindingRow const findingRows[] = {
    {"nothing", P::Camera, {0, 0}, nullptr, ""},
    {"skipped", P::Camera, {3, 0}, nullptr, "The camera has counted frames and not sent them: 3 frames are missing. "},
    {"no picture", P::Camera, {0, 1}, nullptr, "The camera has sent what is no picture of the set format: 1 frame is"},
    {"wire",
     P::Network,
     {2, 7, 1204},
     nullptr,
     "1,204 packets got lost on the wire or in a switch: 2 frames are missing, and 7 are incomplete. "},
    {"USB",
     P::Network,
     {1, 2},
     nullptr,
     "Transfers on the USB failed, or ended early: 1 frame is missing, and 2",
     0,
     0,
     true},
    {"USB camera",
     P::Camera,
     {3, 0},
     nullptr,
     "The camera has counted frames ...a USB controller of its own.",
     0,
     0,
     true},
    {"recovered", P::Network, {0, 0}, &TovCam::StreamLosses::asked, ""},
    {"card",
     P::Adapter,
     {0, 0},
     &TovCam::StreamLosses::adapterNoRoom,
     "1,204 packets found no room in the network card eth0: no frame is lost, ...: sudo ethtool -G eth0 rx 4096"},
    {"behind the card",
     P::Adapter,
     {0, 1},
     &TovCam::StreamLosses::adapterDropped,
     "The system dropped 1,204 packets that eth0 had received: ...: sudo sysctl -w net.core.netdev_max_backlog=10000"},
    {"nobody's", P::Adapter, {0, 0}, &TovCam::StreamLosses::adapterDropped, ""},
    {"socket",
     P::Socket,
     {0, 12},
     &TovCam::StreamLosses::dropped,
     "1,204 packets were dropped by the socket, which has room for 208.0 kB and not for 8.0 MB: 12 frames are "
     "incomplete: sudo sysctl -w net.core.rmem_max=33554432"},
    {"one at the socket",
     P::Socket,
     {0, 1},
     &TovCam::StreamLosses::dropped,
     "1 packet was dropped by the socket, which has room for 208.0 kB and not for 8.0 MB: 1 frame is incomplete",
     0,
     212992,
     false,
     1},
    {"receiver", P::Receiver, {0, 2}, &TovCam::StreamLosses::dropped, "The program did not come to read 1,204", 0, 0},
    {"buffers",
     P::Receiver,
     {5, 0},
     &TovCam::StreamLosses::unbuffered,
     "The program did not give buffers back in time: 5"},
    {"queue", P::Fifo, {1000, 0}, nullptr, "The queue was full, ...: 1,000 frames are missing. "},
    {"slow disk", P::Disk, {4, 0}, nullptr, "The disk took longer for a frame than the camera: 4 frames are missing. "},
    {"full disk", P::Disk, {4, 0}, nullptr, "The disk refused frames: 4 frames are missing. Make room, ", 4},
    {"both", P::Disk, {4, 0}, nullptr, "The disk refused frames, and took longer for others", 1},
    {"format", P::Recording, {1, 0}, nullptr, "Frames could not be converted for the file: 1 frame is missing. "},
    {"no statistics", P::Unknown, {1, 1}, nullptr, "Somewhere between camera and program, "},
};

TEST(LossFindings, AreSentencesWithWhatMendsThem)
{
    for (FindingRow const &row : findingRows) {
        SCOPED_TRACE(row.what);
        LossCounts before, after;
        for (LossCounts *const counts : {&before, &after}) {
            counts->hasStream = true;
            counts->stream.adapter = "eth0";
            counts->stream.isUsb = row.isUsb;
            counts->stream.largestRing = 4096;
            counts->stream.socketRoom = row.room;
            counts->stream.wantedRoom = 8 << 20;
            counts->unwritten = 5;
            counts->frames.At(row.place) = {100, 100, 100};
        }
        if (row.packets) {
            before.stream.*row.packets = 1000;
            after.stream.*row.packets = 1000 + row.more;
        }
        after.unwritten += row.unwritten;
        after.frames.At(row.place).missing += row.frames.missing;
        after.frames.At(row.place).incomplete += row.frames.incomplete;
        after.frames.At(row.place).packets += row.frames.packets;
        std::vector<LossFinding> const findings = ExplainLosses(before, after);
        ASSERT_EQ(findings.size(), *row.line ? 1u : 0u);
        if (findings.empty())
            continue;
        EXPECT_EQ(WordOf(findings[0].place), WordOf(row.place));
        EXPECT_EQ(findings[0].frames, row.frames.missing + row.frames.incomplete);
        QString const line = LossLine(findings[0]), wanted = QString::fromUtf8(row.line);
        EXPECT_TRUE(line.startsWith(wanted.section(QStringLiteral("..."), 0, 0))) << line.toStdString();
        EXPECT_TRUE(line.contains(wanted.section(QStringLiteral("..."), -1))) << line.toStdString();
        EXPECT_EQ(line.endsWith(QLatin1Char('.')), !findings[0].isCommand);
        EXPECT_TRUE(LossReport(findings).contains(findings[0].mending));
    }
}

} // namespace
