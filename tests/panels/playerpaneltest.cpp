// Widgets bound to parameters, typed into and changed from other threads.
#include "tovparamtablemodel.h"
#include "values.h"
#include "wait.h"

#include <QCheckBox>
#include <QClipboard>
#include <QComboBox>
#include <QGroupBox>
#include <QLineEdit>
#include <QMainWindow>
#include <QTableView>
#include <QTest>
#include <QTimer>

#include <atomic>
#include <chrono>
#include <thread>

namespace {

constexpr int Period = 40;

class Panels : public testing::Test
{
protected:
    // A widget of the panel under a name.
    template<typename W>
    W *Add(PlayerPanel &panel, char const *name)
    {
        auto *const widget = new W(&panel);
        widget->setObjectName(QString::fromLatin1(name));
        return widget;
    }
    void Type(QLineEdit *edit, char const *text)
    {
        edit->setText(QString::fromUtf8(text));
        QTest::keyClick(edit, Qt::Key_Return);
    }

    Values values;
    QMainWindow window;
    PlayerPanel panel{&window, QStringLiteral("actionShown"), Period};
};

TEST_F(Panels, WhatIsTypedReachesTheParameter)
{
    using Adder = std::function<void(QLineEdit *, char const *)>;
    Adder const integer = [&](QLineEdit *edit, char const *key) {
        panel.AddIntegerEdit(edit, key, nullptr, &values);
    };
    Adder const real = [&](QLineEdit *edit, char const *key) {
        panel.AddFloatEdit(edit, key, "%.1f", &values);
    };
    Adder const text = [&](QLineEdit *edit, char const *key) {
        EXPECT_TRUE(panel.AddStringEdit(edit, key, &values));
    };
    struct
    {
        Adder add;
        char const *control;
        char const *key;
        char const *shown;
        char const *typed;
        char const *stored;
    } const rows[] = {
        {integer, "a", "Count", "5", "42", "42"},
        {integer, "b", "Count", "42", "abc", "0"},
        {integer, "c", "Count", "0", "2000000", "1000000"},
        {real, "Rate", "Rate", "0.5", "2.5", "2.5"},
        {real, "edit", "Rate", "2.5", "7.5", "2.5"}, // written under the control's name
        {text, "d", "Text", "start", "gr\u00fcn", "gr\u00fcn"},
    };
    for (auto const &row : rows) {
        auto *const edit = Add<QLineEdit>(panel, row.control);
        row.add(edit, row.key);
        EXPECT_EQ(edit->text().toStdString(), row.shown) << row.control;
        Type(edit, row.typed);
        EXPECT_EQ(values.Text(row.key), row.stored) << row.control;
        EXPECT_EQ(edit->text().toStdString(), row.typed) << "stays as it was typed";
    }

    // What was only entered and left stays, however long and in whatever bytes; the refresh of a panel spares it, too.
    auto *const folder = panel.findChild<QLineEdit *>(QStringLiteral("d"));
    for (std::string const &text : {std::string(300, 'f'), std::string(3000, 'f'), std::string("caf\xe9")}) {
        values.SetParamString("Text", text.c_str());
        panel.UpdateFromComponent(QString());
        EXPECT_EQ(folder->text(), QString::fromUtf8(text.c_str()));
        QTest::keyClick(folder, Qt::Key_Return);
        EXPECT_EQ(values.Text("Text"), text);
    }
    values.SetParamString("Text", std::string(3000, 'f').c_str());
    panel.UpdateFromComponent(QString());
    QTest::keyClicks(folder, QStringLiteral("g"));
    QTest::keyClick(folder, Qt::Key_Return);
    EXPECT_EQ(values.Text("Text"), std::string(3000, 'f') + 'g');

    auto *const box = Add<QCheckBox>(panel, "box");
    auto *const group = Add<QGroupBox>(panel, "group");
    group->setCheckable(true);
    group->setChecked(false);
    panel.AddBoolCheckBox(box, "Switch", &values);
    panel.AddBoolCheckGroupBox(group, "Group", &values);
    EXPECT_FALSE(box->isChecked());
    EXPECT_TRUE(group->isChecked());
    box->setTristate();
    box->setCheckState(Qt::PartiallyChecked);
    group->setChecked(false);
    EXPECT_EQ(values.Text("Switch") + values.Text("Group"), "10");

    panel.setWindowModality(Qt::WindowModal);
    box->setCheckState(Qt::Unchecked);
    EXPECT_EQ(values.Text("Switch"), "1") << "a modal panel writes nothing";
}

TEST_F(Panels, ChangesReachTheirWidgetsAtTheNextTickOnce)
{
    auto *const edit = Add<QLineEdit>(panel, "edit");
    auto *const second = Add<QLineEdit>(panel, "second");
    auto *const combo = Add<QComboBox>(panel, "combo");
    auto *const box = Add<QCheckBox>(panel, "box");
    edit->setReadOnly(true);
    combo->addItem(QStringLiteral("seven"), 7);
    combo->addItem(QStringLiteral("nine"), 9);
    panel.AddIntegerEdit(edit, "Count", "%05d", &values);
    panel.AddIntegerEdit(second, "Count", nullptr, &values);
    panel.AddParamLink("Other", combo, &values, 0, nullptr);
    panel.AddBoolCheckBox(box, "Switch", &values);
    PlayerPanel immediate{&window, QStringLiteral("other"), 0};
    auto *const shown = Add<QLineEdit>(immediate, "edit");
    immediate.AddIntegerEdit(shown, "Count", nullptr, &values);

    int changes = 0;
    QObject::connect(edit, &QLineEdit::textChanged, [&] { ++changes; });
    values.SetParamInt("Count", 10);
    values.SetParamInt("Count", 11);
    values.SetParamInt("Other", 9);
    values.SetParamBool("Switch", true);
    EXPECT_EQ(shown->text(), QStringLiteral("11")) << "without a timer at once";
    EXPECT_EQ(changes, 0);
    EXPECT_TRUE(Eventually([&] { return changes > 0; }));
    EXPECT_EQ(edit->text(), QStringLiteral("00011"));
    EXPECT_EQ(changes, 1);
    EXPECT_EQ(second->text(), QStringLiteral("5")) << "a second link of a parameter is not found";
    EXPECT_EQ(combo->currentIndex(), 1);
    EXPECT_TRUE(box->isChecked());
    values.SetParamInt("Other", 8);
    panel.UpdateFromComponent(QString());
    EXPECT_EQ(combo->currentIndex(), 1) << "no entry for the value";
}

TEST_F(Panels, WhatIsBeingTypedStaysUntilItIsFinished)
{
    auto *const edit = Add<QLineEdit>(panel, "edit");
    panel.AddIntegerEdit(edit, "Count", nullptr, &values);
    panel.setFloating(true);
    panel.setWidget(edit);
    panel.show();
    panel.activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(&panel, PatienceMs));
    edit->setFocus();
    QTest::keyClicks(edit, QStringLiteral("1"));
    values.SetParamInt("Count", 77);
    panel.UpdateFromComponent(QStringLiteral("Count"));
    EXPECT_EQ(edit->text(), QStringLiteral("51"));
    QTest::keyClick(edit, Qt::Key_Return);
    EXPECT_EQ(values.Text("Count"), "51");
    values.SetParamInt("Count", 88);
    panel.UpdateFromComponent(QStringLiteral("Count"));
    EXPECT_EQ(edit->text(), QStringLiteral("88")) << "it has the focus, but nothing is being typed";
}

