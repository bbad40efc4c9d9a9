// What a user has made of the feature tree, and its text form: a first line that names the format, then one word and
// its argument a line.
#pragma once

#include "tovcameragui.h"

#include <QByteArray>
#include <QSet>
#include <QString>

namespace TovGui {

struct FeatureViewState
{
    Visibility visibility = Beginner;
    QString search;
    QSet<QString> expanded; // paths as FeatureModel::PathOf
    QString selected;       // likewise, empty: nothing
    int column = 0;         // width of the first column in average characters, 0: as it comes

    TOV_CAMERAGUI_API QByteArray ToText() const;
    // False, with nothing changed, for text of any other origin. Lines that make no sense are passed over.
    TOV_CAMERAGUI_API bool FromText(char const *text);
};

} // namespace TovGui
