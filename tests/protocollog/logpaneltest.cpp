// The log's panel over a camera that refuses its packets.
#include "fakehost.h"
#include "logpanelimpl.h"
#include "session.h"

#include <QCheckBox>
#include <QCoreApplication>
#include <QGroupBox>
#include <QTest>

#include <gtest/gtest.h>

namespace {

TEST(LogPanel, ARefusedChannelIsClearedAndTellsTheWayOut)
{
    struct
    {
        TovCam::InterfaceKind kind;
        QString line;
    } const rows[] = {
        {TovCam::InterfaceKindGigEVision,
         QStringLiteral("\nsudo setcap cap_net_raw,cap_net_admin+ep %1").arg(QCoreApplication::applicationFilePath())},
        {TovCam::InterfaceKindUSB3Vision,
         QStringLiteral("\nsudo modprobe usbmon && sudo chgrp $(id -gn) /dev/usbmon* && sudo chmod g+r /dev/usbmon*")},
    };
    for (auto const &row : rows) {
        FakeDevice device;
        device.info.kind = row.kind;
        FakeHost host(device.script);
        Session session(nullptr, &device, &host);
        LogPanelImpl panel(&host.window);
        panel.SetCurrentSession(&session);
        host.window.show();
        auto *const group = panel.findChild<QGroupBox *>(QStringLiteral("groupLogging"));
        auto *const control = panel.findChild<QCheckBox *>(QStringLiteral("chkControl"));
        auto *const stream = panel.findChild<QCheckBox *>(QStringLiteral("chkStream"));
        auto const isRefused = [&](QCheckBox *box, char const *key) {
            bool on = true;
            return session.GetParamBool(key, &on) == 0 && !on && !box->isChecked() && box->toolTip().endsWith(row.line);
        };
        auto const press = [](QWidget *box) { // at its indicator
            QTest::mouseClick(box, Qt::LeftButton, {},
                              QPoint(10, qobject_cast<QGroupBox *>(box) ? 8 : box->height() / 2));
            QCoreApplication::processEvents();
        };
        press(group);
        EXPECT_TRUE(control->toolTip().isEmpty());
        device.script.Fail("RegisterEvent", TOV_CAM_ERR_UNKNOWN);
        press(control);
        EXPECT_TRUE(isRefused(control, "LogControl")) << control->toolTip().toStdString();
        device.script.Fail("RegisterEvent", 0);
        press(control);
        EXPECT_TRUE(control->isChecked());
        EXPECT_TRUE(control->toolTip().isEmpty());
        // By the main switch: each that is asked for.
        press(group);
        session.SetParamBool("LogStream", true);
        panel.UpdateAll();
        device.script.Fail("RegisterEvent", TOV_CAM_ERR_UNKNOWN);
        device.script.TakeLog();
        press(group);
        EXPECT_EQ(device.script.TakeLog(), "RegisterEvent 1000; RegisterEvent 1001");
        EXPECT_TRUE(isRefused(control, "LogControl"));
        EXPECT_TRUE(isRefused(stream, "LogStream"));
        EXPECT_TRUE(panel.isLogEnabled());
        EXPECT_FALSE(panel.isEventChannelEnabled());
    }
}

} // namespace
