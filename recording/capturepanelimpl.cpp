#include "capturepanelimpl.h"

#include "furtherformats.h"
#include "imagewriter.h"
#include "numbertext.h"
#include "panelhost.h"
#include "recordingreport.h"
#include "session.h"

#include <QDir>
#include <QFileDialog>
#include <QMainWindow>
#include <QPointer>
#include <QTimer>

#include <algorithm>
#include <initializer_list>
#include <vector>

namespace {

constexpr int Period = 1000; // milliseconds
constexpr unsigned int FolderSize = 32000;
constexpr double UnknownFps = 11.1;
constexpr double LeastFps = 0.1;
QString const WidestCount = QStringLiteral("00000000"); // the widest that a counter has room for

constexpr QRgb Failing = qRgb(255, 190, 185);
constexpr QRgb NotWhole = qRgb(255, 232, 160);
char const PlainTip[] = "plainTip"; // property of a widget: its tooltip while there is nothing to add

void AddToTip(QWidget *widget, QString const &text)
{
    if (!widget->property(PlainTip).isValid())
        widget->setProperty(PlainTip, widget->toolTip());
    QString const plain = widget->property(PlainTip).toString();
    widget->setToolTip(
        text.isEmpty() ? plain : QStringLiteral("<p>%1</p><p>%2</p>").arg(plain.toHtmlEscaped(), text.toHtmlEscaped()));
    widget->setAccessibleDescription(text);
}

// Adds to the widget's tooltip, and gives its field a colour, or neither.
void Mark(QWidget *widget, QString const &text, QRgb colour)
{
    AddToTip(widget, text);
    QPalette palette; // of nothing but what differs
    if (!text.isEmpty()) {
        palette.setColor(QPalette::Base, colour);
        palette.setColor(QPalette::Text, Qt::black);
    }
    if (widget->palette().color(QPalette::Base) != colour || text.isEmpty())
        widget->setPalette(palette);
}

// One of the panel's constants, as the menu shows it.
QString Caption(QString const &constant)
{
    return CapturePanelImpl::tr(constant.toUtf8().constData());
}

void ShowAll(std::initializer_list<QWidget *> widgets, bool visible)
{
    for (QWidget *const widget : widgets)
        widget->setVisible(visible);
}

} // namespace

QString const CapturePanelImpl::kReset = QStringLiteral(QT_TRANSLATE_NOOP("CapturePanelImpl", "Reset"));
QString const CapturePanelImpl::kAddPcDateAndTime =
    QStringLiteral(QT_TRANSLATE_NOOP("CapturePanelImpl", "Add PC Date and Time"));
QString const CapturePanelImpl::kAddPcTimestamp =
    QStringLiteral(QT_TRANSLATE_NOOP("CapturePanelImpl", "Add PC Timestamp"));
QString const CapturePanelImpl::kAddImageId = QStringLiteral(QT_TRANSLATE_NOOP("CapturePanelImpl", "Add Image ID"));
QString const CapturePanelImpl::kAddImageTimestamp =
    QStringLiteral(QT_TRANSLATE_NOOP("CapturePanelImpl", "Add Image Timestamp"));

CapturePanelImpl::CapturePanelImpl(QMainWindow *window, PanelHost *host)
    : PlayerPanel(window, QStringLiteral("actionCapture"), Period),
      m_host(host),
      m_furtherFormats(host->WantsFurtherFormats())
{
    setupUi(this);
    SetUpForm();
    setFloating(false);
    m_mainWindow->addDockWidget(Qt::BottomDockWidgetArea, this);

    connect(btnRecord, &QToolButton::clicked, this, [this] { Ask(&PanelHost::startStopCapture); });
    connect(btnSnap, &QToolButton::clicked, this, [this] { Ask(&PanelHost::snapNextImage); });
    connect(btnCaptOptions, &QToolButton::clicked, this, [this] { Ask(&PanelHost::captureOptionsDlg); });
    connect(btnFolderSelect, &QToolButton::clicked, this, &CapturePanelImpl::FolderSelect);
    connect(cbFileFormat, qOverload<int>(&QComboBox::activated), this, [this](int n) {
        FileFormatChanged(n);
        // Once the groups have moved, which may be out of what a narrow panel shows.
        QTimer::singleShot(0, this, [this] { scrollArea->ensureWidgetVisible(cbFileFormat); });
    });
    connect(cbCompressor, qOverload<int>(&QComboBox::activated), this, &CapturePanelImpl::CompressorChanged);
    connect(btnGetFpsFromCamera, &QToolButton::clicked, this, &CapturePanelImpl::GetFpsFromCamera);
    connect(btnCompressorOptions, &QToolButton::clicked, this, &CapturePanelImpl::ShowCompressorOptions);
    connect(btnFileName, &QToolButton::clicked, this, &CapturePanelImpl::ShowNameTemplatesMenu);
    connect(btnMovieTemplate, &QToolButton::clicked, this, &CapturePanelImpl::ShowNameTemplatesMenu);

    if (m_furtherFormats)
        connect(edFPS, &QLineEdit::editingFinished, this, &CapturePanelImpl::TakeFps);

    TakeComponents(host->GetSession());
    FillFormats();
    FillCompressors();
    BuildNameMenu();
}

