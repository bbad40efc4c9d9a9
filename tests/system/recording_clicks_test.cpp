// An operator who records from each simulated camera, by real clicks.
#include "recordingtour.h"

#include <gtest/gtest.h>

namespace {

class RecordingFromEachCamera : public testing::TestWithParam<char const *>
{
};

TEST_P(RecordingFromEachCamera, LeavesWholeFilesHoweverItEnds)
{
    auto const lose = [](Robot &robot, Operator &hands) {
        robot.Gui([&] { hands.Features()->ExecuteCommand("SimLoseCamera"); });
    };
    RecordingTour::Run(GetParam(), lose, [] {});
}

INSTANTIATE_TEST_SUITE_P(Clicks, RecordingFromEachCamera, testing::ValuesIn(Operator::Serials));

} // namespace
