// The program's main window, and what is found in it.
#pragma once

#include "guimanager.h"
#include "session.h"
#include "tovscope.h"
#include "wait.h"

#include <QtTest>
#include <QtWidgets>

#include <functional>

class WindowTest : public testing::Test
{
protected:
    WindowTest()
    {
        QSettings(QStringLiteral("Velmor"), QStringLiteral("TovScope")).clear();
    }
    void NewWindow()
    {
        m_window = std::make_unique<TovScope>(nullptr, false, false);
        m_window->show();
    }
    GuiManager &Gui()
    {
        return m_window->GetGuiManager();
    }
    Session *Current()
    {
        return Gui().GetSession();
    }
    bool Reaches(SessionState state)
    {
        return Eventually([&] { return Current() && Current()->GetState() == state; });
    }
    void Connect(TovCam::Device *device)
    {
        ASSERT_TRUE(Gui().CreateSession(device) && Gui().CreatePanels());
        ASSERT_TRUE(Reaches(SessionStateIdle));
    }
    template<typename W>
    W *Find(char const *name)
    {
        return m_window->findChild<W *>(QString::fromLatin1(name));
    }
    QAction *Action(char const *name)
    {
        return Find<QAction>(("action" + std::string(name)).c_str());
    }
    std::string Title()
    {
        return m_window->windowTitle().toStdString();
    }
    // While `call` runs, one dialog opens and `act` answers it.
    template<typename Dialog>
    void During(std::function<void()> const &call, std::function<void(Dialog *)> const &act)
    {
        QTimer answer;
        QObject::connect(&answer, &QTimer::timeout, [&] {
            if (auto *const dialog = qobject_cast<Dialog *>(QApplication::activeModalWidget())) {
                answer.stop();
                act(dialog);
            }
        });
        answer.start(5);
        call();
        EXPECT_FALSE(answer.isActive()) << "no dialog";
    }
    // Cancels the dialog where there is no path.
    static void Choose(QFileDialog *dialog, QString const &path)
    {
        dialog->findChild<QLineEdit *>(QStringLiteral("fileNameEdit"))->setText(path);
        QMetaObject::invokeMethod(dialog, path.isEmpty() ? "reject" : "accept");
    }

    std::unique_ptr<TovScope> m_window;
};
