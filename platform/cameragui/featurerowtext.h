// What the tree says about a feature: in its cells, its tooltip and the line below the tree.
#pragma once

#include "featurerow.h"

#include <QCoreApplication>

namespace TovGui {

class FeatureRowText
{
    Q_DECLARE_TR_FUNCTIONS(TovGui::FeatureRowText)
public:
    static QString Value(FeatureRow const &row); // of the second column; empty for a check box
    static QString ToolTip(FeatureRow const &row);
    static QString Summary(FeatureRow const &row); // one line, with what is wrong instead of the rest
};

} // namespace TovGui
