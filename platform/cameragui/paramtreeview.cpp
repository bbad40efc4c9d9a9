#include "featurepolling.h"
#include "featureview.h"
#include "featureviewstate.h"
#include "featureworker.h"
#include "mailbox.h"
#include "messagelabel.h"

#include <QComboBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLineEdit>
#include <QScopedValueRollback>
#include <QShortcut>
#include <QTimer>
#include <QVBoxLayout>

#include <algorithm>

namespace TovGui {

namespace {

constexpr std::chrono::milliseconds NoticeShown{12000};

} // namespace

// All of it lives on the GUI thread.
struct TovGenParamTreeView::TreeImpl : QObject
{
    explicit TreeImpl(TovGenParamTreeView *widget);
    ~TreeImpl() override;

    TovGenParamTreeView *const widget;
    std::shared_ptr<void> hold; // of the array whose features the model shows
    std::unique_ptr<FeatureWorker> worker;
    std::shared_ptr<Mailbox> mailbox; // the worker's way back; one a camera
    FeatureModel *model;
    FeatureView *view;
    QLineEdit *search;
    QComboBox *level;
    MessageLabel *line;
    FeaturePolling *polling;
    QTimer *noticeTimer; // takes the notice away
    QString notice;
    FeatureViewState state;
    QByteArray stateText;
    bool restoring = false; // the view moves by itself

