// The camera selector's place, size and columns, from one time to the next. GUI thread only.
#pragma once

#include "cameratree.h"

#include <QDialog>

namespace TovGui {

// Of so many characters in the font of the widget, on average.
int CharWidth(QWidget const *widget, int characters);

// The size and the columns are kept; the place is always over the window that the user works in.
void SaveSelectorGeometry(QDialog const *dialog, CameraTree const *tree);
// False where nothing was kept: the columns have widths that suit most cameras then.
bool RestoreSelectorGeometry(QDialog *dialog, CameraTree *tree);
// Without a parent the dialog still belongs over the active window, and stays in front of it.
void PlaceSelector(QDialog *dialog);

} // namespace TovGui
