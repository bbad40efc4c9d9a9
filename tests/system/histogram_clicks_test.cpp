// An operator at the histogram panel with each simulated camera, by real clicks.
#include "paneltour.h"

#include "histoview.h"
#include "imgprocessor.h"

#include <QCheckBox>
#include <QDoubleSpinBox>
#include <QGroupBox>
#include <QSlider>

#include <tuple>

namespace {

constexpr int Colour = 1; // the camera with a mosaic
constexpr int Rgb = 2;    // the one that starts with pixels of several values, which are not measured

class HistogramTour : public PanelTour
{
public:
    HistogramTour(Robot &robot, Operator &hands) : PanelTour(robot, hands)
    {
        panel = Dock("HistogramPanel");
        view = panel->findChild<HistoView *>();
    }

    QString Text(char const *label) const
    {
        return Find<QLabel>(label)->text();
    }
    HistoThresholds const &Markers() const
    {
        return m_hands.CurrentSession()->GetAnalysis()->m_thresholds;
    }
    void Show()
    {
        m_robot.Click(m_hands.Window(), "actionHistogramPanel");
        m_robot.WaitFor("the panel", [&] { return panel->isVisible(); });
        m_robot.WaitFor("an update", [&] { return Text("meanLabel") != QLatin1String("1000"); });
    }
    // The picture of the data area once two more updates have come.
    QImage Updated()
    {
        for (int i = 0; i < 2; ++i) {
            m_robot.Gui([&] { Find<QLabel>("meanLabel")->setText(QStringLiteral("old")); });
            m_robot.WaitFor("an update", [&] { return Text("meanLabel") != QLatin1String("old"); });
        }
        return m_robot.Gui(
            [&] { return view->grab(view->graph.GetPlotRect()).toImage().convertToFormat(QImage::Format_RGB32); });
    }
    static int Count(QImage const &image, QColor const &color)
    {
        int count = 0;
        for (int y = 0; y < image.height(); ++y)
            for (int x = 0; x < image.width(); ++x)
                count += image.pixel(x, y) == color.rgb();
        return count;
    }
    void Select(int mode)
    {
        auto *box = Find<QComboBox>("modeComboBox");
        m_robot.Click(box);
        m_robot.WaitFor("the modes", [&] { return box->view()->isVisible(); });
        m_robot.Key("Home");
        for (int i = 0; i < mode; ++i)
            m_robot.Key("Down");
        m_robot.Key("Return");
        m_robot.WaitFor("the mode", [&] { return view->mode == mode && !box->view()->isVisible(); });
    }
    void Toggle(char const *name)
    {
        auto *box = Find<QCheckBox>(name);
        bool const before = m_robot.Gui([&] { return box->isChecked(); });
        m_robot.ClickAt(m_robot.Gui([&] { return box->mapToGlobal(QPoint(10, box->height() / 2)); }));
        m_robot.WaitFor(name, [&] { return box->isChecked() != before; });
    }
    void Enter(char const *name, int value)
    {
        auto *box = Find<QDoubleSpinBox>(name);
        m_robot.ClickAt(m_robot.Gui([&] { return box->mapToGlobal(QPoint(8, box->height() / 2)); }));
        m_robot.Key("ctrl+a");
        m_robot.Type(QString::number(value));
        m_robot.Key("Return");
        m_robot.WaitFor(name, [&] { return box->value() == value; });
    }
    // A click on the data area, at a share of its width; returns the signal that stands there.
    float ClickGraph(double share, int button)
    {
        float value = 0.0f;
        m_robot.ClickAt(m_robot.Gui([&] {
            QRect const area = view->graph.GetPlotRect();
            QPoint const at(area.left() + qRound(share * area.width()), area.center().y());
            view->graph.GetThresholds(at, value);
            return view->mapToGlobal(at);
        }),
                        button);
        return value;
    }
    // Everything of the form inside its parent, and no two groups on each other.
    void ExpectTidy(char const *where)
    {
        m_robot.Screenshot(QStringLiteral("histogram-%1-%2").arg(QLatin1String(where), Robot::TestName()));
        m_robot.Gui([&] {
            char const *const groups[] = {"groupBoxHistoGraph", "groupMinStdDev", "groupVis", "groupRowColumn"};
            for (char const *one : groups) {
                auto *const box = Find<QGroupBox>(one);
                // A title bar of more than 20 pixels pushes the lowest line of the lowest group out; that is meant.
                QRect const parent = box->parentWidget()->rect().adjusted(0, 0, 0, 5);
                EXPECT_TRUE(parent.contains(box->geometry())) << where << ": " << one;
                for (char const *other : groups) {
                    EXPECT_TRUE(one == other || !box->geometry().intersects(Find<QGroupBox>(other)->geometry()))
                        << where << ": " << one << " on " << other;
                }
                for (auto *child : box->findChildren<QWidget *>(QString(), Qt::FindDirectChildrenOnly))
                    EXPECT_TRUE(box->rect().contains(child->geometry()))
                        << where << ": " << child->objectName().toStdString();
            }
        });
    }

