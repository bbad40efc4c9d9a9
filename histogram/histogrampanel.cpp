#include "histogrampanel.h"

#include "histoview.h"
#include "imgprocessor.h"
#include "measurement.h"
#include "session.h"
#include "waitingaction.h"

#include "tovcamera.h"

#include <QAction>
#include <QMainWindow>
#include <QScreen>
#include <QShowEvent>
#include <QToolBar>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <string>
#include <utility>

namespace {

constexpr int Period = 500; // milliseconds
constexpr int DefaultDepth = 8;
constexpr std::size_t LongestFormat = 31;

// All digits of the name, wherever they are: "BayerRG12Packed" has 12, and "YUV422_8" 4228.
int DepthOf(char const *pixelFormat)
{
    std::size_t const length = pixelFormat ? std::strlen(pixelFormat) : 0;
    if (length > LongestFormat)
        return DefaultDepth;
    std::string digits;
    for (std::size_t i = 0; i < length; ++i) {
        if (pixelFormat[i] >= '0' && pixelFormat[i] <= '9')
            digits += pixelFormat[i];
    }
    long const depth = digits.empty() ? DefaultDepth : std::strtol(digits.c_str(), nullptr, 10);
    return static_cast<int>(depth > INT_MAX ? INT_MAX : depth);
}

// What the histogram depends on, as the camera has it when the panel is made.
struct CameraFacts
{
    std::int32_t width = 640, height = 480;
    int bits = DefaultDepth;
    std::uint32_t sensorClass = 0;
    std::int64_t familyId = 0;
};

CameraFacts ReadFacts(TovCam::Device *device)
{
    CameraFacts facts;
    TovCam::ParamArray *const params = device->GetCameraParameters(nullptr);
    if (params) {
        facts.width = static_cast<std::int32_t>(params->GetIntegerValue("Width", nullptr));
        facts.height = static_cast<std::int32_t>(params->GetIntegerValue("Height", nullptr));
    }
    facts.bits = DepthOf(params ? params->GetEnumValueStr("PixelFormat", nullptr) : nullptr);
    facts.sensorClass = BayerHelper2::ReadSensorClass(device);
    facts.familyId = params ? params->GetIntegerValue("FamilyID", nullptr) : 0;
    return facts;
}

} // namespace

HistogramPanel::HistogramPanel(QMainWindow *window)
    : PlayerPanel(window, QStringLiteral("actionHistogramPanel"), Period)
{
    setupUi(this);
    tapCheckBox->setEnabled(false);
    modeComboBox->insertItem(HistoRaw, tr("Bar histogram"));
    modeComboBox->insertItem(HistoRow, tr("Row histogram"));
    modeComboBox->insertItem(HistoColumn, tr("Column histogram"));
    modeComboBox->setCurrentIndex(HistoRaw);
    Ui::HistogramPanel::widget->installEventFilter(this);

    connect(xLimitsCheckBox, &QCheckBox::released, this, &HistogramPanel::DoXLimitsCheckBox);
    connect(meanSpin, qOverload<double>(&QDoubleSpinBox::valueChanged), this, &HistogramPanel::DoMeanSpin);
    connect(logCheckBox, &QCheckBox::released, this, &HistogramPanel::DoLogCheckBox);
    connect(modeComboBox, qOverload<int>(&QComboBox::currentIndexChanged), this, &HistogramPanel::DoModeComboBox);
    connect(avrCheckBox, &QCheckBox::released, this, &HistogramPanel::DoAvrCheckBox);
    connect(rowSlider, &QSlider::valueChanged, this, &HistogramPanel::DoRowSlider);
    connect(columnSlider, &QSlider::valueChanged, this, &HistogramPanel::DoColumnSlider);
    connect(rowSpin, qOverload<double>(&QDoubleSpinBox::valueChanged), this, &HistogramPanel::DoRowSpin);
    connect(colSpin, qOverload<double>(&QDoubleSpinBox::valueChanged), this, &HistogramPanel::DoColSpin);

    hide(); // or floating it would show it before it has its place
    setFloating(true);
    m_mainWindow->addDockWidget(Qt::RightDockWidgetArea, this);
    PlaceBesideToolbars();
    show();
}

HistogramPanel::~HistogramPanel()
{
    delete m_view; // it looks at members of the panel
}

// ---- The session ----------------------------------------------------------------------------------------------------

