#include "histogrampanel.h"

#include "histoview.h"
#include "imgprocessor.h"
#include "session.h"

#include "tovcamera.h"

#include <QMainWindow>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <string>

namespace {

constexpr int Period = 500; // milliseconds
constexpr int DefaultDepth = 8;
constexpr std::size_t LongestFormat = 31;

// All digits of the name, in whatever places they stand: "BayerRG12Packed" has 12, and "YUV422_8" 4228.
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

// Full scale of a depth; none for one that no number of 32 bits has.
std::int32_t FullScale(int bits)
{
    return bits >= 0 && bits <= 30 ? 1 << bits : 0;
}

} // namespace

HistogramPanel::HistogramPanel(QMainWindow *window)
    : PlayerPanel(window, QStringLiteral("actionHistogramPanel"), Period)
{
    setupUi(this);
    tapCheckBox->setEnabled(false);
    modeComboBox->insertItem(HistoRaw, QStringLiteral("Bar histogram"));
    modeComboBox->insertItem(HistoRow, QStringLiteral("Row histogram"));
    modeComboBox->insertItem(HistoColumn, QStringLiteral("Column histogram"));
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

    setFloating(true);
    m_mainWindow->addDockWidget(Qt::RightDockWidgetArea, this);
    move(m_mainWindow->geometry().topRight() - QPoint(width(), 0)); // until it has a place of its own
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

    // The row controls run over the width, and the column controls over the height; that is meant.
    int const lastRow = m_histo.width - 1;
    int const lastColumn = m_histo.height - 1;
    maxRowLabel->setText(QString(QStringLiteral("%1")).arg(lastRow, 0, 10));
    maxColLabel->setText(QString(QStringLiteral("%1")).arg(lastColumn, 0, 10));
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

    std::int32_t const levels = FullScale(m_histo.bits);
    m_thresholds.lowThreshold = 0;
    m_thresholds.highThreshold = static_cast<std::uint16_t>(levels);
    auto const area = static_cast<std::int32_t>(static_cast<std::uint32_t>(m_histo.height) * m_histo.width * 2u);
    m_view->SetupHistoGraph(area / (levels * 0.1), 0.0, levels);
    connect(m_view, &HistoView::signalUpdateThresolds, this, &HistogramPanel::UpdateThresholds);
    m_view->show();
    FitToTexts(levels);
}

void HistogramPanel::ReadCamera()
{
    TovCam::Device *const device = m_session->GetDevice();
    TovCam::ParamArray *const params = device->GetCameraParameters(nullptr);
    if (params) {
        m_histo.width = static_cast<std::int32_t>(params->GetIntegerValue("Width", nullptr));
        m_histo.height = static_cast<std::int32_t>(params->GetIntegerValue("Height", nullptr));
    }
    m_histo.bits = DepthOf(params ? params->GetEnumValueStr("PixelFormat", nullptr) : nullptr);
    m_sensorClass = BayerHelper2::ReadSensorClass(device);
    if (m_sensorClass == BayerHelper2::ColorClass)
        modeComboBox->addItem(QStringLiteral("RGB histogram"));
    m_familyId = params ? params->GetIntegerValue("FamilyID", nullptr) : 0;
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
    analysis->GetHistoData(&m_histo, &m_bayer);
    if (m_histo.plots.empty())
        return false;
    SimpleHisto const &first = *m_histo.plots.front();
    meanLabel->setText(QString::asprintf("%5.2f", first.mean));
    devLabel->setText(QString::asprintf("%5.2f", first.stdDev));
    SNRLabel->setText(QString::asprintf("%5.1f", m_histo.snr)); // nothing computes it: 0.0
    // The view gets the markers only now, so the first update shows no more than the axes; that is meant.
    m_view->SetData(&m_histo);
    m_view->thresholds = &m_thresholds;
    CountPixels();
    m_view->graph.thresholds = &m_thresholds;
    m_view->update();
    return true;
}

// Of a profile, whose positions are places, these are sums of the signal.
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

// The sizes of the form are those of usual texts in a narrow font: what needs more gets more. The figures get their
// greatest width at once, so that the panel does not grow while one looks at it.
void HistogramPanel::FitToTexts(int levels)
{
    for (QLabel *const figure : {meanLabel, devLabel, SNRLabel}) {
        QString const now = figure->text();
        figure->setText(figure == SNRLabel ? QStringLiteral("-100.0") : QString::asprintf("%5.2f", double(levels)));
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

void HistogramPanel::resizeEvent(QResizeEvent *event)
{
    PlayerPanel::resizeEvent(event);
    PlaceGroups();
}

// The layout may do its work again at any time; it has done so when this is called.
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

// From the bottom, over what the layout has done.
void HistogramPanel::PlaceGroups()
{
    QSize const frame = frameGeometry().size();
    // The title bar of a docked panel is inside of it.
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