    void Build();
    void Connect();
    void SetParams(TovCam::ParamArray *params);
    void OnResults();
    void OnWriteRequested(std::uint32_t feature, TovCam::FeatureValue const &value, bool live);
    void Refilter();
    void ShowPlaceholder();
    void ApplyExpansion();
    void ApplyState();
    void ShowNotice(QString const &text);
    void ShowLine();
};

TovGenParamTreeView::TreeImpl::TreeImpl(TovGenParamTreeView *tree) : widget(tree)
{
    Build();
    Connect();
    ApplyState();
}

TovGenParamTreeView::TreeImpl::~TreeImpl()
{
    SetParams(nullptr);
}

void TovGenParamTreeView::TreeImpl::Build()
{
    model = new FeatureModel(widget);
    view = new FeatureView(model, widget);
    search = new QLineEdit(widget);
    search->setObjectName(QStringLiteral("featureSearch"));
    search->setAccessibleName(tr("Search features"));
    search->setPlaceholderText(tr("Search (Ctrl+F)"));
    search->setToolTip(tr("Shows the features that hold these words in their name or description"));
    search->setClearButtonEnabled(true);
    search->setMaxLength(200);
    level = new QComboBox(widget);
    level->setObjectName(QStringLiteral("featureVisibility"));
    level->setAccessibleName(tr("Visibility of features"));
    level->setToolTip(tr("How many of the camera's features are shown"));
    level->addItems({tr("Beginner"), tr("Expert"), tr("Guru")});
    line = new MessageLabel(widget);

    auto *const top = new QHBoxLayout;
    top->setContentsMargins(2, 2, 2, 2);
    top->setSpacing(4);
    top->addWidget(search, 1);
    top->addWidget(level);
    auto *const layout = new QVBoxLayout(widget);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    layout->addLayout(top);
    layout->addWidget(view, 1);
    layout->addWidget(line);
    QWidget::setTabOrder(search, level);
    QWidget::setTabOrder(level, view);
    widget->setFocusProxy(view);
    view->SetPlaceholder(tr("No camera"));

    polling = new FeaturePolling(model, view, this);
    noticeTimer = new QTimer(this);
    noticeTimer->setSingleShot(true);
}

void TovGenParamTreeView::TreeImpl::Connect()
{
    connect(noticeTimer, &QTimer::timeout, this, [this] { ShowNotice({}); });
    connect(view->Delegate(), &FeatureDelegate::hinted, this, &TreeImpl::ShowNotice);
    connect(model, &FeatureModel::writeRequested, this, &TreeImpl::OnWriteRequested);
    connect(model, &FeatureModel::dataChanged, this, [this](QModelIndex const &index) {
        if (index.siblingAtColumn(0) == view->currentIndex().siblingAtColumn(0))
            ShowLine();
    });
    connect(view, &QTreeView::expanded, this, [this](QModelIndex const &index) {
        if (!restoring && !model->IsSearching())
            state.expanded.insert(model->PathOf(index));
    });
    connect(view, &QTreeView::collapsed, this, [this](QModelIndex const &index) {
        if (!restoring && !model->IsSearching())
            state.expanded.remove(model->PathOf(index));
    });
    connect(view->selectionModel(), &QItemSelectionModel::currentRowChanged, this, [this](QModelIndex const &current) {
        if (!restoring) {
            state.selected = model->PathOf(current.siblingAtColumn(0));
            ShowNotice({});
        }
        ShowLine();
    });
    connect(view->header(), &QHeaderView::sectionResized, this, [this](int section, int, int size) {
        if (!restoring && section == 0)
            state.column = size / std::max(view->fontMetrics().averageCharWidth(), 1);
    });
    connect(search, &QLineEdit::textChanged, this, [this](QString const &text) {
        state.search = text;
        Refilter();
    });
    connect(search, &QLineEdit::returnPressed, this, [this] { view->setFocus(Qt::ShortcutFocusReason); });
    connect(level, QOverload<int>::of(&QComboBox::currentIndexChanged), this, [this](int index) {
        state.visibility = Visibility(std::clamp(index, int(Beginner), int(Guru)));
        Refilter();
    });
    auto const shortcut = [this](QKeySequence const &keys, QWidget *where, auto action,
                                 Qt::ShortcutContext context = Qt::WidgetWithChildrenShortcut) {
        auto *const made = new QShortcut(keys, where);
        made->setContext(context);
        connect(made, &QShortcut::activated, this, action);
    };
    shortcut(
        QKeySequence::Find, widget,
        [this] {
            search->setFocus(Qt::ShortcutFocusReason);
            search->selectAll();
        },
        Qt::WindowShortcut); // from the picture and the other panels too
    shortcut(QKeySequence(Qt::Key_Escape), search, [this] {
        search->clear();
        view->setFocus(Qt::ShortcutFocusReason);
    });
    shortcut(QKeySequence(Qt::Key_Down), search, [this] { view->setFocus(Qt::ShortcutFocusReason); });
}

void TovGenParamTreeView::TreeImpl::SetParams(TovCam::ParamArray *params)
{
    if (mailbox)
        mailbox->Close();
    mailbox.reset();
    polling->SetWorker(nullptr);
    worker.reset();
    {
        QScopedValueRollback<bool> const guard(restoring, true);
        model->SetFeatures({});
    }
    hold.reset(); // after the model, which shows what it keeps
    view->SetPlaceholder(params ? tr("Reading the camera's features...") : tr("No camera"));
    ShowNotice({});
    if (!params)
        return;
    hold = params->Hold();
    mailbox = std::make_shared<Mailbox>(this);
    worker =
        std::make_unique<FeatureWorker>(params, [this, mailbox = mailbox] { mailbox->Post([this] { OnResults(); }); });
    polling->SetWorker(worker.get());
}

void TovGenParamTreeView::TreeImpl::OnResults()
{
    if (!worker)
        return; // the camera was taken away while the call was on its way
    bool planned = false;
    for (FeatureResult const &result : worker->TakeResults()) {
        switch (result.kind) {
        case FeatureResult::Kind::Loaded: {
            {
                QScopedValueRollback<bool> const guard(restoring, true);
                model->SetFeatures(result.features);
            }
            view->SetPlaceholder(tr("The camera describes no features"));
            ShowPlaceholder();
            ApplyExpansion();
            planned = true;
            break;
        }
        case FeatureResult::Kind::Read:
            polling->NoteCost(result.cost);
            model->ApplyRead(result.feature, result.status, result.state);
            break;
        case FeatureResult::Kind::Written:
            if (QString const reason = model->ApplyWritten(result.feature, result.ticket, result.status);
                !reason.isEmpty()) {
                QString const name = QString::fromStdString(model->Feature(result.feature)->info->displayName);
                ShowNotice(tr("%1 was not written: %2").arg(name, reason));
            }
            planned = true;
            break;
        case FeatureResult::Kind::Asked:
            model->ApplyAsked(result.feature, result.status, result.done);
            planned = true;
            break;
        }
    }
    if (planned)
        polling->Plan();
}

void TovGenParamTreeView::TreeImpl::OnWriteRequested(std::uint32_t feature, TovCam::FeatureValue const &value,
                                                     bool live)
{
    if (!worker)
        return;
    if (!live)
        noticeTimer->start(NoticeShown); // a hint that came with it stays its time
    model->SetWriting(feature, worker->Write(feature, value, live), value);
    polling->Await(feature);
}

void TovGenParamTreeView::TreeImpl::Refilter()
{
    {
        QScopedValueRollback<bool> const guard(restoring, true);
        model->SetFilter(state.search, state.visibility);
    }
    ShowPlaceholder();
    ApplyExpansion();
}

// For a tree without rows: how to see some.
void TovGenParamTreeView::TreeImpl::ShowPlaceholder()
{
    if (model->FeatureCount() <= 1)
        return; // the placeholder is there already
    auto const found = model->rowCount() == 0 ? model->FoundAbove() : std::nullopt;
    if (!found) {
        view->SetPlaceholder(tr("No feature matches"));
        return;
    }
    QString const where = level->itemText(found->level);
    view->SetPlaceholder(found->features == 1 ? tr("1 match at %1").arg(where)
                                              : tr("%1 matches at %2").arg(found->features).arg(where));
}

// While searching, everything found is open; otherwise the tree is as the user left it.
void TovGenParamTreeView::TreeImpl::ApplyExpansion()
{
    QScopedValueRollback<bool> const guard(restoring, true);
    if (model->IsSearching()) {
        view->expandAll();
    } else {
        view->collapseAll();
        QModelIndexList const categories = model->Categories();
        for (QModelIndex const &category : categories) {
            if (state.expanded.contains(model->PathOf(category)))
                view->expand(category);
        }
    }
    // What the search had hidden is selected again.
    QModelIndex const selected = state.selected.isEmpty() ? QModelIndex() : model->IndexOf(state.selected);
    if (selected.isValid()) {
        if (view->currentIndex().siblingAtColumn(0) != selected)
            view->setCurrentIndex(selected);
        view->scrollTo(selected);
    }
    ShowLine();
    polling->Plan();
}

void TovGenParamTreeView::TreeImpl::ApplyState()
{
    QScopedValueRollback<bool> const guard(restoring, true);
    if (state.column > 0)
        view->setColumnWidth(0, state.column * view->fontMetrics().averageCharWidth());
    QSignalBlocker const searchBlocker(search), levelBlocker(level);
    search->setText(state.search);
    level->setCurrentIndex(state.visibility);
    Refilter();
}

void TovGenParamTreeView::TreeImpl::ShowNotice(QString const &text)
{
    notice = text;
    if (text.isEmpty())
        noticeTimer->stop();
    else
        noticeTimer->start(NoticeShown);
    ShowLine();
}

// A notice for its time, else the selected feature in one line, or what is wrong with it.
void TovGenParamTreeView::TreeImpl::ShowLine()
{
    QFont font = widget->font();
    font.setBold(!notice.isEmpty());
    line->setFont(font);
    QModelIndex const current = view->currentIndex().siblingAtColumn(0);
    bool const whole = !notice.isEmpty() || model->MarkOf(current) == FeatureModel::Mark::Warning;
    line->Show(notice.isEmpty() ? model->Summary(current) : notice, whole);
}

TovGenParamTreeView::TovGenParamTreeView(QWidget *parent) : QWidget(parent), m_impl(std::make_unique<TreeImpl>(this))
{
}

TovGenParamTreeView::~TovGenParamTreeView() = default;

void TovGenParamTreeView::SetGenParamArray(TovCam::ParamArray *params)
{
    m_impl->SetParams(params);
}

Visibility TovGenParamTreeView::visibility() const
{
    return m_impl->state.visibility;
}

void TovGenParamTreeView::setVisibility(Visibility level)
{
    m_impl->level->setCurrentIndex(std::clamp(int(level), int(Beginner), int(Guru)));
}

char const *TovGenParamTreeView::GetViewState()
{
    m_impl->stateText = m_impl->state.ToText();
    return m_impl->stateText.constData();
}

void TovGenParamTreeView::SetViewState(char const *state)
{
    if (m_impl->state.FromText(state))
        m_impl->ApplyState();
}

} // namespace TovGui
