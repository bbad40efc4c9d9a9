// An operator who records through the capture panel. For every kind of camera.
#pragma once

#include "operator.h"

#include "imagewriter.h"

#include <QLineEdit>
#include <QRegularExpression>
#include <QToolButton>

class RecordingTour : public Tour
{
public:
    RecordingTour(Robot &robot, Operator &hands, char const *camera, QString const &folder)
        : Tour(robot, hands),
          m_camera(camera),
          m_top(folder)
    {
    }

    // With small frames, and running.
    void Connect()
    {
        m_hands.Connect(m_robot, m_camera);
        m_frameBytes = m_robot.Gui([this] {
            auto *const features = m_hands.Features();
            features->SetIntegerValue("Width", 256);
            features->SetIntegerValue("Height", 128);
            return features->GetIntegerValue("PayloadSize", nullptr);
        });
        EXPECT_EQ(Buttons(), "");
        Screenshot("idle");
        m_hands.Play(m_robot);
        m_robot.WaitFor("the buttons", [this] { return IsEnabled("btnRecord"); });
        EXPECT_EQ(Buttons(), "btnSnap btnRecord ");
    }

    // ---- Hands ----

    void Press(char const *button)
    {
        m_robot.Click(Find<QToolButton>(button));
    }
    // A folder of its own for what comes next; it does not exist yet. `leave` by Enter, or stay in the field.
    void TypeFolder(char const *name, bool leave = true)
    {
        m_folder = m_top + QLatin1Char('/') + QString::fromLatin1(name);
        Type("edFolderName", m_folder, leave);
    }
    void Type(char const *field, QString const &text, bool leave = true)
    {
        auto *const edit = Find<QLineEdit>(field);
        m_robot.Click(edit);
        m_robot.Key("ctrl+a");
        m_robot.Type(text);
        m_robot.WaitFor("the text", [=] { return edit->text() == text; });
        if (leave)
            m_robot.Key("Return");
    }
    // `how` starts the recording, or else the button.
    void Start(std::function<void()> const &how = {})
    {
        how ? how() : Press("btnRecord");
        m_robot.WaitFor("the recording", [this] { return m_hands.State() == SessionStateCapturing; });
        m_robot.WaitFor("some files", [this] { return Files().size() >= 5; });
        EXPECT_TRUE(m_robot.Gui([this] { return Find<QToolButton>("btnRecord")->isChecked(); }));
        EXPECT_FALSE(m_robot.Gui([this] { return Marked("edFramesSaved") || Marked("edFolderName"); }));
        EXPECT_EQ(Buttons(), "btnRecord ");
    }
    // `how` stops it, or it stops by itself; then the counters and the files are looked at.
    void End(std::function<void()> const &how = {}, QString const &name = QStringLiteral("shot_\\d{8}\\.raw"))
    {
        how ? how() : Press("btnRecord");
        m_robot.WaitFor("the end of the recording", [this] { return m_hands.State() == SessionStateAcquisition; });
        m_robot.Gui([&] {
            RecordingLedger const &ledger =
                dynamic_cast<ImageWriter *>(m_hands.CurrentSession()->GetImageWriter())->GetLedger();
            EXPECT_TRUE(ledger.AddsUp());
            EXPECT_EQ(ledger.saved, Files().size());
            EXPECT_EQ(Shown("edFramesSaved"), ledger.saved);
            // Counted with each frame; what is dropped behind the last one stands in the ledger alone.
            EXPECT_LE(Shown("edFramesDroppedSW"), ledger.droppedSW);
            EXPECT_EQ(Shown("edFramesDroppedHW"), 0);
            // What waited in the FIFO when the recording began was acquired before it.
            EXPECT_GE(Shown("edFramesAcquired") + 2, ledger.saved);
            EXPECT_FALSE(Find<QToolButton>("btnRecord")->isChecked());
        });
        EXPECT_EQ(Buttons(), "btnSnap btnRecord ");
        FilesAreWhole(name);
    }
    // Nothing but frames, each of them whole, under names of that pattern.
    void FilesAreWhole(QString const &name = QStringLiteral("shot_\\d{8}\\.raw"))
    {
        auto const entries = QDir(m_folder).entryInfoList(QDir::Files | QDir::Hidden);
        EXPECT_FALSE(entries.isEmpty());
        for (QFileInfo const &file : entries) {
            EXPECT_EQ(file.size(), m_frameBytes) << file.fileName().toStdString();
            EXPECT_TRUE(QRegularExpression(QRegularExpression::anchoredPattern(name)).match(file.fileName()).hasMatch())
                << file.fileName().toStdString();
        }
    }

