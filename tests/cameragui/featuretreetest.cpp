#include "featurecamera.h"
#include "featuremodel.h"
#include "rows.h"
#include "wait.h"

#include <QAbstractItemModelTester>
#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QSlider>
#include <QTest>
#include <QTreeView>

using namespace TovGui;
using TovCam::FeatureAccess;

namespace {

TEST(FeatureModelTest, FindsByNameDisplayNameAndDescription)
{
    SampleCamera sample;
    FeatureCamera &camera = *sample.camera;
    camera.Info(sample.transport).children.push_back(sample.width);     // in two categories
    camera.Info(sample.transport).children.push_back(sample.transport); // and into itself
    camera.Info(sample.transport).children.push_back(999);
    std::vector<TovCam::FeatureInfo const *> features;
    for (FeatureCamera::Index i = 0; camera.GetFeature(i); ++i)
        features.push_back(camera.GetFeature(i));
    FeatureModel model;
    QAbstractItemModelTester const tester(&model, QAbstractItemModelTester::FailureReportingMode::Fatal);
    model.SetFeatures(features);
    std::tuple<char const *, Visibility, char const *> const cases[] = {
        {"width", Beginner, "ImageFormatControl[Width] TransportLayerControl[Width]"},
        {"EXPOSURE  tim", Beginner, "ImageFormatControl[Exposure Time]"},
        {"buffer", Expert, ""},
        {"buffer", Guru, "TransportLayerControl[FileAccessBuffer]"},
        {"transport", Beginner, "TransportLayerControl[EventMask DeviceTemperature Width]"},
        {".*", Guru, ""},
    };
    for (auto const &[text, level, rows] : cases) {
        model.SetFilter(QString::fromLatin1(text), level);
        EXPECT_EQ(Rows(model), rows) << text;
    }
    model.SetFilter(QStringLiteral("buffer"), Beginner);
    auto const above = model.FoundAbove();
    ASSERT_TRUE(above);
    EXPECT_EQ(std::pair(above->level, above->features), std::pair(Guru, 1));
    model.SetFilter(QStringLiteral(".*"), Beginner);
    EXPECT_FALSE(model.FoundAbove());
    model.SetFilter(QStringLiteral("exposure"), Beginner);
    QPersistentModelIndex const kept = model.index(0, 0, model.index(0, 0));
    model.SetFilter({}, Guru);
    EXPECT_EQ(kept.data(), QStringLiteral("Exposure Time"));
    EXPECT_EQ(kept.row(), 1);
}

class FeatureTreeTest : public testing::Test
{
protected:
    SampleCamera m_sample;
    FeatureCamera &m_camera = *m_sample.camera;
    std::unique_ptr<TovGenParamTreeView> m_tree = std::make_unique<TovGenParamTreeView>(nullptr);
    QTreeView *m_view = m_tree->findChild<QTreeView *>(QStringLiteral("featureTree"));
    QAbstractItemModelTester m_tester{m_view->model(), QAbstractItemModelTester::FailureReportingMode::Fatal};

