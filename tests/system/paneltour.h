// An operator at the panels: docks, the feature tree, the statistics, configurations. For every kind of camera.
#pragma once

#include "operator.h"
#include "settings.h"

#include <QAbstractItemView>
#include <QClipboard>
#include <QComboBox>
#include <QDockWidget>
#include <QTableView>
#include <QTemporaryDir>
#include <QTextBrowser>

#include <optional>

class PanelTour : public Tour
{
public:
    using Tour::Find;
    using Tour::Tour;

    QDockWidget *Dock(char const *name) const
    {
        return m_hands.Window()->findChild<QDockWidget *>(QString::fromLatin1(name));
    }
    TovCam::ParamArray *Features() const
    {
        return m_hands.Features();
    }
    // The index of a feature; nothing when the camera lacks it.
    std::optional<std::uint32_t> Find(std::string const &name) const
    {
        for (std::uint32_t i = 0; i < Features()->GetFeatureCount(); ++i)
            if (Features()->GetFeature(i)->name == name)
                return i;
        return {};
    }
    TovCam::FeatureState Read(std::string const &name) const
    {
        TovCam::FeatureState state;
        if (auto const index = Find(name))
            Features()->ReadFeature(*index, &state);
        return state;
    }

    // The rectangle, on the screen, of a feature's cell; empty while no row of it is shown. GUI thread.
    QRect Cell(std::string const &name, int column) const
    {
        auto const index = Find(name);
        auto *tree = m_hands.Window()->findChild<QTreeView *>(QStringLiteral("featureTree"));
        if (!index || !tree)
            return {};
        QString const shown = QString::fromStdString(Features()->GetFeature(*index)->displayName);
        auto const found = tree->model()->match(tree->model()->index(0, 0), Qt::DisplayRole, shown, -1,
                                                Qt::MatchExactly | Qt::MatchRecursive | Qt::MatchCaseSensitive);
        for (QModelIndex const &row : found) {
            QRect const rect = tree->visualRect(row.siblingAtColumn(column));
            if (!tree->model()->hasChildren(row) && !rect.isEmpty() && tree->viewport()->rect().contains(rect.center()))
                return QRect(tree->viewport()->mapToGlobal(rect.topLeft()), rect.size());
        }
        return {};
    }

    // Brings a feature onto the screen through the search field.
    void Search(std::string const &name)
    {
        m_robot.Click(m_hands.Window()->findChild<QWidget *>(QStringLiteral("featureTree")));
        m_robot.Key("ctrl+f");
        m_robot.WaitFor("the search field", [] {
            QWidget *focus = QApplication::focusWidget();
            return focus && focus->objectName() == QLatin1String("featureSearch");
        });
        m_robot.Key("ctrl+a");
        m_robot.Type(QString::fromStdString(name));
        m_robot.WaitFor(("the row of " + name).c_str(), [&] { return !Cell(name, 1).isEmpty(); });
    }

    // A simulated camera's frames end, the picture stays.
    void StandStill()
    {
        m_robot.Gui([&] { Features()->SetIntegerValue("SimMissingEvery", 1); });
        std::uint64_t last = 1;
        while (last != std::exchange(last, m_robot.Gui([&] { return m_hands.ShownFrame(); })))
            QThread::msleep(1000);
    }

    // Shows the features of every level.
    void ShowEverything()
    {
        auto *box = m_hands.Window()->findChild<QComboBox *>(QStringLiteral("featureVisibility"));
        m_robot.Click(box);
        m_robot.WaitFor("the levels", [&] { return box->view()->isVisible(); });
        m_robot.Key("End");
        m_robot.Key("Return");
        m_robot.WaitFor("the level", [&] { return box->currentIndex() == box->count() - 1; });
    }

    // Puts text into a feature's editor by the keyboard.
    void Edit(std::string const &name, QString const &text)
    {
        Search(name);
        m_robot.ClickAt(m_robot.Gui([&] { return Cell(name, 0).center(); }));
        m_robot.Key("F2");
        m_robot.WaitFor("an editor", [] {
            QWidget *focus = QApplication::focusWidget();
            return focus && focus->objectName() != QLatin1String("featureTree");
        });
        m_robot.Key("ctrl+a");
        m_robot.Type(text);
        m_robot.Key("Return");
    }

    // ---- The tour ----