    // ---- The tour ----

    void RecordsSnapsAndRecordsAgain()
    {
        TypeFolder("new/folder");
        Type("edFileName", QStringLiteral("shot_${image.id}"));
        Start();
        Screenshot("recording");
        End();
        Screenshot("recorded");

        // Where nothing can be written it is said at once, and not held against the next folder.
        Type("edFolderName", QStringLiteral("/proc/nothing"));
        Press("btnRecord");
        m_robot.WaitFor("the reason", [this] {
            auto const *const bar = Find<QWidget>("noticeBar");
            return bar->property("text").toString().contains(QLatin1String("failed")) && Marked("edFramesSaved") &&
                   Marked("edFolderName");
        });
        Screenshot("refused");
        Press("btnRecord");
        m_robot.WaitFor("the end", [this] { return m_hands.State() == SessionStateAcquisition; });

        // What was typed counts without Enter, for the panel's buttons and for the window's actions.
        TypeFolder("snap", false);
        m_robot.Key("ctrl+shift+r");
        m_robot.WaitFor("one file", [this] { return Files().size() == 1; });
        End([] {});
        EXPECT_EQ(m_robot.Gui([this] { return Shown("edFramesSaved") + Shown("edFramesAcquired"); }), 2);
        TypeFolder("menu", false);
        Start([this] { m_robot.ClickMenu(m_hands.Window(), "actionRecord"); });
        End([this] { m_robot.Click(m_hands.Window(), "actionStop"); });

        TypeFolder("template", false);
        Press("btnFileName");
        m_robot.WaitFor("the menu", [] { return QApplication::activePopupWidget(); });
        Screenshot("templates");
        m_robot.Key("Up"); // the last but one: the number
        m_robot.Key("Up");
        m_robot.Key("Return");
        Start([this] { m_robot.Key("ctrl+r"); });
        End([this] { m_robot.Key("ctrl+r"); }, QStringLiteral("shot_(\\d{8})#\\1\\.raw"));
        Type("edFileName", QStringLiteral("shot_${image.id}"));
    }

    // Ends that leave no camera behind; the next connection records as ever.
    void OutlivesTheEndOfTheConnection(std::function<void()> const &lose, std::function<void()> const &restore)
    {
        TypeFolder("disconnected");
        Start();
        m_hands.Disconnect(m_robot);
        FilesAreWhole();
        Connect();
        TypeFolder("lost");
        Start();
        lose();
        m_hands.AnswerLoss(m_robot);
        FilesAreWhole();
        restore();
        Connect();
        TypeFolder("found again");
        Start();
        End();
    }

    // To be followed by FilesAreWhole once the window has gone.
    void ClosesTheWindow()
    {
        TypeFolder("closed");
        Start();
        m_robot.Key("alt+F4");
        m_robot.WaitFor("the window to close", [this] { return !m_hands.Window()->isVisible(); });
    }

private:
    bool Marked(char const *field) const
    {
        return Find<QLineEdit>(field)->toolTip().contains(QLatin1String("/proc/nothing"));
    }
    bool IsEnabled(char const *button) const
    {
        return Find<QToolButton>(button)->isEnabled();
    }
    std::string Buttons()
    {
        return m_robot.Gui([this] {
            std::string enabled;
            for (char const *const name : {"btnSnap", "btnRecord", "btnCaptOptions"})
                enabled += IsEnabled(name) ? std::string(name) + ' ' : std::string();
            return enabled;
        });
    }
    long Shown(char const *counter) const
    {
        return Find<QLineEdit>(counter)->text().toLong();
    }
    QStringList Files() const
    {
        return QDir(m_folder).entryList({QStringLiteral("*.raw")}, QDir::Files);
    }
    void Screenshot(char const *state)
    {
        QThread::msleep(300);
        m_robot.Screenshot(
            QStringLiteral("capture-%1-%2").arg(QString::fromLatin1(m_camera), QString::fromLatin1(state)));
    }

    char const *m_camera;
    QString m_top;
    QString m_folder;
    qint64 m_frameBytes = 0;
};