    FeatureTreeTest()
    {
        m_tree->setVisibility(Guru);
        m_tree->resize(600, 700);
        m_tree->show();
    }
    ~FeatureTreeTest() override
    {
        m_camera.Hold(false);
    }
    void Fill()
    {
        m_tree->SetGenParamArray(&m_camera);
        ASSERT_TRUE(Eventually([this] { return m_view->model()->rowCount() == 2; }));
        m_view->expandAll();
        ASSERT_TRUE(Eventually([this] { return Shown("DeviceTemperature") == "41.5 C"; }));
    }
    QModelIndex Find(char const *name, QModelIndex const &parent = {}) const
    {
        for (int row = 0; row < m_view->model()->rowCount(parent); ++row) {
            QModelIndex const index = m_view->model()->index(row, 0, parent);
            QModelIndex const below = Find(name, index);
            if (index.data() == QString::fromLatin1(name) || below.isValid())
                return below.isValid() ? below : index.siblingAtColumn(1);
        }
        return {};
    }
    std::string Shown(char const *name) const
    {
        return Find(name).data().toString().toStdString();
    }
    std::string Message() const
    {
        return m_tree->findChild<QLabel *>(QStringLiteral("featureMessage"))->accessibleName().toStdString();
    }
    bool Says(std::string const &part) const
    {
        return Eventually([&] { return Message().find(part) != std::string::npos; });
    }
    void Key(char const *name, Qt::Key key)
    {
        m_view->setCurrentIndex(Find(name));
        QTest::keyClick(m_view, key);
    }
    template<typename W = QWidget>
    W *Editor() const
    {
        return m_view->findChild<W *>(QStringLiteral("featureEditor"));
    }
    void Type(char const *text) const
    {
        QTest::keyClicks(Editor(), QString::fromLatin1(text));
        QTest::keyClick(Editor(), Qt::Key_Return);
    }
    void Written(FeatureCamera::Index feature, std::function<bool(TovCam::FeatureValue const &)> is)
    {
        EXPECT_TRUE(Eventually([&] { return m_camera.With(feature, [&](auto &state) { return is(state.value); }); }));
    }
};

TEST_F(FeatureTreeTest, KeepsWhatWasTypedUntilItMakesSense)
{
    Fill();
    Key("Width", Qt::Key_F2);
    Type("wide");
    EXPECT_TRUE(Says("\"wide\" is not a whole number."));
    ASSERT_TRUE(Editor()) << "it stays open";
    m_view->setFocus(); // and gives up when the user goes elsewhere
    EXPECT_TRUE(Eventually([this] { return !Editor(); }));
    EXPECT_EQ(Shown("Width"), "640");
    EXPECT_EQ(m_camera.TakeLog().find('w'), std::string::npos);

    Key("Width", Qt::Key_Return);
    Type("99999");
    Written(m_sample.width, [](auto &value) { return value.integer == 2048; });
    EXPECT_TRUE(Eventually([&] { return Shown("Width") == "2048" && !Editor(); })) << Shown("Width");
    EXPECT_TRUE(Says("above the range")) << Message();
    Key("FileAccessBuffer", Qt::Key_F2);
    ASSERT_TRUE(Editor<QLineEdit>());
    EXPECT_TRUE(Editor<QLineEdit>()->isReadOnly());
    EXPECT_EQ(Editor<QLineEdit>()->text(), QStringLiteral("01 AB 00 7A"));

    m_camera.readStatus = TOV_CAM_ERR_GENICAM_GENERIC; // what was written is not shielded from it
    EXPECT_TRUE(Eventually([this] { return Find("Width").data(Qt::ForegroundRole).isValid(); }));
    EXPECT_TRUE(Find("Width").data(Qt::ToolTipRole).toString().contains(QStringLiteral("Not read")));
}

TEST_F(FeatureTreeTest, SliderWritesWhileItMovesAndEscapePutsBack)
{
    Fill();
    Key("Gain", Qt::Key_F2);
    auto *const slider = m_view->findChild<QSlider *>(QStringLiteral("featureSlider"));
    ASSERT_TRUE(slider);
    slider->setValue(20);
    Written(m_sample.gain, [](auto &value) { return value.integer == 20; });
    QTest::keyClick(Editor(), Qt::Key_Escape);
    Written(m_sample.gain, [](auto &value) { return value.integer == 5; });
}

TEST_F(FeatureTreeTest, OffersAvailableEntriesAndRefreshesWhatIsSelected)
{
    m_camera.onWrite = [this](FeatureCamera::Index feature) { // each colour has a gain of its own
        if (feature == m_sample.selector)
            m_camera.Unlocked(m_sample.gain).value.integer = 11;
    };
    Fill();
    bool atOnce = false; // before it is looked at again; a busy machine gets some tries
    for (int round = 0; round < 20 && !atOnce; ++round) {
        bool const blue = round % 2 == 0;
        m_camera.With(m_sample.gain, [](auto &state) { state.value.integer = 5; });
        ASSERT_TRUE(Eventually([this] { return Shown("Gain") == "5"; }));
        Key("GainSelector", Qt::Key_Return);
        auto *const combo = Editor<QComboBox>();
        ASSERT_TRUE(combo);
        ASSERT_EQ(combo->count(), 3);
        EXPECT_EQ(combo->itemText(2), QStringLiteral("Blue"));
        ASSERT_TRUE(Eventually([] { return QApplication::activePopupWidget() != nullptr; }));
        QTest::keyClick(QApplication::focusWidget(), blue ? Qt::Key_End : Qt::Key_Home);
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Return);
        Written(m_sample.selector, [=](auto &value) { return (value.text == "Blue") == blue; });
        atOnce = QTest::qWaitFor([this] { return Shown("Gain") == "11"; }, 600);
    }
    EXPECT_TRUE(atOnce);
}

