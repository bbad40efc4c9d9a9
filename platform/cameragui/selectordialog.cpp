#include "addressedit.h"
#include "cameramodel.h"
#include "cameratree.h"
#include "mailbox.h"
#include "searchthread.h"
#include "selectorgeometry.h"
#include "systemreference.h"

#include <QCheckBox>
#include <QDialogButtonBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QScopedValueRollback>
#include <QScrollBar>
#include <QShortcut>
#include <QTimer>
#include <QVBoxLayout>

#include <algorithm>

namespace TovGui {

namespace {

constexpr int RefreshInterval = 2500; // ms between the end of one search and the start of the next

} // namespace

// All of it lives on the GUI thread; jobs on the search thread hold the system and the mailbox only.
struct TovCameraSelectorDialog::Impl
{
    TovCameraSelectorDialog *const dialog;
    TovCam::System *const system;
    std::shared_ptr<SystemReference> const reference = std::make_shared<SystemReference>();
    std::shared_ptr<Mailbox> const mailbox;

    CameraModel *model;
    CameraTree *tree;
    AddressEdit *address;
    QPushButton *add, *refresh, *connect;
    QDialogButtonBox *buttons;
    QLabel *message;
    QProgressBar *progress;
    QTimer *timer;

    TovCam::DeviceInfo *wanted = nullptr;   // last one selected; selected again when it comes back
    TovCam::DeviceInfo *accepted = nullptr; // the dialog's result
    QString wantedName;
    QString notice;          // outcome of the last thing the user asked for; shown until the next one
    int jobs = 0;            // posted and not answered
    bool searched = false;   // a first search has ended
    bool attended = false;   // the user waits for a search
    bool updating = false;   // the model changes: the view's moves of the selection are not the user's
    bool touched = false;    // a camera has been selected
    bool restored = false;   // column widths came from the settings
    std::int32_t status = 0; // of the last search

    Impl(TovCameraSelectorDialog *dialog, TovCam::System *system)
        : dialog(dialog),
          system(system),
          mailbox(std::make_shared<Mailbox>(dialog))
    {
    }

    void Build();
    QLayout *BuildMessageRow();
    QLayout *BuildAddressRow();
    QWidget *BuildButtons();
    void Connect();

