#include "tovcameragui.h"

namespace TovGui {

struct TovGenParamTreeView::TreeImpl
{
    Visibility visibility = Beginner;
};

TovGenParamTreeView::TovGenParamTreeView(QWidget *parent) : QWidget(parent), m_impl(std::make_unique<TreeImpl>())
{
}

TovGenParamTreeView::~TovGenParamTreeView() = default;

void TovGenParamTreeView::SetGenParamArray(TovCam::ParamArray *)
{
}

Visibility TovGenParamTreeView::visibility() const
{
    return m_impl->visibility;
}

void TovGenParamTreeView::setVisibility(Visibility level)
{
    m_impl->visibility = level;
}

char const *TovGenParamTreeView::GetViewState()
{
    return "";
}

void TovGenParamTreeView::SetViewState(char const *)
{
}

} // namespace TovGui
