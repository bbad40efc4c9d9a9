#include "hostfindingsdlg.h"

#include "tovplaintext.h"

#include <QCheckBox>
#include <QClipboard>
#include <QDialogButtonBox>
#include <QFontDatabase>
#include <QGridLayout>
#include <QGuiApplication>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QScrollArea>
#include <QStyle>
#include <QVBoxLayout>

namespace {

using TovCam::HostFinding;

constexpr int TextWidth = 84, Lines = 26; // of the window, in characters

QString Text(std::string const &text)
{
    return TovPlainLine(QString::fromStdString(text), 2000);
}

QStyle::StandardPixmap Mark(HostFinding::Severity severity)
{
    switch (severity) {
    case HostFinding::Severity::Fault:
        return QStyle::SP_MessageBoxCritical;
    case HostFinding::Severity::Warning:
        return QStyle::SP_MessageBoxWarning;
    case HostFinding::Severity::Hint:
        break;
    }
    return QStyle::SP_MessageBoxInformation;
}

QLabel *MakeText(QWidget *parent, QString const &text, bool bold)
{
    auto *const label = new QLabel(parent);
    label->setTextFormat(Qt::PlainText); // names of cameras are in it
    label->setWordWrap(true);
    label->setTextInteractionFlags(Qt::TextSelectableByMouse);
    label->setText(text);
    QFont font = label->font();
    font.setBold(bold);
    label->setFont(font);
    return label;
}

} // namespace

HostFindingsDialog::HostFindingsDialog(QWidget *parent, QString const &camera, std::vector<HostFinding> const &findings)
    : QDialog(parent)
{
    setObjectName(QStringLiteral("hostFindingsDialog"));
    setWindowTitle(tr("This computer and %1").arg(camera));
    setWindowFlag(Qt::WindowContextHelpButtonHint, false);
    auto *const list = new QWidget(this);
    auto *const rows = new QVBoxLayout(list);
    for (HostFinding const &finding : findings)
        rows->addWidget(MakeFinding(finding));
    rows->addStretch(1);
    auto *const area = new QScrollArea(this);
    area->setWidgetResizable(true);
    area->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    area->setWidget(list);
    area->setAccessibleName(tr("Findings"));
    auto *const quiet = new QCheckBox(tr("&Do not show this again for this camera"), this);
    quiet->setObjectName(QStringLiteral("quietBox"));
    quiet->setToolTip(tr("Kept at once. tovdoctor, a program of its own, goes on telling"));
    auto *const buttons = new QDialogButtonBox(QDialogButtonBox::Close, this);
    auto *const layout = new QVBoxLayout(this);
    layout->addWidget(MakeText(
        this,
        tr("What follows keeps pictures of %1 from coming, or costs frames. Below each is what mends it; commands "
           "are for a terminal.")
            .arg(camera),
        false));
    layout->addWidget(area, 1);
    layout->addWidget(quiet);
    layout->addWidget(buttons);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    connect(quiet, &QCheckBox::toggled, this, &HostFindingsDialog::quietChosen);
    resize(fontMetrics().averageCharWidth() * TextWidth, fontMetrics().lineSpacing() * Lines);
}

QWidget *HostFindingsDialog::MakeFinding(HostFinding const &finding)
{
    auto *const box = new QWidget(this);
    auto *const grid = new QGridLayout(box);
    grid->setContentsMargins(0, 0, 0, 0);
    auto *const mark = new QLabel(box);
    int const side = style()->pixelMetric(QStyle::PM_SmallIconSize);
    mark->setPixmap(style()->standardIcon(Mark(finding.severity)).pixmap(side, side));
    grid->addWidget(mark, 0, 0, Qt::AlignTop);
    grid->addWidget(MakeText(box, Text(finding.what), true), 0, 1, 1, 2);
    grid->addWidget(MakeText(box, Text(finding.why), false), 1, 1, 1, 2);
    grid->setColumnStretch(1, 1);
    QString const mending = Text(finding.mending);
    if (!finding.isCommand) {
        grid->addWidget(MakeText(box, mending, false), 2, 1, 1, 2);
        return box;
    }
    auto *const line = new QLineEdit(mending, box);
    line->setObjectName(QStringLiteral("mending"));
    line->setAccessibleName(tr("Command that mends it"));
    line->setReadOnly(true);
    line->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    line->setCursorPosition(0);
    auto *const copy = new QPushButton(tr("Copy"), box);
    copy->setObjectName(QStringLiteral("copyButton"));
    copy->setToolTip(tr("Copy the command to the clipboard"));
    copy->setAutoDefault(false);
    connect(copy, &QPushButton::clicked, this, [mending] { QGuiApplication::clipboard()->setText(mending); });
    grid->addWidget(line, 2, 1);
    grid->addWidget(copy, 2, 2);
    return box;
}
