// An operator who records from each simulated camera, by real clicks.
#include "recordingtour.h"

#include <QTemporaryDir>

#include <optional>

namespace {

using RecordingFromEachCamera = testing::TestWithParam<int>;

TEST_P(RecordingFromEachCamera, LeavesWholeFilesHoweverItEnds)
{
    QTemporaryDir const folder;
    std::optional<RecordingTour> tour;
    Operator::Run([&](Robot &robot, Operator &hands) {
        tour.emplace(robot, hands, Serials[GetParam()], folder.path());
        tour->Connect();
        tour->RecordsSnapsAndRecordsAgain();
        tour->OutlivesTheEndOfTheConnection([&] { hands.LoseCamera(robot); }, [] {});
        tour->ClosesTheWindow();
    });
    if (!HasFailure())
        tour->FilesAreWhole();
}

INSTANTIATE_TEST_SUITE_P(Clicks, RecordingFromEachCamera, testing::Range(0, 3));

} // namespace