void HistogramPanel::SetCurrentSession(Session *session)
{
    PlayerPanel::SetCurrentSession(session);
    ReadCamera();

    // The row controls run over the width and the column controls over the height, so that on a wide picture they pick
    // rows that it does not have; the graph says so then.
    int const lastRow = m_histo.width - 1;
    int const lastColumn = m_histo.height - 1;
    maxRowLabel->setText(QString::number(lastRow));
    maxColLabel->setText(QString::number(lastColumn));
    rowSlider->setMaximum(lastRow);
    rowSpin->setMaximum(lastRow);
    columnSlider->setMaximum(lastColumn);
    colSpin->setMaximum(lastColumn);

    delete m_view;
    m_view = new HistoView(groupBoxHistoGraph);
    m_view->setGeometry(30, 30, 100, 100);
    m_view->width = m_histo.width;
    m_view->height = m_histo.height;
    m_view->bits = m_histo.bits;
    ResetState();

    m_thresholds.lowThreshold = 0;
    m_thresholds.highThreshold = static_cast<std::uint16_t>(HistoLevels(m_histo.bits));
    m_view->ShowAxes(m_histo.bits);
    connect(m_view, &HistoView::signalUpdateThresolds, this, &HistogramPanel::UpdateThresholds);
    m_view->show();
    FitToTexts();
}

void HistogramPanel::ReadCamera()
{
    if (WaitingAction::Current())
        hide(); // the event loop of a wait would show it, and run its timer, before there is anything
    CameraFacts facts;
    m_session->WaitWithin([&] { facts = WaitFor([device = m_session->GetDevice()] { return ReadFacts(device); }); });
    m_histo.width = facts.width;
    m_histo.height = facts.height;
    m_histo.bits = facts.bits;
    m_sensorClass = facts.sensorClass;
    if (m_sensorClass == BayerHelper2::ColorClass)
        modeComboBox->addItem(tr("RGB histogram"));
    m_familyId = facts.familyId;
    m_bayer.SetUp(m_histo.width, m_histo.height, m_histo.bits, m_sensorClass, m_familyId, &m_histo);
}

void HistogramPanel::ResetState()
{
    m_xLimitState = Qt::Unchecked;
    m_meanFactor = 1;
    m_logState = Qt::Unchecked;
    m_tapState = Qt::Unchecked;
    m_modeIndex = HistoRaw;
    m_averageState = Qt::Unchecked;
    m_tapCount = 1;
    m_view->SetMode(HistoRaw);
    m_view->SetXAxisLimit(m_xLimitState == Qt::Checked, m_meanFactor);
    m_view->UseYAxisLog(m_logState == Qt::Checked);
    m_view->SetTapMode(m_tapState == Qt::Checked, m_tapCount);
    m_view->SetAverage(m_averageState == Qt::Checked);
}

// ---- Updates --------------------------------------------------------------------------------------------------------

bool HistogramPanel::UpdateSelfByTimer()
{
    if (isHidden())
        return false;
    ImgProcessor *const analysis = m_session->GetAnalysis();
    std::memcpy(&m_thresholds, &analysis->m_thresholds, sizeof m_thresholds);
    bool const seen = analysis->GetHistoData(&m_histo, &m_bayer) || analysis->GetKeptHistoData(&m_histo, &m_bayer);
    _TovImage const &picture = analysis->GetSource();
    if (QString const why = seen ? Measurement::WhyNone(picture, m_histo, m_bayer) : QString(); !why.isEmpty())
        ShowNothing(why);
    if (m_histo.plots.empty()) {
        if (!seen) { // the figures belong to no picture
            Tell(tr("No picture yet: Play starts it."));
            for (QLabel *const figure : {meanLabel, devLabel, SNRLabel})
                figure->setEnabled(false);
            m_view->update();
        }
        return false;
    }
    SimpleHisto const &first = *m_histo.plots.front();
    // Nobody computes the noise: 0.0.
    SetFigures(QString::asprintf("%5.2f", first.mean), QString::asprintf("%5.2f", first.stdDev),
               QString::asprintf("%5.1f", m_histo.snr));
    // The view gets the markers only now, and draws no data without them: the first update shows the axes alone.
    m_view->SetData(&m_histo);
    m_view->thresholds = &m_thresholds;
    CountPixels();
    m_view->graph.thresholds = &m_thresholds;
    Tell(seen ? Measurement::Doubt(picture, m_histo, m_bayer) : QString());
    m_view->update();
    return true;
}

