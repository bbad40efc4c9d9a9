#include "tovparamtablemodel.h"
#include "values.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QMainWindow>
#include <QTableView>

namespace {

class TableModel : public testing::Test
{
protected:
    TableModel()
    {
        view.setObjectName(QStringLiteral("table"));
        view.setModel(&model);
        view.setParent(&panel);
    }
    std::string Cell(int row, int column)
    {
        return model.data(model.index(row, column)).toString().toStdString();
    }
    std::string Clipboard()
    {
        return QGuiApplication::clipboard()->text().toStdString();
    }

    Values values;
    QMainWindow window;
    TovParamTableModel model;
    PlayerPanel panel{&window, QStringLiteral("action"), 0};
    QTableView view;
};

TEST_F(TableModel, ShowsLabelsAndValuesAsTheyAreAndCopiesThem)
{
    model.initFormats();
    panel.AddTableParam(&view, "Count", &values, "Frames");
    panel.AddTableParam(&view, "Speed", &values, nullptr);
    panel.AddTableParam(&view, "Nothing", &values, "Unknown");
    values.SetParamFloat("Speed", 29.968);
    ASSERT_EQ(model.rowCount(), 3);
    EXPECT_EQ(Cell(0, 0) + "=" + Cell(0, 1), "Frames=5");
    EXPECT_EQ(Cell(1, 0) + "=" + Cell(1, 1), "Speed=29.97");
    EXPECT_EQ(Cell(2, 1), "n/a");
    EXPECT_EQ(model.headerData(0, Qt::Horizontal), QStringLiteral("Parameter"));
    EXPECT_EQ(model.headerData(1, Qt::Horizontal), QStringLiteral("Value"));

    model.CopyField(model.index(1, 0));
    EXPECT_EQ(Clipboard(), "Speed\t29.97");
    model.CopyField(QModelIndex());
    EXPECT_EQ(Clipboard(), "\tn/a");
    values.SetParamInt("Count", 6);
    model.CopyTable();
    EXPECT_EQ(Clipboard(), "Frames\t6\nSpeed\t29.97\nUnknown\tn/a\n");
}

} // namespace