    QDockWidget *panel;
    HistoView *view;
};

using HistogramOfEachCamera = testing::TestWithParam<int>;

TEST_P(HistogramOfEachCamera, IsOperatedLiveAndStopped)
{
    Operator::Run([&](Robot &robot, Operator &hands) {
        hands.Connect(robot, Serials[GetParam()]);
        HistogramTour tour(robot, hands);
        std::int64_t const width = tour.Features()->GetIntegerValue("Width", nullptr);
        std::int64_t const height = tour.Features()->GetIntegerValue("Height", nullptr);
        EXPECT_FALSE(robot.Gui([&] { return tour.panel->isVisible(); })); // it starts hidden
        if (GetParam() == Rgb)
            robot.Gui([&] { tour.Features()->SetEnumValueStr("PixelFormat", "BayerRG8"); });
        hands.Play(robot);
        QThread::msleep(1200);
        EXPECT_EQ(robot.Gui([&] { return tour.Text("meanLabel"); }), QStringLiteral("1000")); // and asks for nothing
        tour.Show();
        tour.ExpectTidy("floating");

        int const modes = robot.Gui([&] { return tour.Find<QComboBox>("modeComboBox")->count(); });
        EXPECT_EQ(modes, GetParam() == Colour ? 4 : 3);
        for (int mode : {1, 2, 0, 3}) {
            if (mode >= modes)
                continue;
            tour.Select(mode);
            QImage const area = tour.Updated();
            // Of a colour histogram all points stand at the left edge.
            EXPECT_GT(HistogramTour::Count(area, mode == 3 ? Qt::blue : Qt::yellow), 20) << mode;
            robot.Screenshot(QStringLiteral("histogram-mode%1-%2").arg(mode).arg(Robot::TestName()));
        }
        tour.Select(HistoRow);
        tour.StandStill();

        // The row controls run over the width, the column controls over the height.
        for (auto const &[slider, spin, last] :
             {std::tuple("rowSlider", "rowSpin", width - 1), std::tuple("columnSlider", "colSpin", height - 1)}) {
            tour.Enter(spin, 77);
            EXPECT_EQ(robot.Gui([&] { return tour.Find<QSlider>(slider)->value(); }), 77);
            robot.Click(tour.Find<QSlider>(slider)); // takes the keyboard
            robot.Key("Tab");
            robot.Key("shift+Tab");
            robot.Key("End");
            robot.WaitFor("the end", [&] { return tour.Find<QDoubleSpinBox>(spin)->value() == last; });
        }
        tour.Enter("rowSpin", 100);
        QImage const single = tour.Updated();
        tour.Toggle("avrCheckBox");
        EXPECT_NE(tour.Updated(), single);
        tour.ExpectTidy("average");
        tour.Toggle("avrCheckBox");

        // Limits around the mean, and the logarithm.
        tour.Select(HistoRaw);
        QImage const whole = tour.Updated();
        tour.Toggle("logCheckBox");
        EXPECT_GT(HistogramTour::Count(tour.Updated(), Qt::yellow), HistogramTour::Count(whole, Qt::yellow));
        tour.Toggle("logCheckBox");
        EXPECT_EQ(tour.Updated(), whole);
        tour.Toggle("xLimitsCheckBox");
        tour.Enter("meanSpin", 1);
        QImage const narrow = tour.Updated();
        EXPECT_NE(narrow, whole);
        tour.Enter("meanSpin", 3);
        EXPECT_NE(tour.Updated(), narrow);
        tour.ExpectTidy("limits");
        tour.Toggle("xLimitsCheckBox");
        tour.Updated();

        // Markers: two by the first left click, one by the right button.
        float const first = tour.ClickGraph(0.25, 1);
        robot.WaitFor("two markers", [&] { return tour.Markers().lowThreshold == std::uint16_t(first); });
        float const mark = tour.ClickGraph(0.5, 3);
        robot.WaitFor("the mark", [&] { return tour.Markers().markThreshold == std::uint16_t(mark); });
        QImage const marked = tour.Updated();
        EXPECT_GT(HistogramTour::Count(marked, QColor(255, 0, 255)), marked.height() / 2);
        tour.ExpectTidy("markers");

        // The picture stays after a stop, and so does what is shown of it.
        hands.Stop(robot);
        EXPECT_EQ(tour.Updated(), marked);
        // A camera that goes while it is looked at.
        robot.Gui([&] { tour.Features()->SetIntegerValue("SimMissingEvery", 0); });
        hands.Play(robot);
        tour.Updated();
        hands.LoseCamera(robot);
        hands.AnswerLoss(robot);
        robot.WaitFor("the end", [&] { return !tour.Dock("HistogramPanel"); });
    });
}

INSTANTIATE_TEST_SUITE_P(Clicks, HistogramOfEachCamera, testing::Range(0, 3));

TEST(HistogramClicks, ItFloatsDocksAndTakesAnySize)
{
    Operator::Run([&](Robot &robot, Operator &hands) {
        hands.Connect(robot, Serials[Colour]);
        HistogramTour tour(robot, hands);
        hands.Play(robot);
        tour.Show();
        for (QSize size : {QSize(100, 100), QSize(900, 800), QSize(520, 541)}) {
            robot.Gui([&] { tour.panel->resize(size); });
            robot.WaitFor("the size", [&] { return tour.panel->size() == size.expandedTo(tour.panel->minimumSize()); });
            tour.Updated();
            tour.ExpectTidy(qPrintable(QStringLiteral("size%1").arg(size.width())));
        }
        // A drag by the title would go through the window manager.
        robot.Gui([&] { tour.panel->setFloating(false); });
        robot.WaitFor("the dock", [&] { return !tour.panel->isFloating(); });
        tour.Updated();
        tour.ExpectTidy("docked");
        robot.Click(tour.panel->findChild<QWidget *>(QStringLiteral("qt_dockwidget_closebutton")));
        robot.WaitFor("the panel to close", [&] { return !tour.panel->isVisible(); });
        robot.Gui([&] { tour.Find<QLabel>("meanLabel")->setText(QStringLiteral("old")); });
        QThread::msleep(1200);
        EXPECT_EQ(robot.Gui([&] { return tour.Text("meanLabel"); }), QStringLiteral("old"));
        hands.Disconnect(robot);
    });
}

} // namespace
