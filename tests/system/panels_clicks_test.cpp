// An operator at the panels with each simulated camera, by real clicks.
#include "paneltour.h"

#include <gtest/gtest.h>

namespace {

class PanelsOfEachCamera : public testing::TestWithParam<char const *>
{
};

TEST_P(PanelsOfEachCamera, AreOperatedAndKeepTheCamerasSetUp)
{
    Operator::Run([&](Robot &robot, Operator &hands) {
        PanelTour tour(robot, hands);
        hands.Connect(robot, GetParam());
        tour.DocksComeAndGo();
        tour.StreamsWithTheTreeOpen(true);
        tour.IsKeptInAConfiguration();
    });
}

INSTANTIATE_TEST_SUITE_P(Clicks, PanelsOfEachCamera, testing::ValuesIn(Operator::Serials));

} // namespace