TEST_F(FeatureTreeTest, TellsWhyAFeatureIsNotAsWanted)
{
    Fill();
    m_camera.With(m_sample.width, [](auto &state) {
        state.access = FeatureAccess::ReadOnly;
        state.streamLocked = true;
    });
    m_camera.With(m_sample.gain, [](auto &state) {
        state.access = FeatureAccess::NotAvailable;
        state.refused.push_back({"Gain", "GainSelector=Red", "90", "5", TOV_CAM_ERR_GENICAM_OUT_OF_RANGE});
    });
    EXPECT_TRUE(Eventually([this] { return !(Find("Width").flags() & Qt::ItemIsEditable); }));
    EXPECT_TRUE(Eventually([this] { return Shown("Gain") == "not available now"; }));
    EXPECT_EQ(Find("Width").data(Qt::ForegroundRole).value<QColor>(), FeatureModel::Grey());
    Key("Width", Qt::Key_F2);
    EXPECT_FALSE(Editor());
    EXPECT_TRUE(Says("Width: locked while the picture runs: Stop first"));
    m_view->setCurrentIndex(Find("Gain"));
    EXPECT_TRUE(Says("refused 90 at GainSelector=Red of the configuration file: The value is out of range"));
    EXPECT_EQ(static_cast<FeatureModel *>(m_view->model())->MarkOf(Find("Gain")), FeatureModel::Mark::Warning);
    EXPECT_TRUE(Find("Gain").data(Qt::ToolTipRole).toString().contains(QStringLiteral("GainSelector=Red")));

    m_camera.writeStatus = TOV_CAM_ERR_GENICAM_OUT_OF_RANGE;
    Key("EventMask", Qt::Key_F2);
    Type("2");
    EXPECT_TRUE(Says("EventMask was not written: The value is out of range (error -40204)"));
    EXPECT_EQ(Shown("EventMask"), "0x1F");
    EXPECT_TRUE(Find("EventMask").data(Qt::ToolTipRole).toString().contains(QStringLiteral("-40204")));
}

TEST_F(FeatureTreeTest, CommandTellsWhenItIsDone)
{
    m_camera.commandDone = false;
    Fill();
    QRect const cell = m_view->visualRect(Find("TriggerSoftware"));
    QTest::mouseClick(m_view->viewport(), Qt::LeftButton, {}, cell.topLeft() + QPoint(20, cell.height() / 2));
    EXPECT_TRUE(Eventually([this] { return Shown("TriggerSoftware") == "Running..."; }));
    EXPECT_TRUE(Eventually([this] { return m_camera.TakeLog().find('a') != std::string::npos; }));
    Key("TriggerSoftware", Qt::Key_Space); // not again
    m_camera.commandDone = true;
    EXPECT_TRUE(Eventually([this] { return Shown("TriggerSoftware") == "Done"; }));
    EXPECT_EQ(m_camera.TakeLog().find('w'), std::string::npos);
    EXPECT_TRUE(Eventually([this] { return Shown("TriggerSoftware") == "Execute"; }));
}

TEST_F(FeatureTreeTest, PollsWhatIsVisibleAndNothingWhileHidden)
{
    Fill();
    m_camera.With(m_sample.counter, [](auto &state) { state.value.real = 42.0; });
    EXPECT_TRUE(Eventually([this] { return Shown("DeviceTemperature") == "42 C"; }));
    auto const reads = [](std::string const &log, FeatureCamera::Index feature) {
        return QString::fromStdString(' ' + log)
            .replace(u' ', QStringLiteral("  "))
            .append(u' ')
            .count(QStringLiteral(" r%1 ").arg(feature));
    };
    auto const readsMeanwhile = [&] { // of the counter, until the width has been read three times
        std::string log;
        m_camera.TakeLog();
        EXPECT_TRUE(Eventually([&] { return reads(log += m_camera.TakeLog() + ' ', m_sample.width) >= 3; }));
        return reads(log, m_sample.counter);
    };
    EXPECT_TRUE(Eventually([&] { return readsMeanwhile() > 4; })); // it has a time of its own, which is shorter
    m_view->collapse(m_view->model()->index(1, 0));                // where the temperature is
    EXPECT_TRUE(Eventually([&] { return readsMeanwhile() == 0; }));
    m_tree->hide();
    EXPECT_TRUE(Eventually([&] {
        m_camera.TakeLog();
        QTest::qWait(1300);
        return m_camera.TakeLog().empty();
    }));
    m_tree->show();
    EXPECT_TRUE(Eventually([this] { return m_camera.TakeLog() != ""; }));
}

TEST_F(FeatureTreeTest, SlowOrLostCameraLeavesTheWindowAlive)
{
    Fill();
    m_camera.Hold(true); // for good
    ASSERT_TRUE(Eventually([this] { return m_camera.running == 1; }));
    Key("ReverseX", Qt::Key_Space);
    EXPECT_EQ(Find("ReverseX").data(Qt::CheckStateRole).toInt(), int(Qt::Checked)) << "what is on its way";
    m_tree->findChild<QLineEdit *>(QStringLiteral("featureSearch"))->setText(QStringLiteral("e"));
    EXPECT_TRUE(Eventually([this] { return Find("ReverseX").data(Qt::FontRole).value<QFont>().italic(); }));
    EXPECT_EQ(m_camera.running, 1) << "the window has waited for the camera";
    EXPECT_EQ(Shown("Width"), "640");

    m_camera.readStatus = m_camera.writeStatus = TOV_CAM_ERR_NO_DEVICE; // gone at last
    m_camera.Hold(false);
    EXPECT_TRUE(Says("The camera is gone"));
    EXPECT_EQ(Find("ReverseX").data(Qt::CheckStateRole).toInt(), int(Qt::Unchecked));

    m_camera.Hold(true);
    ASSERT_TRUE(Eventually([this] { return m_camera.running == 1; }));
    m_tree.reset(); // would hang here
}

