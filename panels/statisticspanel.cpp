#include "statisticspanel.h"

#include "panelhost.h"
#include "session.h"

#include <QAction>
#include <QMainWindow>
#include <QMenu>
#include <QSettings>
#include <QShortcut>
#include <QStyle>
#include <QStyleOptionHeader>
#include <QStyledItemDelegate>
#include <QTime>

#include <cstring>
#include <iterator>

namespace {

constexpr int Period = 1000; // milliseconds
QString const HeaderKey = QStringLiteral("HeaderState");

constexpr struct
{
    char const *key;
    char const *label;
} Rows[] = {
    {"FramesAcquired", QT_TRANSLATE_NOOP("StatisticsPanelImpl", "Frames acquired")},
    {"Timestamp", QT_TRANSLATE_NOOP("StatisticsPanelImpl", "Timestamp [ns]")},
    {"FrameID", QT_TRANSLATE_NOOP("StatisticsPanelImpl", "Current BlockID")},
    {"FramesDroppedHW", QT_TRANSLATE_NOOP("StatisticsPanelImpl", "Frames dropped")},
    {"FpsInst", QT_TRANSLATE_NOOP("StatisticsPanelImpl", "FPS")},
    {"Speed", QT_TRANSLATE_NOOP("StatisticsPanelImpl", "Thoughput [MB/s]")}, // spelled so in copied tables
    {"FramesIncomp", QT_TRANSLATE_NOOP("StatisticsPanelImpl", "Frames incompleted")},
};

bool IsRate(int row)
{
    return row >= 0 && row < int(std::size(Rows)) &&
           (std::strcmp(Rows[row].key, "FpsInst") == 0 || std::strcmp(Rows[row].key, "Speed") == 0);
}

} // namespace

// Rates that are out of date are grey.
class StatisticsPanelImpl::RateDelegate : public QStyledItemDelegate
{
public:
    explicit RateDelegate(StatisticsPanelImpl *panel) : QStyledItemDelegate(panel), m_panel(panel)
    {
    }

protected:
    void initStyleOption(QStyleOptionViewItem *option, QModelIndex const &index) const override
    {
        QStyledItemDelegate::initStyleOption(option, index);
        if (!m_panel->m_running && IsRate(index.row()))
            option->state &= ~QStyle::State_Enabled;
    }

private:
    StatisticsPanelImpl *m_panel;
};

StatisticsPanelImpl::StatisticsPanelImpl(QMainWindow *window, PanelHost *host)
    : PlayerPanel(window, QStringLiteral("actionStatistics"), Period),
      m_model(this),
      m_copy(new QAction(tr("Copy"), this)),
      m_copyAll(new QAction(tr("Copy All"), this)),
      m_menu(new QMenu(this))
{
    m_model.initFormats();
    m_menu->addAction(m_copy);
    m_menu->addAction(m_copyAll);

    setupUi(this);
    setFloating(false);
    m_mainWindow->addDockWidget(Qt::BottomDockWidgetArea, this);
    statisticsTable->setModel(&m_model);
    statisticsTable->setItemDelegate(new RateDelegate(this));
    MeasureRows();

    connect(statisticsTable, &QTableView::customContextMenuRequested, this, &StatisticsPanelImpl::contextMenuRequested);
    connect(m_copy, &QAction::triggered, this, &StatisticsPanelImpl::Copy);
    connect(m_copyAll, &QAction::triggered, this, &StatisticsPanelImpl::CopyAll);
    auto *const keys = new QShortcut(QKeySequence::Copy, statisticsTable);
    keys->setContext(Qt::WidgetShortcut);
    connect(keys, &QShortcut::activated, this, &StatisticsPanelImpl::CopyCurrent);

    TovComponent *const grabber = host->GetSession()->GetGrabber();
    for (auto const &row : Rows)
        AddTableParam(statisticsTable, row.key, grabber, tr(row.label).toUtf8().constData());
    statisticsTable->resizeColumnToContents(0);
}

void StatisticsPanelImpl::UpdateAll()
{
    SessionState const state = m_session ? m_session->GetState() : SessionStateDisconnected;
    m_running = state == SessionStateAcquisition || state == SessionStateCapturing;
    PlayerPanel::UpdateAll();
    statisticsTable->viewport()->update();
}

// Rows and header are as high as a header with a short word.
void StatisticsPanelImpl::MeasureRows()
{
    QHeaderView *const horizontal = statisticsTable->horizontalHeader();
    QHeaderView *const vertical = statisticsTable->verticalHeader();
    QStyleOptionHeader option;
    option.initFrom(horizontal);
    option.text = QTime(0, 0).toString(QStringLiteral("a"));
    int const height =
        vertical->style()->sizeFromContents(QStyle::CT_HeaderSection, &option, QSize(), vertical).height();
    horizontal->setFixedHeight(height);
    vertical->setDefaultSectionSize(height);
}

bool StatisticsPanelImpl::SaveStateToGlobalSettings(QSettings *settings)
{
    PlayerPanel::SaveStateToGlobalSettings(settings);
    settings->beginGroup(objectName());
    settings->setValue(HeaderKey, statisticsTable->horizontalHeader()->saveState());
    settings->endGroup();
    return true;
}

bool StatisticsPanelImpl::LoadStateFromGlobalSettings(QSettings *settings)
{
    PlayerPanel::LoadStateFromGlobalSettings(settings);
    settings->beginGroup(objectName());
    statisticsTable->horizontalHeader()->restoreState(settings->value(HeaderKey).toByteArray());
    settings->endGroup();
    return true;
}

void StatisticsPanelImpl::contextMenuRequested(QPoint pos)
{
    m_contextIndex = statisticsTable->indexAt(pos);
    m_copy->setEnabled(m_contextIndex.isValid());
    m_menu->popup(statisticsTable->viewport()->mapToGlobal(pos));
}

void StatisticsPanelImpl::Copy()
{
    m_model.CopyField(m_contextIndex);
}

void StatisticsPanelImpl::CopyAll()
{
    m_model.CopyTable();
}

void StatisticsPanelImpl::CopyCurrent()
{
    m_contextIndex = statisticsTable->currentIndex();
    if (m_contextIndex.isValid())
        Copy();
}
