// An operator at the panels of a simulated camera, by real clicks: what goes through window manager and keyboard.
#include "operator.h"
#include "settings.h"

#include <QAbstractItemView>
#include <QComboBox>

namespace {

class PanelTour : public Tour
{
public:
    using Tour::Tour;

    // A feature's value as text. GUI thread, as the next two.
    QString Value(char const *name) const
    {
        TovCam::FeatureState state;
        std::uint32_t const index = FindFeature(m_hands.Features(), name);
        m_hands.Features()->ReadFeature(index, &state);
        return QString::fromStdString(TextOf(m_hands.Features()->GetFeature(index)->kind, state.value));
    }
    // A feature's cell in the tree; empty while no row of it is shown.
    QRect Cell(char const *name, int column) const
    {
        auto *const tree = Find<QTreeView>("featureTree");
        TovCam::ParamArray *const nodes = m_hands.Features();
        QString const shown = QString::fromStdString(nodes->GetFeature(FindFeature(nodes, name))->displayName);
        for (QModelIndex const &row :
             tree->model()->match(tree->model()->index(0, 0), Qt::DisplayRole, shown, -1,
                                  Qt::MatchExactly | Qt::MatchRecursive | Qt::MatchCaseSensitive)) {
            QRect const rect = tree->visualRect(row.siblingAtColumn(column));
            if (!tree->model()->hasChildren(row) && !rect.isEmpty() && tree->viewport()->rect().contains(rect.center()))
                return rect.translated(tree->viewport()->mapTo(tree, QPoint()));
        }
        return {};
    }
    // Brings a feature onto the screen through the search field.
    void Search(char const *name)
    {
        m_robot.Click(Find<QWidget>("featureTree"));
        m_robot.Key("ctrl+f");
        m_robot.WaitFor("the search field", [] {
            QWidget *focus = QApplication::focusWidget();
            return focus && focus->objectName() == QLatin1String("featureSearch");
        });
        m_robot.Key("ctrl+a");
        m_robot.Type(QString::fromLatin1(name));
        m_robot.WaitFor(std::string("the row of ") + name, [=, this] { return !Cell(name, 1).isEmpty(); });
    }
    void ClickCell(char const *name, int column)
    {
        auto *const tree = Find<QTreeView>("featureTree");
        m_robot.Click(tree, [=, this] { return Cell(name, column).center(); });
    }
    // Puts text into a feature's editor by the keyboard, and waits for the camera to have it.
    void Edit(char const *name, char const *text, char const *value)
    {
        Search(name);
        ClickCell(name, 0);
        m_robot.Key("F2");
        m_robot.WaitFor("an editor", [] {
            QWidget *focus = QApplication::focusWidget();
            return focus && focus->objectName() != QLatin1String("featureTree");
        });
        m_robot.Key("ctrl+a");
        m_robot.Type(QString::fromLatin1(text));
        m_robot.Key("Return");
        m_robot.WaitFor(std::string(name) + " to become " + value,
                        [=, this] { return Value(name).startsWith(QLatin1String(value)); });
    }
};

TEST(PanelClicks, EveryKindOfFeatureIsEdited)
{
    Operator::Run([&](Robot &robot, Operator &hands) {
        PanelTour tour(robot, hands);
        hands.Connect(robot, Serials[0]);

        auto *const level = tour.Find<QComboBox>("featureVisibility");
        robot.Click(level);
        robot.WaitFor("the levels", [=] { return level->view()->isVisible(); });
        robot.Key("End");
        robot.Key("Return");
        robot.WaitFor("the level", [=] { return level->currentIndex() == level->count() - 1; });
        tour.Edit("Width", "1024", "1024");
        tour.Edit("DeviceUserID", "left eye", "left eye");
        tour.Edit("PixelFormat", "Mono12", "Mono12");
        tour.Edit("Width", "99999999", "2048"); // its limit

        tour.Search("ReverseX");
        tour.ClickCell("ReverseX", 0);
        robot.Key("space");
        robot.WaitFor("the boolean", [&] { return tour.Value("ReverseX") == QLatin1String("1"); });
        // A command by its button: the next latched time is another one.
        QString const latched = robot.Gui([&] { return tour.Value("TimestampLatchValue"); });
        tour.Search("TimestampLatch");
        tour.ClickCell("TimestampLatch", 1);
        robot.WaitFor("the command", [&] { return tour.Value("TimestampLatchValue") != latched; });
    });
}

} // namespace