    void DocksComeAndGo()
    {
        for (auto const &[action, name] : {std::pair("actionGenICamTree", "CameraGenParamPanel"),
                                           std::pair("actionStatistics", "StatisticsPanel")}) {
            QDockWidget *dock = Dock(name);
            ASSERT_TRUE(dock) << name;
            auto *entry = m_hands.Window()->findChild<QAction *>(QString::fromLatin1(action));
            m_robot.WaitFor("the panel", [&] { return dock->isVisible() && entry->isChecked(); });
            m_robot.Click(m_hands.Window(), action);
            m_robot.WaitFor("the panel to go", [&] { return !dock->isVisible() && !entry->isChecked(); });
            m_robot.ClickMenu(m_hands.Window(), action);
            m_robot.WaitFor("the panel to come back", [&] { return dock->isVisible() && entry->isChecked(); });
            // The title bar's button floats it, and docks it again.
            for (bool floating : {true, false}) {
                // A window that has just appeared may not take a click yet.
                bool done = false;
                for (int attempt = 0; attempt < 5 && !done; ++attempt) {
                    QThread::msleep(600); // two clicks, not a double one
                    m_robot.Click(dock->findChild<QWidget *>(QStringLiteral("qt_dockwidget_floatbutton")));
                    done = m_robot.Holds([&] { return dock->isFloating() == floating; }, 2000);
                }
                ASSERT_TRUE(done) << name << (floating ? " does not float" : " does not dock");
                m_robot.Screenshot(
                    QStringLiteral("%1-%2").arg(QLatin1String(name), QLatin1String(floating ? "floating" : "docked")));
            }
        }
    }

    // Returns what the value column of a statistics row says. GUI thread.
    QString Statistic(char const *label) const
    {
        auto *table = m_hands.Window()->findChild<QTableView *>(QStringLiteral("statisticsTable"));
        for (int row = 0; table && row < table->model()->rowCount(); ++row)
            if (table->model()->index(row, 0).data().toString() == QLatin1String(label))
                return table->model()->index(row, 1).data().toString();
        return {};
    }

    void StreamsWithTheTreeOpen(bool locksWidth)
    {
        Search("Width");
        m_hands.Play(m_robot);
        m_robot.WaitFor("the statistics to count",
                        [&] { return Statistic("Frames acquired").toInt() > 5 && Statistic("FPS").toDouble() > 0; });
        if (locksWidth) {
            // A locked feature takes no editor.
            EXPECT_NE(m_robot.Gui([&] { return Read("Width").access; }), TovCam::FeatureAccess::ReadWrite);
            m_robot.WaitFor("the lock to show", [&] {
                auto *tree = m_hands.Window()->findChild<QTreeView *>(QStringLiteral("featureTree"));
                QPoint const at = tree->viewport()->mapFromGlobal(Cell("Width", 1).center());
                return !(tree->indexAt(at).flags() & Qt::ItemIsEditable);
            });
        }
        m_robot.Screenshot(QStringLiteral("panels-streaming-%1").arg(Robot::TestName()));
        m_hands.Stop(m_robot);
    }

    void IsKeptInAConfiguration()
    {
        QTemporaryDir folder;
        QString const file = folder.filePath(QStringLiteral("camera.tcfg"));
        auto const before = m_robot.Gui([&] { return Settings(Features()); });
        m_robot.ClickMenu(m_hands.Window(), "actionSaveConfigurationAs");
        m_robot.AnswerFileDialog(file);
        m_robot.WaitFor("the file", [&] { return QFile::exists(file); });
        EXPECT_TRUE(m_robot.Gui([&] { return m_hands.Title(); }).endsWith(QStringLiteral(" { %1 }").arg(file)));
        m_robot.Gui([&] { ChangeSettings(Features()); }); // by the tree it would take minutes
        EXPECT_NE(m_robot.Gui([&] { return Settings(Features()); }), before);
        m_robot.Click(m_hands.Window(), "actionLoadConfiguration");
        m_robot.AnswerFileDialog(file);
        m_robot.WaitFor("the load", [&] { return !QApplication::overrideCursor(); });
        EXPECT_EQ(m_robot.Gui([&] { return Settings(Features()); }), before);

        // With no camera open the file alone brings it back.
        m_hands.Disconnect(m_robot);
        m_robot.Click(m_hands.Window(), "actionLoadConfiguration");
        m_robot.AnswerFileDialog(file);
        m_robot.WaitFor("the camera of the file", [&] { return m_hands.State() == SessionStateIdle; }, 20000);
        EXPECT_EQ(m_robot.Gui([&] { return Settings(Features()); }), before);
    }

    void ShowsItsReport()
    {
        m_robot.Click(m_hands.Window(), "actionCameraInformation");
        m_robot.WaitFor("the report", [] {
            QWidget *dialog = QApplication::activeModalWidget();
            return dialog && dialog->findChild<QTextBrowser *>();
        });
        QThread::msleep(200);
        m_robot.Screenshot(QStringLiteral("camera-information-%1").arg(Robot::TestName()));
        m_robot.Click(m_robot.Gui(
            [] { return QApplication::activeModalWidget()->findChild<QWidget *>(QStringLiteral("buttonCopy")); }));
        QString const report = m_robot.Gui([] { return QGuiApplication::clipboard()->text(); });
        EXPECT_TRUE(report.startsWith(QStringLiteral("Device Information\n"))) << report.toStdString();
        EXPECT_TRUE(report.contains(QStringLiteral("\nHost Information\n"))) << report.toStdString();
        m_robot.Click(m_robot.Gui(
            [] { return QApplication::activeModalWidget()->findChild<QWidget *>(QStringLiteral("buttonClose")); }));
        m_robot.WaitFor("the report to close", [] { return !QApplication::activeModalWidget(); });
    }
};