// The mode's axes, without the figures of another picture.
void HistogramPanel::ShowNothing(QString const &why)
{
    m_histo.ClearPlots();
    QString const dash(QChar(0x2013));
    SetFigures(dash, dash, dash);
    HistoThresholds &t = m_thresholds;
    t.belowLow = t.betweenLowHigh = t.aboveHigh = t.belowMark = t.aboveMark = 0;
    _TovImage const &picture = m_session->GetAnalysis()->GetSource();
    bool const known = picture.width != 0;
    if (known) {
        m_view->width = static_cast<std::int32_t>(picture.width);
        m_view->height = static_cast<std::int32_t>(picture.height);
    }
    m_view->ShowAxes(known ? static_cast<int>(picture.bitDepth) : m_histo.bits);
    Tell(why);
    m_view->update();
}

void HistogramPanel::Tell(QString const &sentence)
{
    m_view->graph.SetNotice(sentence);
    m_view->setAccessibleDescription(sentence);
}

void HistogramPanel::SetFigures(QString const &mean, QString const &stdDev, QString const &snr)
{
    std::pair<QLabel *, QString const &> const figures[] = {{meanLabel, mean}, {devLabel, stdDev}, {SNRLabel, snr}};
    for (auto const &[label, text] : figures) {
        label->setEnabled(true);
        label->setText(text);
        // There is room for the usual figures; a mean over the lines of a high picture may need more.
        if (int const wanted = label->sizeHint().width(); wanted > label->minimumWidth())
            label->setMinimumWidth(wanted);
    }
}

// For a profile, whose positions are pixels, these are sums of the signal.
void HistogramPanel::CountPixels()
{
    HistoThresholds &t = m_thresholds;
    std::uint32_t belowLow = 0, between = 0, aboveHigh = 0, belowMark = 0, aboveMark = 0; // sums may wrap
    SimpleHisto const &series = *m_histo.plots.front();
    for (std::size_t i = 0; i < series.values.size() && i < series.positions.size(); ++i) {
        std::int32_t const p = series.positions[i];
        auto const c = static_cast<std::uint32_t>(series.values[i]);
        (p <= t.lowThreshold ? belowLow : p < t.highThreshold ? between : aboveHigh) += c;
        (p <= t.markThreshold ? belowMark : aboveMark) += c;
    }
    t.belowLow = static_cast<std::int32_t>(belowLow);
    t.betweenLowHigh = static_cast<std::int32_t>(between);
    t.aboveHigh = static_cast<std::int32_t>(aboveHigh);
    t.belowMark = static_cast<std::int32_t>(belowMark);
    t.aboveMark = static_cast<std::int32_t>(aboveMark);
}

void HistogramPanel::UpdateThresholds()
{
    std::memcpy(&m_session->GetAnalysis()->m_thresholds, &m_thresholds, sizeof m_thresholds);
}

// ---- The controls ---------------------------------------------------------------------------------------------------

void HistogramPanel::DoXLimitsCheckBox()
{
    m_xLimitState = xLimitsCheckBox->checkState();
    m_view->SetXAxisLimit(m_xLimitState == Qt::Checked, m_meanFactor);
}

void HistogramPanel::DoMeanSpin()
{
    m_meanFactor = static_cast<std::int32_t>(meanSpin->value());
    m_view->SetXAxisLimit(m_xLimitState == Qt::Checked, m_meanFactor);
}

void HistogramPanel::DoLogCheckBox()
{
    m_logState = logCheckBox->checkState();
    m_view->UseYAxisLog(m_logState == Qt::Checked);
}

void HistogramPanel::DoTapCheckBox()
{
    m_tapState = tapCheckBox->checkState();
    m_view->SetTapMode(m_tapState == Qt::Checked, m_tapCount);
}

void HistogramPanel::DoModeComboBox()
{
    m_modeIndex = modeComboBox->currentIndex();
    m_view->SetMode(m_modeIndex);
    m_histo.mode = m_modeIndex;
    ShowNothing(QString()); // what was shown belongs to the other mode
}

void HistogramPanel::DoAvrCheckBox()
{
    m_averageState = avrCheckBox->checkState();
    m_histo.integrated = m_averageState == Qt::Checked;
    m_view->SetAverage(m_histo.integrated);
}

void HistogramPanel::DoRowSlider()
{
    m_rowValue = rowSlider->value();
    rowSpin->setValue(m_rowValue);
    m_histo.row = m_rowValue;
}

void HistogramPanel::DoColumnSlider()
{
    m_columnValue = columnSlider->value();
    colSpin->setValue(m_columnValue);
    m_histo.column = m_columnValue;
}

void HistogramPanel::DoRowSpin()
{
    m_rowValue = static_cast<std::int32_t>(rowSpin->value());
    rowSlider->setValue(m_rowValue);
    m_histo.row = m_rowValue;
}

