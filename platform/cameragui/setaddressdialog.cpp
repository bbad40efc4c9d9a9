#include "setaddressdialog.h"

#include "addressedit.h"
#include "mailbox.h"
#include "searchthread.h"

#include "tovplaintext.h"

#include <QDialogButtonBox>
#include <QGridLayout>
#include <QLabel>
#include <QLineEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QRadioButton>
#include <QStyle>
#include <QVBoxLayout>

#include <algorithm>
#include <utility>

namespace TovGui {

namespace {

constexpr int MostSearches = 5;        // of a second each: some cameras restart
constexpr int LongestName = 60;        // of a camera, in characters
constexpr int TextWidth = 60;          // of a line that wraps, likewise
constexpr char AnyHost[] = "10.0.0.1"; // can be had with every netmask

QString NumbersOf(std::uint32_t address)
{
    return QStringLiteral("%1.%2.%3.%4")
        .arg(address >> 24)
        .arg(address >> 16 & 255)
        .arg(address >> 8 & 255)
        .arg(address & 255);
}

QLabel *MakeText(QWidget *parent, QString const &text)
{
    auto *const label = new QLabel(parent);
    label->setTextFormat(Qt::PlainText);
    label->setWordWrap(true);
    label->setText(text);
    return label;
}

bool CanRead(QString const &address, QString const &mask, QString const &gateway, TovCam::CameraAddress *read)
{
    return TovCam_ReadAddress((address + QLatin1Char('/') + mask).toStdString(), gateway.toStdString(), read);
}

TovCam::DeviceInfo *FindCamera(CameraList const &list, std::uint64_t mac, std::uint32_t address)
{
    for (InterfaceEntry const &interface : list) {
        for (CameraEntry const &camera : interface.cameras) {
            if (camera.place.mac == mac && camera.place.address == address)
                return camera.info;
        }
    }
    return nullptr;
}

} // namespace

SetAddressDialog::SetAddressDialog(CameraEntry camera, std::vector<CameraEntry> const &others,
                                   std::shared_ptr<SystemReference> system, QWidget *parent)
    : QDialog(parent),
      m_camera(std::move(camera)),
      m_system(std::move(system)),
      m_mailbox(std::make_shared<Mailbox>(this))
{
    for (CameraEntry const &other : others)
        m_others.push_back(other.info);
    Build();
    Propose();
    Check();
}

SetAddressDialog::~SetAddressDialog()
{
    // What the camera has been told holds; a job that still runs ends with the step that it is at.
    m_mailbox->Close();
}

bool SetAddressDialog::HasSet() const
{
    return m_hasSet;
}

CameraList const &SetAddressDialog::GetList() const
{
    return m_list;
}

TovCam::DeviceInfo *SetAddressDialog::GetCamera() const
{
    return m_found;
}

QString const &SetAddressDialog::GetOutcome() const
{
    return m_outcome;
}

// ---- The widgets ----------------------------------------------------------------------------------------------------

void SetAddressDialog::Build()
{
    setObjectName(QStringLiteral("setAddressDialog"));
    setWindowTitle(tr("Set address"));
    setWindowFlag(Qt::WindowContextHelpButtonHint, false);
    auto *const grid = new QGridLayout;
    grid->setColumnStretch(2, 1);
    grid->addWidget(new QLabel(tr("Camera:"), this), 0, 0);
    grid->addWidget(MakeText(this, TovPlainLine(m_camera.name, LongestName)), 0, 1, 1, 2);
    grid->addWidget(new QLabel(tr("Now at:"), this), 1, 0);
    grid->addWidget(m_present = MakeText(this, {}), 1, 1, 1, 2);
    m_address =
        AddField(grid, tr("New &address:"), QStringLiteral("newAddress"), tr("Four numbers, such as 192.168.0.10"));
    m_mask = AddField(grid, tr("Net&mask:"), QStringLiteral("newMask"),
                      tr("Which part of the address is the subnet's: 255.255.255.0 or 24"));
    m_gateway = AddField(grid, tr("&Gateway:"), QStringLiteral("newGateway"),
                         tr("The router to other subnets; empty where there is none"));
    m_forNow = new QRadioButton(tr("For &now: until it is switched off"), this);
    m_forNow->setObjectName(QStringLiteral("forNow"));
    m_forNow->setToolTip(tr("The camera stores nothing, and comes up as before"));
    m_forNow->setChecked(true);
    m_forGood = new QRadioButton(tr("For g&ood: it comes up with this address from now on"), this);
    m_forGood->setObjectName(QStringLiteral("forGood"));
    m_forGood->setToolTip(tr("Stores the address in the camera, in its persistent IP configuration"));
    QLabel *const warning =
        MakeText(this, tr("Whoever uses the camera at its old address loses it. If another device has the new address, "
                          "neither can be used. With a wrong address the camera cannot be reached until it gets "
                          "another one from here."));
    warning->setObjectName(QStringLiteral("warning"));
    warning->setMinimumWidth(fontMetrics().averageCharWidth() * TextWidth);
    auto *const mark = new QLabel(this);
    int const side = style()->pixelMetric(QStyle::PM_LargeIconSize);
    mark->setPixmap(style()->standardIcon(QStyle::SP_MessageBoxWarning).pixmap(side, side));
    auto *const warned = new QHBoxLayout;
    warned->addWidget(mark, 0, Qt::AlignTop);
    warned->addWidget(warning, 1);

    m_state = MakeText(this, {});
    m_state->setObjectName(QStringLiteral("state"));
    m_progress = new QProgressBar(this);
    m_progress->setRange(0, 0);
    m_progress->setTextVisible(false);
    QSizePolicy policy = m_progress->sizePolicy();
    policy.setRetainSizeWhenHidden(true);
    m_progress->setSizePolicy(policy);
    m_progress->setMaximumHeight(fontMetrics().height());
    auto *const buttons = new QDialogButtonBox(QDialogButtonBox::Cancel, this);
    m_set = buttons->addButton(tr("&Set address"), QDialogButtonBox::AcceptRole);
    m_set->setObjectName(QStringLiteral("setButton"));
    m_set->setDefault(true);

    auto *const rows = new QVBoxLayout(this);
    rows->addLayout(grid);
    rows->addWidget(m_forNow);
    rows->addWidget(m_forGood);
    rows->addLayout(warned);
    rows->addWidget(m_state);
    rows->addWidget(m_progress);
    rows->addStretch(1);
    rows->addWidget(buttons);
    connect(buttons, &QDialogButtonBox::accepted, this, &SetAddressDialog::Begin);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    connect(m_forGood, &QRadioButton::toggled, this, &SetAddressDialog::Check);
}

SetAddressDialog::Field SetAddressDialog::AddField(QGridLayout *grid, QString const &label, QString const &name,
                                                   QString const &toolTip)
{
    auto *const caption = new QLabel(label, this);
    Field const field{new QLineEdit(this), MakeText(this, {})};
    field.edit->setObjectName(name);
    field.edit->setToolTip(toolTip);
    field.edit->setMaxLength(40);
    field.edit->setFixedWidth(fontMetrics().averageCharWidth() * 20);
    field.error->setObjectName(name + QStringLiteral("Error"));
    caption->setBuddy(field.edit);
    int const row = grid->rowCount();
    grid->addWidget(caption, row, 0);
    grid->addWidget(field.edit, row, 1);
    grid->addWidget(field.error, row, 2);
    connect(field.edit, &QLineEdit::textChanged, this, &SetAddressDialog::Check);
    return field;
}

// ---- The address ----------------------------------------------------------------------------------------------------

void SetAddressDialog::Propose()
{
    TovCam::NetworkPlace const &place = m_camera.place;
    TovCam::CameraAddress proposed{place.address, place.mask, place.gateway}; // which it can be made to keep
    if (place.isForeign)
        proposed = TovCam_ProposeAddress(m_camera.info, m_others);
    if (proposed.address != 0)
        m_address.edit->setText(NumbersOf(proposed.address));
    m_address.edit->selectAll();
    if (proposed.mask != 0)
        m_mask.edit->setText(NumbersOf(proposed.mask));
    if (proposed.gateway != 0)
        m_gateway.edit->setText(NumbersOf(proposed.gateway));
}

// Tells what is wrong with each field, beside it.
void SetAddressDialog::Check()
{
    QString const address = m_address.edit->text().trimmed(), mask = m_mask.edit->text().trimmed(),
                  gateway = m_gateway.edit->text().trimmed();
    TovCam::CameraAddress read;
    QString wrong[3];
    bool const isMask = CanRead(QString::fromLatin1(AnyHost), mask, {}, &read);
    if (!isMask)
        wrong[1] = tr("no netmask such as 255.255.255.0");
    if (!IsIPv4Address(address))
        wrong[0] = tr("no address such as 192.168.0.10");
    else if (isMask && !CanRead(address, mask, {}, &read))
        wrong[0] = tr("no address that a camera can have in such a subnet");
    else if (isMask)
        wrong[0] = CheckAddress(read);
    if (!gateway.isEmpty() && !IsIPv4Address(gateway))
        wrong[2] = tr("no address such as 192.168.0.1");
    else if (isMask && !gateway.isEmpty() && IsIPv4Address(address) &&
             (!CanRead(address, mask, gateway, &read) || ((read.gateway ^ read.address) & read.mask) != 0))
        wrong[2] = tr("no host in that subnet");
    Field const *const fields[] = {&m_address, &m_mask, &m_gateway};
    m_isSound = true;
    for (int i = 0; i < 3; ++i) {
        fields[i]->error->setText(wrong[i]);
        fields[i]->edit->setAccessibleDescription(wrong[i]);
        m_isSound = m_isSound && wrong[i].isEmpty();
    }
    m_wanted = read;
    ShowState();
}

QString SetAddressDialog::CheckAddress(TovCam::CameraAddress const &address) const
{
    TovCam::AddressUse const use = TovCam_LookUpAddress(m_camera.info, m_others, address);
    if (use.holder)
        return tr("taken by %1").arg(TovPlainLine(QString::fromUtf8(use.holder->GetDisplayName()), LongestName));
    if (use.isOfHost)
        return tr("taken by this computer");
    return m_forGood->isChecked() && !use.isInReach
               ? tr("out of reach of %1, so the camera could not be told to keep it")
                     .arg(QString::fromStdString(m_camera.place.adapter))
               : QString();
}

void SetAddressDialog::ShowState()
{
    TovCam::NetworkPlace const &place = m_camera.place;
    QString present =
        QString::fromStdString(TovCam_AddressText(TovCam::CameraAddress{place.address, place.mask, place.gateway}));
    if (!place.adapter.empty())
        present += tr(", seen by %1").arg(QString::fromStdString(place.adapter));
    if (place.isForeign)
        present += tr(" (wrong subnet)");
    m_present->setText(present);
    for (QWidget *const widget :
         std::initializer_list<QWidget *>{m_address.edit, m_mask.edit, m_gateway.edit, m_forNow, m_forGood})
        widget->setEnabled(!m_working);
    m_progress->setVisible(m_working);
    m_set->setEnabled(m_isSound && !m_working);
}

// ---- The job --------------------------------------------------------------------------------------------------------

void SetAddressDialog::Begin()
{
    if (!m_isSound || m_working)
        return;
    m_working = true;
    TellProgress(tr("Telling %1 its new address...").arg(TovPlainLine(m_camera.name, LongestName)));
    ShowState();
    SearchThread::Get().Post([this, info = m_camera.info, mac = m_camera.place.mac, address = m_wanted,
                              isForGood = m_forGood->isChecked(), reference = m_system, mailbox = m_mailbox,
                              keeping = tr("Having it keep the address..."), looking = tr("Looking for it there...")] {
        if (mailbox->IsClosed())
            return;
        Outcome outcome;
        outcome.forced = TovCam_ForceAddress(info, address);
        if (outcome.forced == TOV_CAM_ERR_OK && isForGood && !mailbox->IsClosed()) {
            mailbox->Post([this, keeping] { TellProgress(keeping); });
            outcome.kept = TovCam_KeepAddress(info, address);
        }
        if (outcome.forced == TOV_CAM_ERR_OK)
            mailbox->Post([this, looking] { TellProgress(looking); });
        int const searches = outcome.forced == TOV_CAM_ERR_OK ? MostSearches : 0;
        for (int i = 0; i < searches && !outcome.found && !mailbox->IsClosed(); ++i) {
            reference->Get()->UpdateDeviceList();
            outcome.list = ReadCameraList(reference->Get());
            outcome.found = FindCamera(outcome.list, mac, address.address);
        }
        mailbox->Post([this, outcome] { Done(outcome); });
    });
}

void SetAddressDialog::TellProgress(QString const &text)
{
    m_state->setText(text);
}

void SetAddressDialog::Done(Outcome const &outcome)
{
    m_working = false;
    m_hasSet = m_hasSet || outcome.forced == TOV_CAM_ERR_OK;
    if (outcome.forced == TOV_CAM_ERR_OK) {
        m_list = outcome.list;
        m_found = outcome.found;
    }
    QString const failure = WhyNot(outcome);
    m_outcome = failure.isEmpty() ? tr("%1 is at %2").arg(m_camera.name, NumbersOf(m_wanted.address)) : failure;
    if (failure.isEmpty()) {
        accept();
        return;
    }
    if (outcome.found) { // the next try is for the camera where it is now
        m_camera.info = outcome.found;
        m_camera.place = outcome.found->GetNetworkPlace();
        m_others.clear();
        for (InterfaceEntry const &interface : outcome.list) {
            for (CameraEntry const &other : interface.cameras)
                m_others.push_back(other.info);
        }
    }
    Check();
    m_state->setText(failure);
    m_set->setFocus();
}

QString SetAddressDialog::WhyNot(Outcome const &outcome) const
{
    auto const why = [this](std::int32_t status) {
        switch (status) {
        case TOV_CAM_ERR_GENICAM_ACCESS:
            return tr("it is in use");
        case TOV_CAM_ERR_NO_DEVICE:
            return tr("it does not answer");
        case TOV_CAM_ERR_GENICAM_UNKNOWN_PARAM:
            return tr("it cannot store one");
        default:
            return tr("it refuses");
        }
    };
    QString const name = TovPlainLine(m_camera.name, LongestName), address = NumbersOf(m_wanted.address);
    if (outcome.forced != TOV_CAM_ERR_OK)
        return tr("%1 keeps its old address: %2").arg(name, why(outcome.forced));
    if (outcome.kept != TOV_CAM_ERR_OK)
        return tr("%1 has the address %2, but only for now: %3").arg(name, address, why(outcome.kept));
    return outcome.found ? QString() : tr("%1 has taken the address %2, but is not found there").arg(name, address);
}

} // namespace TovGui