    void List(bool update);
    void Refresh();
    void FindAddress();
    void OnListed(CameraList const &list, std::int32_t result, bool update);
    void OnFound(QString const &text, TovCam::DeviceInfo *info, std::int32_t result, CameraList const &list);
    void SetList(CameraList const &list);
    void OnCurrentChanged();
    void Select(QModelIndex const &index);
    void ShowState();
    void TryAccept();
    CameraEntry const *Selected() const;
};

void TovCameraSelectorDialog::Impl::Build()
{
    dialog->setWindowTitle(tr("Select camera"));
    dialog->setModal(true);
    dialog->setWindowFlag(Qt::WindowContextHelpButtonHint, false);
    model = new CameraModel(dialog);
    tree = new CameraTree(dialog);
    tree->setModel(model);
    auto *layout = new QVBoxLayout(dialog);
    layout->addWidget(tree, 1);
    layout->addLayout(BuildMessageRow());
    layout->addLayout(BuildAddressRow());
    layout->addWidget(BuildButtons());
    timer = new QTimer(dialog);
    timer->setSingleShot(true);
    QWidget::setTabOrder(tree, refresh);
    QWidget::setTabOrder(refresh, address);
    QWidget::setTabOrder(address, add);
    QWidget::setTabOrder(add, connect);
    QWidget::setTabOrder(connect, buttons->button(QDialogButtonBox::Cancel));
    tree->setFocus();
}

// The state of the search, and the button that begins one.
QLayout *TovCameraSelectorDialog::Impl::BuildMessageRow()
{
    message = new QLabel(dialog);
    message->setTextFormat(Qt::PlainText); // names of cameras are in it
    message->setObjectName(QStringLiteral("messageLabel"));
    message->setTextInteractionFlags(Qt::TextSelectableByMouse);
    message->setWordWrap(true);
    progress = new QProgressBar(dialog);
    progress->setObjectName(QStringLiteral("busyIndicator"));
    progress->setRange(0, 0);
    progress->setTextVisible(false);
    progress->setFixedWidth(CharWidth(dialog, 14));
    progress->setMaximumHeight(dialog->fontMetrics().height());
    QSizePolicy policy = progress->sizePolicy();
    policy.setRetainSizeWhenHidden(true);
    progress->setSizePolicy(policy);
    refresh = new QPushButton(tr("&Refresh"), dialog);
    refresh->setObjectName(QStringLiteral("refreshButton"));
    refresh->setToolTip(tr("Look for cameras now (F5)"));
    refresh->setAutoDefault(false);
    auto *row = new QHBoxLayout;
    row->addWidget(message, 1);
    row->addWidget(progress);
    row->addWidget(refresh);
    return row;
}

QLayout *TovCameraSelectorDialog::Impl::BuildAddressRow()
{
    auto *label = new QLabel(tr("GigE Vision camera at &address:"), dialog);
    address = new AddressEdit(dialog);
    label->setBuddy(address);
    add = new QPushButton(tr("A&dd"), dialog);
    add->setObjectName(QStringLiteral("addButton"));
    add->setToolTip(tr("Ask the camera at this address and add it to the list"));
    add->setAutoDefault(false);
    add->setEnabled(false);
    auto *row = new QHBoxLayout;
    row->addWidget(label);
    row->addWidget(address, 1);
    row->addWidget(add);
    return row;
}

QWidget *TovCameraSelectorDialog::Impl::BuildButtons()
{
    buttons = new QDialogButtonBox(dialog);
    connect = buttons->addButton(tr("&Connect"), QDialogButtonBox::AcceptRole);
    connect->setObjectName(QStringLiteral("connectButton"));
    connect->setToolTip(tr("Open the selected camera"));
    connect->setDefault(true);
    connect->setEnabled(false);
    QPushButton *cancel = buttons->addButton(QDialogButtonBox::Cancel);
    cancel->setObjectName(QStringLiteral("cancelButton"));
    cancel->setAutoDefault(false);
    return buttons;
}

void TovCameraSelectorDialog::Impl::Connect()
{
    QObject::connect(buttons, &QDialogButtonBox::accepted, dialog, [this] { TryAccept(); });
    QObject::connect(buttons, &QDialogButtonBox::rejected, dialog, &QDialog::reject);
    QObject::connect(refresh, &QPushButton::clicked, dialog, [this] { Refresh(); });
    QObject::connect(new QShortcut(QKeySequence(QKeySequence::Refresh), dialog), &QShortcut::activated, dialog,
                     [this] { Refresh(); });
    QObject::connect(add, &QPushButton::clicked, dialog, [this] { FindAddress(); });
    address->onEnter = [this] {
        FindAddress();
    };
    QObject::connect(address, &QLineEdit::textChanged, dialog, [this](QString const &text) {
        add->setEnabled(!text.trimmed().isEmpty());
        if (!text.isEmpty()) // a camera found clears the line and is announced in it
            notice.clear();
        ShowState();
    });
    // Not `activated`: some styles send it for a single click. Enter goes to the default button.
    QObject::connect(tree, &QTreeView::doubleClicked, dialog, [this](QModelIndex const &index) {
        if (model->CameraAt(index))
            TryAccept();
    });
    QObject::connect(tree->selectionModel(), &QItemSelectionModel::selectionChanged, dialog,
                     [this] { OnCurrentChanged(); });
    QObject::connect(model, &QAbstractItemModel::rowsInserted, dialog, [this](QModelIndex const &parent) {
        if (!parent.isValid()) {
            for (int row = 0; row < model->rowCount(); ++row)
                tree->setFirstColumnSpanned(row, {}, true);
        }
    });
    QObject::connect(timer, &QTimer::timeout, dialog, [this] { List(true); });
    QObject::connect(dialog, &QDialog::finished, dialog, [this] {
        timer->stop();
        SaveSelectorGeometry(dialog, tree);
    });
}

// Posts a listing, with a search before it or without. Nothing of the dialog is touched on the other thread.
void TovCameraSelectorDialog::Impl::List(bool update)
{
    timer->stop();
    ++jobs;
    SearchThread::Get().Post([this, update, system = system, reference = reference, mailbox = mailbox] {
        if (mailbox->IsClosed())
            return;
        std::int32_t const result = update ? system->UpdateDeviceList() : 0;
        if (mailbox->IsClosed())
            return;
        mailbox->Post([this, list = ReadCameraList(system), result, update] { OnListed(list, result, update); });
    });
    ShowState();
}

void TovCameraSelectorDialog::Impl::Refresh()
{
    notice.clear();
    attended = true;
    if (jobs == 0)
        List(true);
    else
        ShowState(); // one is under way and will do
}

void TovCameraSelectorDialog::Impl::FindAddress()
{
    QString const text = address->text().trimmed();
    if (text.isEmpty())
        return;
    if (!IsIPv4Address(text)) {
        notice = tr("\"%1\" is not an IP address such as 192.168.0.10").arg(text);
        ShowState();
        return;
    }
    timer->stop();
    ++jobs;
    attended = true;
    notice = tr("Asking %1...").arg(text);
    SearchThread::Get().Post([this, text, system = system, reference = reference, mailbox = mailbox] {
        if (mailbox->IsClosed())
            return;
        std::int32_t result = 0;
        TovCam::DeviceInfo *const info = system->FindDeviceByAddress(text.toUtf8().constData(), &result);
        if (mailbox->IsClosed())
            return;
        mailbox->Post([this, text, info, result, list = ReadCameraList(system)] { OnFound(text, info, result, list); });
    });
    ShowState();
}

void TovCameraSelectorDialog::Impl::OnListed(CameraList const &list, std::int32_t result, bool update)
{
    --jobs;
    status = result;
    searched = searched || update;
    if (jobs == 0 && update)
        attended = false;
    SetList(list);
    // What is known already is shown at once; the first search follows.
    if (jobs == 0)
        timer->start(update ? RefreshInterval : 0);
    ShowState();
}

void TovCameraSelectorDialog::Impl::OnFound(QString const &text, TovCam::DeviceInfo *info, std::int32_t result,
                                            CameraList const &list)
{
    --jobs;
    if (jobs == 0)
        attended = false;
    SetList(list);
    if (info) {
        if (address->text().trimmed() == text)
            address->clear();
        if (QModelIndex const index = model->IndexOf(info); index.isValid()) {
            Select(index);
            tree->scrollTo(index);
            tree->setFocus();
        }
        notice = tr("Added the camera at %1").arg(text); // after the selection, which clears it
    } else if (result == 0 || result == TOV_CAM_ERR_NO_DEVICE) {
        notice = tr("No camera answers at %1").arg(text);
    } else {
        notice = tr("No camera answers at %1 (error %2)").arg(text).arg(result);
    }
    if (jobs == 0)
        timer->start(RefreshInterval);
    ShowState();
}

// Shows a new listing under a selection, a scroll position and an expansion that stay. When the selected camera is
// gone nothing is selected, rather than its neighbour: the next Enter must not open another camera.
void TovCameraSelectorDialog::Impl::SetList(CameraList const &list)
{
    {
        QScopedValueRollback<bool> const guard(updating, true);
        int const scroll = tree->verticalScrollBar()->value();
        std::vector<QModelIndex> fresh;
        auto const inserted = QObject::connect(model, &QAbstractItemModel::rowsInserted, dialog,
                                               [&](QModelIndex const &parent, int first) {
                                                   if (!parent.isValid())
                                                       fresh.push_back(model->index(first, 0));
                                                   else if (model->rowCount(parent) == 1) // its first camera
                                                       fresh.push_back(parent);
                                               });
        if (searched) {
            model->SetList(list);
        } else { // "no camera" is true of an interface only once it has been searched
            CameraList known = list;
            std::erase_if(known, [](InterfaceEntry const &entry) { return entry.cameras.empty(); });
            model->SetList(known);
        }
        QObject::disconnect(inserted);
        for (QModelIndex const &group : fresh)
            tree->expand(group);

        QModelIndex const index = model->IndexOf(wanted);
        QModelIndex preselected;
        if (!index.isValid() && touched) {
            tree->selectionModel()->clear();
        } else if (index.isValid() && !tree->selectionModel()->isRowSelected(index.row(), index.parent())) {
            tree->setCurrentIndex(index);
        } else if (!touched) {
            preselected = model->FirstFree();
            if (preselected.isValid())
                Select(preselected);
        }
        tree->verticalScrollBar()->setValue(scroll);
        if (preselected.isValid())
            tree->scrollTo(preselected);
    }
    if (!restored && model->CameraCount() > 0) {
        restored = true;
        for (int column = 0; column < CameraModel::ColumnStatus; ++column)
            tree->setColumnWidth(column, std::max(tree->columnWidth(column), tree->sizeHintForColumn(column)));
    }
}

void TovCameraSelectorDialog::Impl::Select(QModelIndex const &index)
{
    CameraEntry const *camera = model->CameraAt(index);
    wanted = camera ? camera->info : nullptr;
    wantedName = camera ? camera->name : QString();
    touched = touched || camera;
    tree->setCurrentIndex(index);
}

CameraEntry const *TovCameraSelectorDialog::Impl::Selected() const
{
    QModelIndexList const rows = tree->selectionModel()->selectedRows();
    return rows.isEmpty() ? nullptr : model->CameraAt(rows.front());
}

void TovCameraSelectorDialog::Impl::OnCurrentChanged()
{
    if (updating)
        return;
    CameraEntry const *camera = Selected();
    wanted = camera ? camera->info : nullptr;
    wantedName = camera ? camera->name : QString();
    touched = true;
    notice.clear();
    ShowState();
}

void TovCameraSelectorDialog::Impl::ShowState()
{
    bool const searching = jobs > 0 && (attended || !searched);
    CameraEntry const *camera = Selected();
    connect->setEnabled(camera && !camera->IsBusy());
    progress->setVisible(searching);

    QString text = notice;
    if (!text.isEmpty()) {
        // stays
    } else if (searching || !searched) {
        text = tr("Searching...");
    } else if (touched && wanted && !camera) {
        text = tr("%1 does not answer any more").arg(wantedName);
    } else if (QString const trouble = camera ? camera->Trouble() : QString(); !trouble.isEmpty()) {
        text = trouble;
    } else if (status != 0) {
        text = tr("The search failed (error %1)").arg(status);
    } else if (int const count = model->CameraCount(); count == 0) {
        text = tr("No camera found");
    } else {
        text = count == 1 ? tr("1 camera found") : tr("%1 cameras found").arg(count);
    }
    message->setText(text);
    tree->SetPlaceholder(searched ? tr("No camera found") : tr("Searching..."));
}

void TovCameraSelectorDialog::Impl::TryAccept()
{
    CameraEntry const *camera = Selected();
    if (!camera || camera->IsBusy())
        return;
    accepted = camera->info;
    dialog->accept();
}

TovCameraSelectorDialog::TovCameraSelectorDialog(TovCam::System *system, QWidget *parent)
    : QDialog(parent),
      m_impl(std::make_unique<Impl>(this, system))
{
    m_impl->Build();
    m_impl->Connect();
    m_impl->restored = RestoreSelectorGeometry(this, m_impl->tree);
    PlaceSelector(this);
    m_impl->List(false);
}

TovCameraSelectorDialog::~TovCameraSelectorDialog()
{
    // A search that still runs finds no receiver, and ends on its own.
    m_impl->mailbox->Close();
    m_impl->tree->selectionModel()->disconnect(this);
}

TovCam::DeviceInfo *TovCameraSelectorDialog::selectedCamera() const
{
    return m_impl->accepted;
}

QCheckBox *TovCameraSelectorDialog::addOption(QString const &text, QString const &toolTip)
{
    auto *const box = new QCheckBox(text, this);
    box->setToolTip(toolTip);
    auto *const rows = static_cast<QVBoxLayout *>(layout());
    rows->insertWidget(rows->count() - 1, box);
    QWidget::setTabOrder(m_impl->add, box);
    QWidget::setTabOrder(box, m_impl->connect);
    return box;
}

} // namespace TovGui
