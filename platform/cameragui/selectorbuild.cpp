// The selector's widgets, and what they lead to.
#include "addressedit.h"
#include "cameramodel.h"
#include "cameratree.h"
#include "selectorgeometry.h"
#include "selectorimpl.h"

#include <QDialogButtonBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QShortcut>
#include <QTimer>
#include <QVBoxLayout>

namespace TovGui {

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
    QWidget::setTabOrder(tree, setAddress);
    QWidget::setTabOrder(setAddress, refresh);
    QWidget::setTabOrder(refresh, address);
    QWidget::setTabOrder(address, add);
    QWidget::setTabOrder(add, connect);
    QWidget::setTabOrder(connect, buttons->button(QDialogButtonBox::Cancel));
    tree->setFocus();
}

// The state of the search and of the camera, and what can be done about either.
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
    setAddress = new QPushButton(tr("&Set address..."), dialog);
    setAddress->setObjectName(QStringLiteral("setAddressButton"));
    setAddress->setToolTip(tr("Give the selected GigE Vision camera another IP address, wherever it is"));
    setAddress->setAutoDefault(false);
    setAddress->setEnabled(false);
    refresh = new QPushButton(tr("&Refresh"), dialog);
    refresh->setObjectName(QStringLiteral("refreshButton"));
    refresh->setToolTip(tr("Look for cameras now (F5)"));
    refresh->setAutoDefault(false);
    auto *row = new QHBoxLayout;
    row->addWidget(message, 1);
    row->addWidget(progress);
    row->addWidget(setAddress);
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
    QObject::connect(setAddress, &QPushButton::clicked, dialog, [this] { SetAddress(); });
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
        CameraEntry const *const camera = model->CameraAt(index);
        if (camera && camera->place.isForeign)
            SetAddress();
        else if (camera)
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

} // namespace TovGui
