#include "camgenparampanelimpl.h"

#include "session.h"

#include <QMainWindow>
#include <QSettings>

namespace {

constexpr int Period = 1000; // milliseconds
QString const ViewStateKey = QStringLiteral("CamGenParamPanel");

} // namespace

CamGenParamPanelImpl::CamGenParamPanelImpl(QMainWindow *window)
    : PlayerPanel(window, QStringLiteral("actionGenICamTree"), Period)
{
    setupUi(this);
    setAccessibleName(tr("Camera parameters")); // the title has mark-up in it
    setFloating(false);
    m_mainWindow->addDockWidget(Qt::LeftDockWidgetArea, this);
    m_mainWindow->resizeDocks({this}, {width()}, Qt::Horizontal); // unless a stored layout says otherwise
    m_tree = new TovGui::TovGenParamTreeView(this);
    verticalLayout->addWidget(m_tree);
}

TovGui::Visibility CamGenParamPanelImpl::visibility() const
{
    return m_tree->visibility();
}

void CamGenParamPanelImpl::setVisibility(TovGui::Visibility level)
{
    m_tree->setVisibility(level);
}

void CamGenParamPanelImpl::SetCurrentSession(Session *session)
{
    PlayerPanel::SetCurrentSession(session);
    m_tree->SetGenParamArray(session->GetDevice()->GetCameraParameters(nullptr));
}

bool CamGenParamPanelImpl::SaveStateToSessionSettings(QSettings *settings, QString const & /*name*/)
{
    settings->beginGroup(objectName());
    if (char const *const state = m_tree->GetViewState())
        settings->setValue(ViewStateKey, QByteArray(state));
    settings->endGroup();
    return true;
}

bool CamGenParamPanelImpl::LoadStateFromSessionSettings(QSettings *settings, QString const & /*name*/)
{
    settings->beginGroup(objectName());
    QByteArray const state = settings->value(ViewStateKey).toByteArray();
    settings->endGroup();
    if (!state.isEmpty())
        m_tree->SetViewState(state.constData());
    return true;
}