void CapturePanelImpl::SetUpForm()
{
    for (QLineEdit *const counter : {edFramesAcquired, edFramesSaved, edFramesDroppedHW, edFramesDroppedSW,
                                     edBuferQueueFilling, edBuferQueueSize, edJpgQuality, edFPS}) {
        QMargins const text = counter->textMargins() + counter->contentsMargins();
        int const frame = 2 * (counter->style()->pixelMetric(QStyle::PM_DefaultFrameWidth, nullptr, counter) + 3);
        counter->setFixedWidth(counter->fontMetrics().horizontalAdvance(WidestCount) + text.left() + text.right() +
                               frame);
    }
}

void CapturePanelImpl::TakeComponents(Session *session)
{
    if (m_report)
        m_report->disconnect(this);
    m_session = session;
    m_writer = session->GetImageWriter();
    auto *const writer = dynamic_cast<ImageWriter *>(m_writer);
    m_report = writer ? &writer->GetReport() : nullptr;
    if (m_report)
        connect(m_report, &RecordingReport::changed, this, &CapturePanelImpl::ShowRecording);
    m_serializer = session->GetImageSerializer();
    m_grabber = session->GetGrabber();
}

// As delivered, the list has its first item alone. A stored format that is not offered gives way to that one.
void CapturePanelImpl::FillFormats()
{
    cbFileFormat->addItem(tr("RAW File"), qlonglong{ImageWriter::FormatRaw});
    if (m_furtherFormats) {
        cbFileFormat->setItemData(0, RawFormatTip(), Qt::ToolTipRole);
        for (OfferedFormat const &offered : FurtherFormats()) {
            cbFileFormat->addItem(offered.caption, qlonglong{offered.format});
            cbFileFormat->setItemData(cbFileFormat->count() - 1, offered.tip, Qt::ToolTipRole);
        }
    }
    long format = ImageWriter::FormatRaw;
    m_writer->GetParamInt("FileFormat", &format);
    int const index = std::max(cbFileFormat->findData(qlonglong{format}), 0);
    cbFileFormat->setCurrentIndex(index);
    FileFormatChanged(index);
}

// As delivered, the serializer is asked only for the length of its list: whatever is in it, one compressor is offered.
void CapturePanelImpl::FillCompressors()
{
    QString names = QStringLiteral("Uncompressed");
    if (m_serializer) {
        char nothing = 0;
        unsigned int length = 0;
        m_serializer->GetParamString("movie.compressors", &nothing, &length);
        std::vector<char> list(length + 1);
        if (m_furtherFormats && TovSucceeded(m_serializer->GetParamString("movie.compressors", list.data(), &length)) &&
            list[0])
            names = QString::fromUtf8(list.data());
    }
    m_compressors = names.split(QLatin1Char('|'), Qt::KeepEmptyParts);
    for (int i = 0; i < m_compressors.size(); ++i) {
        cbCompressor->addItem(m_compressors[i], i);
        if (m_furtherFormats)
            cbCompressor->setItemData(i, CompressorTip(m_compressors[i]), Qt::ToolTipRole);
    }
    CompressorChanged(0);
}

void CapturePanelImpl::BuildNameMenu()
{
    m_nameMenu.addAction(Caption(kReset));
    m_nameMenu.addSeparator();
    m_nameMenu.addAction(Caption(kAddPcDateAndTime));
    m_nameMenu.addAction(Caption(kAddPcTimestamp));
    m_nameMenu.addSeparator();
    m_nameMenu.addAction(Caption(kAddImageId));
    m_nameMenu.addAction(Caption(kAddImageTimestamp));
    connect(&m_nameMenu, &QMenu::triggered, this, &CapturePanelImpl::OnNameTemplatesMenu);
}

void CapturePanelImpl::SetCurrentSession(Session *session)
{
    TakeComponents(session);
    SetupCtlParams();
    UpdateAll();
}

