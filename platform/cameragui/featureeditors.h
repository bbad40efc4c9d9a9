// The editors of values, one for each kind of feature. They end by Enter, by Escape, or when they lose the keyboard,
// and report it by signals. GUI thread only.
#pragma once

#include "featuremodel.h"
#include "featuretext.h"

#include <QWidget>

namespace TovGui {

class FeatureEditor : public QWidget
{
    Q_OBJECT
public:
    // Null where the feature has none. What takes the keyboard is called "featureEditor".
    static FeatureEditor *Make(FeatureModel *model, std::uint32_t feature, QWidget *parent);

    // What is to be written. Not accepted and without a hint: nothing was changed.
    virtual ParsedValue Result() const = 0;
    // Puts back what was written while the slider moved.
    void GiveUp();
    // It is being closed: losing the focus by that means nothing.
    void End();

signals:
    // `keyboard`: by Enter, so that it may stay open to be corrected.
    void finished(bool keyboard);
    void givenUp();

protected:
    FeatureEditor(FeatureModel *model, std::uint32_t feature, QWidget *parent);
    FeatureRow const *Row() const; // null when the tree was emptied meanwhile
    void SetInput(QWidget *input); // takes the keyboard
    void Watch(QWidget *widget);   // a part of the editor
    void WriteLive(TovCam::FeatureValue const &value);
    bool eventFilter(QObject *watched, QEvent *event) override;

    FeatureModel *const m_model;
    std::uint32_t const m_feature;
    TovCam::FeatureValue const m_original;
    bool m_live = false; // something was written
};

} // namespace TovGui
