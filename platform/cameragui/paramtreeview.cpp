#include "featurestate.h"
#include "featureview.h"
#include "featureworker.h"
#include "searchthread.h"

#include <QComboBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QScopedValueRollback>
#include <QShortcut>
#include <QTimer>
#include <QVBoxLayout>

#include <algorithm>

namespace TovGui {

namespace {

using std::chrono::milliseconds;

constexpr milliseconds AccessPeriod{1000}; // a lock by somebody else shows after that time
constexpr milliseconds LongestPeriod{60000};
constexpr milliseconds ShownAfter{400};      // what the camera has not answered by then is marked
constexpr milliseconds PollShownAfter{2000}; // likewise, of a value that is only looked at again
constexpr milliseconds DoneShown{3000};      // the tick on a command's button
constexpr milliseconds AskPeriod{150};       // whether a command has ended
constexpr milliseconds NoticeShown{12000};
constexpr milliseconds Together{60}; // reads that come due within that time go in one round
constexpr int RestFactor = 4;        // a round of looking again takes a quarter of the camera's time at most

// One line that is cut rather than widens its panel, with the rest in its tooltip; or as many as the text needs.
class MessageLabel : public QLabel
{
public:
    using QLabel::QLabel;
    void Show(QString const &text, bool whole)
    {
        if (text == m_text && whole == m_whole)
            return;
        m_text = text;
        m_whole = whole;
        setWordWrap(whole);
        setToolTip(text.toHtmlEscaped());
        Fit();
    }

protected:
    void resizeEvent(QResizeEvent *event) override
    {
        QLabel::resizeEvent(event);
        Fit();
    }

private:
    void Fit()
    {
        setText(m_whole ? m_text : fontMetrics().elidedText(m_text, Qt::ElideRight, contentsRect().width()));
        setAccessibleName(m_text);
    }
    QString m_text;
    bool m_whole = false;
};

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
    QTimer *timer;       // the next moment when something is due; still while the tree is hidden
    QTimer *noticeTimer; // takes the notice away
    QString notice;
    FeatureViewState state;
    QByteArray stateText;
    bool restoring = false;             // the view moves by itself
    std::vector<std::uint32_t> awaited; // features with a read or write outstanding
    double readCost = 0.0;              // of one read, in milliseconds, smoothed

    void Build();
    void Connect();
    void SetParams(TovCam::ParamArray *params);
    void OnResults();
    void OnWriteRequested(std::uint32_t feature, TovCam::FeatureValue const &value, bool live);
    void Refilter();
    void ShowPlaceholder();
    void ApplyExpansion();
    void ApplyState();
    void Plan();
    void Tick();
    milliseconds Mark(std::vector<std::uint32_t> const &due);
    milliseconds Commands(std::vector<std::uint32_t> const &visible);
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
    line->setObjectName(QStringLiteral("featureMessage"));
    line->setTextFormat(Qt::PlainText);
    line->setContentsMargins(4, 1, 4, 2);
    line->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Minimum);

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

    timer = new QTimer(this);
    timer->setSingleShot(true);
    noticeTimer = new QTimer(this);
    noticeTimer->setSingleShot(true);
}

void TovGenParamTreeView::TreeImpl::Connect()
{
    connect(timer, &QTimer::timeout, this, &TreeImpl::Tick);
    connect(noticeTimer, &QTimer::timeout, this, [this] { ShowNotice({}); });
    connect(view, &FeatureView::seenChanged, this, &TreeImpl::Plan);
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
    worker.reset();
    awaited.clear();
    {
        QScopedValueRollback<bool> const guard(restoring, true);
        model->SetFeatures({});
    }
    hold.reset(); // behind the model, which shows what it keeps
    view->SetPlaceholder(params ? tr("Reading the camera's features...") : tr("No camera"));
    ShowNotice({});
    if (!params)
        return;
    hold = params->Hold();
    mailbox = std::make_shared<Mailbox>(this);
    worker =
        std::make_unique<FeatureWorker>(params, [this, mailbox = mailbox] { mailbox->Post([this] { OnResults(); }); });
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
            readCost += (double(result.cost.count()) / 1000.0 - readCost) * 0.2;
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
        Plan();
}