// As delivered, "NormalizedTiff" has no link: its box is never seen.
void CapturePanelImpl::SetupCtlParams()
{
    AddIntegerEdit(edBuferQueueSize, "QueueSize", nullptr, m_grabber);
    AddFloatEdit(edFPS, "MovieFPS", "%.1f", m_writer);
    AddIntegerEdit(edFramesAcquired, "CaptureFramesAcquired", nullptr, m_writer);
    AddIntegerEdit(edFramesDroppedHW, "CaptureFramesDroppedHW", nullptr, m_writer);
    AddIntegerEdit(edFramesDroppedSW, "CaptureFramesDroppedSW", nullptr, m_writer);
    AddIntegerEdit(edFramesSaved, "FramesSaved", nullptr, m_writer);
    AddIntegerEdit(edBuferQueueFilling, "QueueFilled", nullptr, m_grabber);
    AddIntegerEdit(edJpgQuality, "JpgQuality", nullptr, m_writer);
    AddStringEdit(edFileName, "ImageName", m_writer);
    AddStringEdit(edMovieFileName, "MovieName", m_writer);
    AddStringEdit(edFolderName, "FilePath", m_writer);
    if (m_furtherFormats)
        AddBoolCheckBox(chNormalizedTif, "NormalizedTiff", m_writer);
}

void CapturePanelImpl::UpdateAll()
{
    UpdateFromComponent(QString());
    SessionState const state = m_session->GetState();
    btnRecord->setEnabled(PanelHost::IsActionEnabled(QStringLiteral("actionRecord"), state));
    btnSnap->setEnabled(PanelHost::IsActionEnabled(QStringLiteral("actionSnap"), state));
    btnCaptOptions->setEnabled(false); // in every state: there are no options yet
    btnRecord->setChecked(state == SessionStateCapturing);
    if (m_furtherFormats)
        cbFileFormat->setEnabled(state != SessionStateCapturing); // a recording has one format
    ShowRecording();
}

void CapturePanelImpl::FinishEditing()
{
    for (QLineEdit *const edit : {edFolderName, edFileName, edMovieFileName, edJpgQuality, edFPS}) {
        if (edit->hasFocus())
            emit edit->editingFinished();
    }
}

void CapturePanelImpl::ShowRecording()
{
    if (!m_report)
        return;
    RecordingLedger const &ledger = m_report->GetLedger();
    QString const failures = m_report->GetFailures();
    QString const incomplete = ledger.savedIncomplete > 0
                                   ? tr("%1 of them are incomplete").arg(GroupedNumber(ledger.savedIncomplete))
                                   : QString();
    Mark(edFramesSaved, failures.isEmpty() ? incomplete : failures, failures.isEmpty() ? NotWhole : Failing);
    Mark(edFolderName, m_report->IsPlaceRefused() ? failures : QString(), Failing);
    // What the field counts is the gaps between complete frames.
    bool const gaps = ledger.missing + ledger.incomplete > 0;
    Mark(edFramesDroppedHW,
         gaps ? tr("%1 are missing, %2 came incomplete")
                    .arg(GroupedNumber(ledger.missing), GroupedNumber(ledger.incomplete))
              : QString(),
         NotWhole);
    Mark(edFramesDroppedSW,
         ledger.droppedSW > 0 ? tr("%1 dropped here").arg(GroupedNumber(ledger.droppedSW)) : QString(), NotWhole);
}

// A click has checked the button already, whether or not the recording starts. A message may be shown meanwhile, and
// the panel go.
void CapturePanelImpl::Ask(void (PanelHost::*action)())
{
    QPointer<CapturePanelImpl> const alive(this);
    (m_host->*action)();
    if (alive)
        btnRecord->setChecked(m_session->GetState() == SessionStateCapturing);
}

bool CapturePanelImpl::IsMovie() const
{
    return m_fileFormat == ImageWriter::FormatAvi || m_fileFormat == ImageWriter::FormatTvm;
}

void CapturePanelImpl::FileFormatChanged(int n)
{
    m_fileFormat = cbFileFormat->itemData(n).toLongLong();
    AddToTip(cbFileFormat, cbFileFormat->itemData(n, Qt::ToolTipRole).toString());
    ShowAll({imageFileNameWidget}, !IsMovie());
    ShowAll({movieFileNameWidget}, IsMovie());
    m_writer->SetParamInt("FileFormat", static_cast<long>(m_fileFormat));
    ShowAll({chNormalizedTif}, m_fileFormat == ImageWriter::FormatTif);
    ShowAll({labelJpgQual, edJpgQuality}, m_fileFormat == ImageWriter::FormatJpg);
    ShowAll({labelFPS, edFPS, btnGetFpsFromCamera, labelCompressor, cbCompressor, btnCompressorOptions},
            m_fileFormat == ImageWriter::FormatAvi);
    // Before the panel is shown, a layout inside a layout does not notice by itself.
    for (QLayout *const part : {static_cast<QLayout *>(formatRow), static_cast<QLayout *>(compressorRow),
                                static_cast<QLayout *>(filesLayout)})
        part->invalidate();
    groupBox_3->updateGeometry();
    Arrange(); // some formats need more room than others
}

