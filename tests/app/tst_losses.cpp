// What the operator is told of losses while the picture runs, in the real window, of a camera on the network. In a
// network namespace of its own.
#include "camerainfodlg.h"
#include "lossesdlg.h"
#include "window.h"
#include "wireclients.h"

#include "params.h"

namespace {

class Losing : public WindowTest
{
protected:
    Losing()
    {
        NewWindow();
        MakeSmall(*m_camera);
        Set(*m_camera, "WireIgnoreResend", "1");
        Gui().Open(FindAt(m_system));
        EXPECT_TRUE(Reaches(SessionStateIdle));
    }
    ~Losing() override
    {
        m_window.reset();
        m_system->Release();
    }
    void Play()
    {
        Action("Play")->trigger();
        ASSERT_TRUE(Reaches(SessionStateAcquisition));
    }
    // As the operator gets there.
    void WithDialog(std::function<void(LossesDialog *)> const &act)
    {
        During<CameraInfoDlgImpl>([this] { Action("CameraInformation")->trigger(); },
                                  [&](CameraInfoDlgImpl *info) {
                                      auto *const losses =
                                          info->findChild<QPushButton *>(QStringLiteral("buttonLosses"));
                                      m_told = info->findChild<QTextBrowser *>()->toPlainText();
                                      During<LossesDialog>([&] { losses->click(); }, act);
                                      info->reject();
                                  });
    }
    static QTextBrowser *TextOf(LossesDialog *dialog)
    {
        return dialog->findChild<QTextBrowser *>();
    }
    static testing::AssertionResult Says(LossesDialog *dialog, char const *expression)
    {
        QRegularExpression const wanted(QString::fromLatin1(expression));
        return Eventually([&] { return wanted.match(TextOf(dialog)->toPlainText()).hasMatch(); });
    }

    std::unique_ptr<WireCamera> m_camera = Serve(Grey);
    TovCam::System *m_system = TovCam_GetSystem();
    QString m_told; // in the camera information
};

TEST_F(Losing, EachPlaceIsNamedAsItLosesWithWhatMendsIt)
{
    WithDialog([](LossesDialog *dialog) {
        EXPECT_TRUE(Says(dialog, "^Nothing was lost since the picture was started\\.\n$"));
        dialog->reject();
    });
    Play();
    WithDialog([this](LossesDialog *dialog) {
        Set(*m_camera, "SimMissingEvery", "3");
        EXPECT_TRUE(
            Says(dialog, "^The camera has counted frames and not sent them: .* missing\\.\n    Lower the frame"));
        Set(*m_camera, "SimMissingEvery", "0");
        Set(*m_camera, "WireLostPackets", "7");
        Set(*m_camera, "WireLostEvery", "2");
        EXPECT_TRUE(
            Says(dialog, "\n[0-9,]+ packets got lost on the wire or in a switch: .* incomplete\\.\n    Have the"));
        EXPECT_TRUE(Says(dialog, "^The camera has counted frames"));
        // It goes on, but not under the hand of somebody who selects what he wants to copy.
        QString const before = TextOf(dialog)->toPlainText();
        EXPECT_TRUE(Eventually([&] { return TextOf(dialog)->toPlainText() != before; }));
        TextOf(dialog)->selectAll();
        QString const chosen = TextOf(dialog)->toPlainText();
        TextOf(dialog)->copy();
        EXPECT_EQ(QGuiApplication::clipboard()->text(), chosen);
        std::int64_t const frames = IntOf(Current()->GetGrabber(), "FramesIncomp");
        EXPECT_TRUE(Eventually([&] { return IntOf(Current()->GetGrabber(), "FramesIncomp") > frames + 5; }));
        QMetaObject::invokeMethod(dialog->findChild<QTimer *>(), "timeout");
        EXPECT_EQ(TextOf(dialog)->toPlainText(), chosen);
        TextOf(dialog)->moveCursor(QTextCursor::Start);
        EXPECT_TRUE(Eventually([&] { return TextOf(dialog)->toPlainText() != chosen; }));
        for (QPushButton *const button : dialog->findChildren<QPushButton *>()) {
            if (button->text() == QStringLiteral("Copy"))
                button->click();
        }
        EXPECT_EQ(QGuiApplication::clipboard()->text(), TextOf(dialog)->toPlainText());
        dialog->reject();
    });
    WithDialog([](LossesDialog *dialog) { dialog->reject(); });
    EXPECT_TRUE(m_told.contains(QStringLiteral("\nLosses\nThe camera has counted frames and not sent them: ")));
    // A new start is a new account.
    Action("Stop")->trigger();
    ASSERT_TRUE(Reaches(SessionStateIdle));
    Set(*m_camera, "WireLostPackets", "0");
    Play();
    WithDialog([](LossesDialog *dialog) {
        EXPECT_FALSE(TextOf(dialog)->toPlainText().contains(QStringLiteral("The camera has counted")));
        dialog->reject();
    });
}

// However it goes, and while its going is waited for.
TEST_F(Losing, TheDialogGoesWithTheCamera)
{
    std::function<void()> const ways[] = {
        [this] { Gui().cameraDisconnect(); },
        [this] {
            QTimer::singleShot(0, &Gui(), [this] { Gui().cameraDisconnect(); });
            m_camera->Die();
        },
        [this] {
            During<QMessageBox>(
                [this] {
                    m_camera->Die();
                    EXPECT_TRUE(Eventually([this] { return !Current(); }));
                },
                [](QMessageBox *box) { box->accept(); });
        },
    };
    for (auto const &go : ways) {
        if (!Current()) {
            m_camera->Return();
            Gui().Open(FindAt(m_system));
            ASSERT_TRUE(Reaches(SessionStateIdle));
        }
        Play();
        WithDialog([&](LossesDialog *dialog) {
            QPointer<LossesDialog> const open = dialog;
            go();
            EXPECT_TRUE(Eventually([&] { return !Current() && !(open && open->isVisible()); }));
            QMetaObject::invokeMethod(dialog->findChild<QTimer *>(), "timeout"); // that was on its way
        });
    }
}

} // namespace