void HistogramPanel::DoColSpin()
{
    m_columnValue = static_cast<std::int32_t>(colSpin->value());
    columnSlider->setValue(m_columnValue);
    m_histo.column = m_columnValue;
}

// ---- Layout ---------------------------------------------------------------------------------------------------------

// The form's sizes suit usual texts in a narrow font: what needs more gets more. The figures get their greatest width
// for any format at once, so that the panel does not grow while somebody looks at it.
void HistogramPanel::FitToTexts()
{
    for (QLabel *const figure : {meanLabel, devLabel, SNRLabel}) {
        QString const now = figure->text();
        figure->setText(figure == SNRLabel ? QStringLiteral("-100.0") : QStringLiteral("65535.00"));
        figure->ensurePolished();
        figure->setMinimumWidth(std::max(figure->minimumWidth(), figure->sizeHint().width()));
        figure->setText(now);
    }
    for (QWidget *const text :
         std::initializer_list<QWidget *>{label, label_4, label_5, label_6, label_7, SNR, modeComboBox}) {
        text->ensurePolished();
        if (int const wanted = text->sizeHint().width(); wanted > text->minimumWidth())
            text->setMinimumWidth(wanted);
    }
    QWidget *const contents = Ui::HistogramPanel::widget;
    if (int const wanted = contents->minimumSizeHint().width(); wanted > minimumWidth())
        setMinimumWidth(wanted);
}

void HistogramPanel::showEvent(QShowEvent *event)
{
    if (!event->spontaneous() && isFloating() && pos() == m_firstPlace)
        PlaceBesideToolbars();
    PlayerPanel::showEvent(event);
}

// Below them at the window's right; where the screen is too low for that, beside the button that has opened it.
void HistogramPanel::PlaceBesideToolbars()
{
    SettleLayout();
    QRect const window = m_mainWindow->frameGeometry();
    QRect button;
    int top = window.top();
    for (QToolBar const *bar : m_mainWindow->findChildren<QToolBar *>()) {
        if (!bar->isVisible() || m_mainWindow->toolBarArea(const_cast<QToolBar *>(bar)) != Qt::TopToolBarArea)
            continue;
        top = std::max(top, bar->mapToGlobal(bar->rect().bottomLeft()).y() + 1);
        for (QAction *const action : bar->actions()) {
            QWidget const *const widget = bar->widgetForAction(action);
            if (widget && widget->isVisible() && action->objectName() == GetActionName())
                button = QRect(widget->mapToGlobal(QPoint()), widget->size());
        }
    }
    QRect const room = m_mainWindow->screen()->availableGeometry();
    QSize const size = frameGeometry().size().boundedTo(room.size());
    int x = std::clamp(window.right() + 1 - size.width(), room.x(), room.right() + 1 - size.width());
    int const y = std::min(top, room.bottom() + 1 - size.height());
    if (!button.isNull() && QRect(QPoint(x, y), size).intersects(button)) {
        if (room.right() - button.right() >= size.width())
            x = button.right() + 1;
        else if (button.left() - room.left() >= size.width())
            x = button.left() - size.width();
    }
    move(x, y);
    m_firstPlace = pos();
}

void HistogramPanel::resizeEvent(QResizeEvent *event)
{
    PlayerPanel::resizeEvent(event);
    PlaceGroups();
}

// The layout may place the groups anew at any time; it has done so when this is called.
bool HistogramPanel::eventFilter(QObject *watched, QEvent *event)
{
    if (event->type() == QEvent::LayoutRequest || event->type() == QEvent::Resize)
        PlaceGroups();
    return PlayerPanel::eventFilter(watched, event);
}

void HistogramPanel::paintEvent(QPaintEvent *event)
{
    PlayerPanel::paintEvent(event);
}

// From the bottom, overriding the layout.
void HistogramPanel::PlaceGroups()
{
    QSize const frame = frameGeometry().size();
    // The title bar of a docked panel is inside the panel.
    int const title = width() == frame.width() || height() == frame.height() ? 20 : 0;
    int const bottom = height() - groupRowColumn->frameGeometry().height() - title;
    int const above = bottom - groupMinStdDev->frameGeometry().height();
    groupRowColumn->move(0, bottom);
    groupMinStdDev->move(0, above);
    groupVis->move(groupMinStdDev->frameGeometry().width(), bottom - groupVis->frameGeometry().height());
    if (m_view) {
        QRect const graph = groupBoxHistoGraph->geometry();
        m_view->setGeometry(0, 0, graph.right() - graph.left(), graph.bottom() - graph.top());
    }
}