void CapturePanelImpl::CompressorChanged(int sel)
{
    int const index = cbCompressor->itemData(sel).toInt();
    AddToTip(cbCompressor, cbCompressor->itemData(sel, Qt::ToolTipRole).toString());
    long options = 0;
    if (m_serializer && index >= 0 && index < m_compressors.size()) {
        m_serializer->SetParamString("movie.compressor", m_compressors[index].toUtf8().constData());
        m_serializer->GetParamInt("movie.options", &options);
    }
    btnCompressorOptions->setEnabled(options == 1);
}

void CapturePanelImpl::ShowCompressorOptions()
{
}

void CapturePanelImpl::GetFpsFromCamera()
{
    double fps = UnknownFps;
    m_grabber->GetParamFloat("FpsInst", &fps);
    m_writer->SetParamFloat("MovieFPS", std::max(fps, LeastFps));
}

// The field's link alone does not reach the parameter. This runs before the link, which takes the field for read. What
// was not typed stays: the field shows one decimal of it.
void CapturePanelImpl::TakeFps()
{
    bool isNumber = false;
    double const fps = edFPS->text().toDouble(&isNumber);
    if (edFPS->isModified() && isNumber)
        m_writer->SetParamFloat("MovieFPS", fps);
    UpdateFromComponentAsync(QStringLiteral("MovieFPS"));
}

// Beside the button of the image's name, for the movie's as well.
void CapturePanelImpl::ShowNameTemplatesMenu()
{
    m_nameMenu.popup(btnFileName->mapToGlobal(QPoint(btnFileName->width() - 1, 0)));
}

void CapturePanelImpl::OnNameTemplatesMenu(QAction *in)
{
    QLineEdit *const target = IsMovie() ? edMovieFileName : edFileName;
    QString const caption = in->text();
    if (caption == Caption(kReset))
        target->setText(IsMovie() ? QStringLiteral("movie") : QStringLiteral("image_${image.id}"));
    else if (caption == Caption(kAddPcDateAndTime))
        target->setText(target->text() + QStringLiteral("${date:%Y-%b-%d}_${time:%H%M%S_%fff}"));
    else if (caption == Caption(kAddPcTimestamp))
        target->setText(target->text() + QStringLiteral("${date:%Y%m%d}_${time}"));
    else if (caption == Caption(kAddImageId))
        target->setText(target->text() + QStringLiteral("#${image.id}"));
    else if (caption == Caption(kAddImageTimestamp))
        target->setText(target->text() + QStringLiteral("${image.time}"));
    emit target->editingFinished(); // which carries it into the parameter
}

void CapturePanelImpl::FolderSelect()
{
    std::vector<char> text(FolderSize);
    unsigned int size = FolderSize;
    m_writer->GetParamString("FilePath", text.data(), &size);
    QString const folder = QString::fromUtf8(text.data());

    QPointer<CapturePanelImpl> const alive(this); // the camera may be lost while the dialog is open
    QFileDialog dialog(m_mainWindow, tr("Folder for recordings"), folder);
    QT_WARNING_PUSH
    QT_WARNING_DISABLE_DEPRECATED // with the option below it works like Directory
        dialog.setFileMode(QFileDialog::DirectoryOnly);
    QT_WARNING_POP
    dialog.setOption(QFileDialog::ShowDirsOnly);
    if (dialog.exec() != QDialog::Accepted || !alive)
        return;
    // A folder that was selected, but not entered, counts as well.
    QStringList const chosen = dialog.selectedFiles();
    if (!chosen.isEmpty())
        dialog.setDirectory(chosen.first());
    QString const path = dialog.directory().absolutePath();
    if (path != folder)
        m_writer->SetParamString("FilePath", path.toLocal8Bit().constData());
}

void CapturePanelImpl::resizeEvent(QResizeEvent *event)
{
    PlayerPanel::resizeEvent(event);
    Arrange();
}

// Side by side where there is room for it, as at the bottom of the window; below each other in a narrow place.
void CapturePanelImpl::Arrange()
{
    bool const wide = width() >= SizeSideBySide().width();
    groupsLayout->setDirection(wide ? QBoxLayout::LeftToRight : QBoxLayout::TopToBottom);
}

QSize CapturePanelImpl::SizeSideBySide() const
{
    QMargins const margins = groupsLayout->contentsMargins();
    QSize const left = recordingColumn->minimumSize();
    QSize const right = filesLayout->minimumSize();
    return {margins.left() + left.width() + groupsLayout->spacing() + right.width() + margins.right(),
            margins.top() + std::max(left.height(), right.height()) + margins.bottom()};
}

QSize CapturePanelImpl::sizeHint() const
{
    return PlayerPanel::sizeHint() - scrollArea->sizeHint() + SizeSideBySide();
}