void TovGenParamTreeView::TreeImpl::OnWriteRequested(std::uint32_t feature, TovCam::FeatureValue const &value,
                                                     bool live)
{
    if (!worker)
        return;
    if (!live)
        noticeTimer->start(NoticeShown); // a hint that came with it stays its time
    model->SetWriting(feature, worker->Write(feature, value, live), value);
    if (std::find(awaited.begin(), awaited.end(), feature) == awaited.end())
        awaited.push_back(feature);
    Plan();
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

// For a tree without rows: what else could be done to see some.
void TovGenParamTreeView::TreeImpl::ShowPlaceholder()
{
    if (model->FeatureCount() <= 1)
        return; // it says so already
    auto const found = model->rowCount() == 0 ? model->FoundAbove() : std::nullopt;
    if (!found) {
        view->SetPlaceholder(tr("No feature matches"));
        return;
    }
    QString const where = level->itemText(found->level);
    view->SetPlaceholder(found->features == 1 ? tr("1 match at %1").arg(where)
                                              : tr("%1 matches at %2").arg(found->features).arg(where));
}

// While searching everything that is found is open; otherwise as the user has it.
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
    Plan();
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

void TovGenParamTreeView::TreeImpl::Plan()
{
    if (worker && view->isVisible())
        timer->start(0);
    else if (awaited.empty())
        timer->stop();
}

// Asks for what is visible and due, in place of what was asked for before.
void TovGenParamTreeView::TreeImpl::Tick()
{
    if (!worker)
        return;
    std::vector<std::uint32_t> const visible = view->VisibleFeatures();
    auto const now = FeatureRow::Clock::now();
    auto const looked = std::clamp(milliseconds(std::int64_t(readCost * RestFactor * double(visible.size()))),
                                   AccessPeriod, LongestPeriod);
    milliseconds next = LongestPeriod;
    std::vector<std::uint32_t> due;
    for (std::uint32_t const feature : visible) {
        FeatureRow const &row = *model->Feature(feature);
        auto const polling = milliseconds(row.info->pollingTime);
        auto const period = polling.count() > 0 ? std::min(polling, looked) : looked;
        auto const left = std::chrono::ceil<milliseconds>(row.read + period - now);
        if (row.stale || left <= std::min(Together, period / 2))
            due.push_back(feature);
        else
            next = std::min(next, left);
    }
    // What was never read or was made invalid first, then what waits longest.
    std::stable_sort(due.begin(), due.end(), [this](std::uint32_t a, std::uint32_t b) {
        FeatureRow const &first = *model->Feature(a), &second = *model->Feature(b);
        return first.stale != second.stale ? first.stale : first.read < second.read;
    });
    worker->SetReads(due);
    next = std::min({next, Mark(due), Commands(visible)});
    if (view->window()->isMinimized())
        next = std::min(next, AccessPeriod); // nobody tells when it comes back
    if (view->isVisible())
        timer->start(std::max(next, milliseconds(10)));
}

// Marks what takes long; gives when to look next.
milliseconds TovGenParamTreeView::TreeImpl::Mark(std::vector<std::uint32_t> const &due)
{
    std::vector<std::uint32_t> waiting = due;
    for (std::uint32_t const feature : std::exchange(awaited, {})) {
        if (std::find(due.begin(), due.end(), feature) != due.end())
            continue;
        if (model->Feature(feature)->ticket)
            waiting.push_back(feature);
        else // out of sight, and no longer asked for
            model->SetNotAwaited(feature);
    }
    auto const now = FeatureRow::Clock::now();
    for (std::uint32_t const feature : waiting) {
        FeatureRow const &row = *model->Feature(feature);
        bool const poll = !row.stale && !row.ticket;
        bool const waits = row.since != FeatureRow::Clock::time_point();
        model->SetAwaited(feature, row.slow || (waits && now - row.since > (poll ? PollShownAfter : ShownAfter)));
    }
    awaited = std::move(waiting);
    return awaited.empty() ? LongestPeriod : milliseconds(200);
}

milliseconds TovGenParamTreeView::TreeImpl::Commands(std::vector<std::uint32_t> const &visible)
{
    milliseconds next = LongestPeriod;
    auto const now = FeatureRow::Clock::now();
    for (std::uint32_t const feature : visible) {
        FeatureRow const &row = *model->Feature(feature);
        if (row.run == FeatureRow::Run::Idle)
            continue;
        bool const running = row.run == FeatureRow::Run::Running;
        auto const left = std::chrono::ceil<milliseconds>(row.acted + (running ? AskPeriod : DoneShown) - now);
        if (left.count() > 0) {
            next = std::min(next, left);
        } else if (running) {
            worker->AskDone(feature);
            model->SetAsked(feature);
            next = std::min(next, AskPeriod);
        } else {
            model->EndDone(feature);
        }
    }
    return next;
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
