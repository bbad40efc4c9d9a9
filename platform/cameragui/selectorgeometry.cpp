#include "selectorgeometry.h"

#include "cameramodel.h"

#include <QApplication>
#include <QHeaderView>
#include <QScreen>
#include <QSettings>
#include <QWindow>

#include <algorithm>

namespace TovGui {

namespace {

QSettings OpenSettings()
{
    return QSettings(QStringLiteral("Velmor"), QStringLiteral("TovCameraGui"));
}

QString ColumnsKey()
{
    return QStringLiteral("SelectorDialog/columns");
}

QString SizeKey()
{
    return QStringLiteral("SelectorDialog/size");
}

} // namespace

int CharWidth(QWidget const *widget, int characters)
{
    return widget->fontMetrics().averageCharWidth() * characters;
}

bool RestoreSelectorGeometry(QDialog *dialog, CameraTree *tree)
{
    static constexpr int Widths[CameraModel::ColumnCount] = {26, 18, 18, 16, 20, 13}; // characters
    QSize size(0, tree->header()->sizeHint().height() + dialog->fontMetrics().lineSpacing() * 24);
    QSettings const settings = OpenSettings();
    QVariantList const saved = settings.value(ColumnsKey()).toList();
    bool const restored = saved.size() == CameraModel::ColumnCount;
    for (int column = 0; column < CameraModel::ColumnCount; ++column) {
        int width = CharWidth(dialog, Widths[column]);
        size.rwidth() += width;
        if (restored)
            width = std::clamp(saved[column].toInt(), CharWidth(dialog, 2), CharWidth(dialog, 200));
        tree->setColumnWidth(column, width);
    }
    size.rwidth() += CharWidth(dialog, 6);
    QSize const savedSize = settings.value(SizeKey()).toSize();
    if (savedSize.isValid())
        size = savedSize;
    QScreen const *screen = dialog->parentWidget() ? dialog->parentWidget()->screen() : dialog->screen();
    dialog->resize(size.boundedTo(screen->availableSize() * 9 / 10).expandedTo(dialog->minimumSizeHint()));
    return restored;
}

void SaveSelectorGeometry(QDialog const *dialog, CameraTree const *tree)
{
    QVariantList columns;
    for (int column = 0; column < CameraModel::ColumnCount; ++column)
        columns << tree->columnWidth(column);
    QSettings settings = OpenSettings();
    settings.setValue(ColumnsKey(), columns);
    settings.setValue(SizeKey(), dialog->size());
}

void PlaceSelector(QDialog *dialog)
{
    QWidget const *anchor = dialog->parentWidget() ? dialog->parentWidget()->window() : QApplication::activeWindow();
    if (!anchor)
        return;
    QRect const available = anchor->screen()->availableGeometry();
    QRect place(QPoint(), dialog->size());
    place.moveCenter(anchor->frameGeometry().center());
    place.moveLeft(
        std::clamp(place.left(), available.left(), std::max(available.left(), available.right() - place.width())));
    place.moveTop(
        std::clamp(place.top(), available.top(), std::max(available.top(), available.bottom() - place.height())));
    dialog->move(place.topLeft());
    if (!dialog->parentWidget() && anchor->windowHandle()) {
        dialog->winId(); // creates the native window
        dialog->windowHandle()->setTransientParent(anchor->windowHandle());
    }
}

} // namespace TovGui