// What a camera at speed does to panels that come and go.
TEST_F(Panels, AStormOfChangesCostsOneRefreshAPeriod)
{
    auto *const edit = Add<QLineEdit>(panel, "edit");
    panel.AddIntegerEdit(edit, "Count", nullptr, &values);
    QObject::connect(&panel, &PlayerPanel::enableControl, [edit](QObject *w, bool) { EXPECT_EQ(w, edit); });
    int refreshes = 0;
    QObject::connect(edit, &QLineEdit::textChanged, [&] { ++refreshes; });

    std::atomic<bool> stop{false};
    std::atomic<long> changes{0};
    std::thread storm([&] {
        while (!stop) {
            values.SetParamInt("Count", 1 + changes % 999999);
            values.SetParamInt("Other", 1 + changes++ % 999999);
            if (changes % 1000 == 0)
                emit panel.enableControl(edit, changes % 2000 != 0);
            std::this_thread::sleep_for(std::chrono::microseconds(20));
        }
    });
    int periods = 0;
    QObject::connect(panel.findChild<QTimer *>(), &QTimer::timeout, [&] { ++periods; });
    for (int made = 0; made < 20; ++made) {
        PlayerPanel guest(&window, QStringLiteral("guest"), 1);
        auto *const other = Add<QLineEdit>(guest, "other");
        guest.AddIntegerEdit(other, "Other", nullptr, &values);
        QString const before = other->text();
        EXPECT_TRUE(Eventually([&] { return other->text() != before; }));
    }
    EXPECT_TRUE(Eventually([&] { return changes > 1000 && refreshes > 3; }));
    stop = true;
    storm.join();
    EXPECT_LE(refreshes, periods);
    EXPECT_TRUE(Eventually([&] { return edit->text().toStdString() == values.Text("Count"); }));
}

TEST_F(Panels, ATableShowsLabelsAndValuesAndCopiesThem)
{
    PlayerPanel table{&window, QStringLiteral("table"), 0};
    QTableView *const view = Add<QTableView>(table, "table");
    TovParamTableModel model;
    view->setModel(&model);
    model.initFormats();
    table.AddTableParam(view, "Count", &values, "Frames");
    table.AddTableParam(view, "Speed", &values, nullptr);
    table.AddTableParam(view, "Nothing", &values, "Unknown");
    values.SetParamFloat("Speed", 29.968);
    auto const copied = [] {
        return QGuiApplication::clipboard()->text().toStdString();
    };
    model.CopyField(model.index(1, 0));
    EXPECT_EQ(copied(), "Speed\t29.97");
    model.CopyField(QModelIndex());
    EXPECT_EQ(copied(), "\tn/a");
    values.SetParamInt("Count", 6);
    model.CopyTable();
    EXPECT_EQ(copied(), "Frames\t6\nSpeed\t29.97\nUnknown\tn/a\n");
}

} // namespace