TEST_F(FeatureTreeTest, ShowsACamerasTextsAsTheyStand)
{
    std::string const hostile = "<h1>Big</h1>\n<img src=x>\u202Ey\x07", shown = "<h1>Big</h1> <img src=x>y";
    auto const name = m_camera.Add(hostile, TovCam::FeatureKind::String, m_sample.image, [&](auto &info, auto &state) {
        info.name = "Hostile";
        info.toolTip = "T" + hostile;
        info.description = "D" + hostile;
        info.unit = hostile;
        state.value.text = hostile;
    });
    m_camera.Add("Choice", TovCam::FeatureKind::Enumeration, m_sample.image, [&](auto &info, auto &) {
        info.entries.push_back({"One", hostile, hostile, 0, TovCam::FeatureVisibility::Beginner});
    });
    m_camera.With(name, [&](auto &state) {
        state.refused.push_back({"Name", "A=" + hostile, hostile, {}, TOV_CAM_ERR_GENICAM_ACCESS});
    });
    Fill();
    QModelIndex const index = Find(shown.c_str());
    ASSERT_TRUE(Eventually([&] { return Shown("Choice") == shown; }));
    EXPECT_EQ(index.data().toString().toStdString(), shown + ' ' + shown);
    std::string const tip = Visible(index.data(Qt::ToolTipRole).toString());
    for (std::string const &part : {shown + " (Hostile)", "\nT" + shown, "\nD" + shown, "Unit: " + shown, "A=" + shown})
        EXPECT_NE(tip.find(part), std::string::npos) << part << '\n' << tip;
    m_view->setCurrentIndex(index);
    EXPECT_TRUE(Says(shown + ": the camera refused " + shown + " at A=" + shown));
    auto *const message = m_tree->findChild<QLabel *>(QStringLiteral("featureMessage"));
    EXPECT_EQ(message->textFormat(), Qt::PlainText);
    EXPECT_EQ(Visible(message->toolTip()), Message());
    m_view->setCurrentIndex(Find("Choice"));
    m_view->edit(Find("Choice"));
    auto *const combo = Editor<QComboBox>();
    ASSERT_TRUE(combo);
    EXPECT_EQ(combo->itemText(0).toStdString(), shown);
    EXPECT_EQ(Visible(combo->itemData(0, Qt::ToolTipRole).toString()), "<h1>Big</h1>\n<img src=x>y");
}

TEST_F(FeatureTreeTest, ViewStateComesBackAndSearchLeavesItAlone)
{
    Fill();
    auto *const search = m_tree->findChild<QLineEdit *>(QStringLiteral("featureSearch"));
    m_view->collapse(m_view->model()->index(1, 0));
    m_view->setCurrentIndex(Find("Exposure Time"));
    std::string const state = m_tree->GetViewState();
    search->setFocus();
    QTest::keyClicks(search, QStringLiteral("mask"));
    EXPECT_EQ(Rows(*m_view->model()), "TransportLayerControl[EventMask]");
    EXPECT_TRUE(m_view->isExpanded(m_view->model()->index(0, 0)));
    QTest::keyClick(search, Qt::Key_Escape);
    EXPECT_EQ(m_tree->GetViewState(), state);

    TovGenParamTreeView other(nullptr);
    other.SetViewState(state.c_str()); // before there are features
    std::string const longText(2 << 20, 'x');
    for (std::string const &hostile :
         {std::string(), std::string("\x01\x02"), std::string("TovFeatureTree 2\nvisibility Beginner"), longText,
          "TovFeatureTree 1\nsearch " + longText})
        other.SetViewState(hostile.c_str());
    EXPECT_EQ(other.GetViewState(), state);
    other.SetGenParamArray(&m_camera);
    auto *const view = other.findChild<QTreeView *>();
    ASSERT_TRUE(Eventually([&] { return view->model()->rowCount() == 2; }));
    EXPECT_TRUE(view->isExpanded(view->model()->index(0, 0)));
    EXPECT_FALSE(view->isExpanded(view->model()->index(1, 0)));
    EXPECT_EQ(view->currentIndex().data(), QStringLiteral("Exposure Time"));
    other.SetViewState("TovFeatureTree 1\nvisibility 99\ncolumn -5\nexpanded \nselected\n\xFF\xFE zz\n");
}

} // namespace
