#include "addressedit.h"
#include "cameramodel.h"
#include "cameratree.h"
#include "searchthread.h"
#include "selectorgeometry.h"
#include "selectorimpl.h"
#include "setaddressdialog.h"

#include <QCheckBox>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QScopedValueRollback>
#include <QScrollBar>
#include <QTimer>
#include <QVBoxLayout>

#include <algorithm>

namespace TovGui {

namespace {

constexpr int RefreshInterval = 2500; // ms between the end of one search and the start of the next

} // namespace

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

// The list of the dialog is newer than ours, or is the one that was there.
void TovCameraSelectorDialog::Impl::SetAddress()
{
    CameraEntry const *const camera = Selected();
    if (!camera || !camera->CanGetAddress())
        return;
    SetAddressDialog asks(*camera, model->Cameras(), reference, dialog);
    asks.exec();
    if (!asks.HasSet())
        return;
    SetList(asks.GetList());
    if (QModelIndex const index = model->IndexOf(asks.GetCamera()); index.isValid()) {
        Select(index);
        tree->scrollTo(index);
    }
    tree->setFocus();
    notice = asks.GetOutcome(); // after the selection, which clears it
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
    connect->setEnabled(camera && camera->CanBeOpened());
    setAddress->setEnabled(camera && camera->CanGetAddress());
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
    if (!camera || !camera->CanBeOpened())
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
