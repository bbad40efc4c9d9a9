// The analysis of the live picture: histograms, profiles and markers, twice a second while the panel is shown. Hidden,
// it asks for nothing. One panel serves one session.
#pragma once

#include "bayerhelper2.h"
#include "histo.h"
#include "playerpanel.h"
#include "ui_histogrampanel.h"

#include <cstdint>

class HistoView;

class HistogramPanel : public PlayerPanel, private Ui::HistogramPanel
{
    Q_OBJECT
public:
    explicit HistogramPanel(QMainWindow *window);
    ~HistogramPanel() override;

    // Makes the view for the session's camera, whose size and depth are read here and not again.
    void SetCurrentSession(Session *session) override;
    bool UpdateSelfByTimer() override;

public slots:
    void DoXLimitsCheckBox();
    void DoMeanSpin();
    void DoLogCheckBox();
    void DoTapCheckBox(); // not connected: the box stays disabled
    void DoModeComboBox();
    void DoAvrCheckBox();
    void DoRowSlider();
    void DoColumnSlider();
    void DoRowSpin();
    void DoColSpin();
    void UpdateThresholds(); // the markers to the analysis

protected:
    void resizeEvent(QResizeEvent *event) override;
    void paintEvent(QPaintEvent *event) override;
    void showEvent(QShowEvent *event) override;
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void ReadCamera();
    void ResetState();
    void ShowNothing(QString const &why);
    void Tell(QString const &sentence); // in the graph; empty for nothing
    void SetFigures(QString const &mean, QString const &stdDev, QString const &snr);
    void CountPixels();
    void FitToTexts();
    void PlaceGroups();
    void PlaceBesideToolbars();

    ComplexHisto m_histo;
    BayerHelper2 m_bayer;
    std::int32_t m_xLimitState = 0; // check states are Qt's
    std::int32_t m_meanFactor = 1;
    std::int32_t m_logState = 0;
    std::int32_t m_tapState = 0;
    std::int32_t m_modeIndex = 0;
    std::int32_t m_averageState = 0;
    std::int32_t m_rowValue = 0;
    std::int32_t m_columnValue = 0;
    std::int32_t m_tapCount = 1;
    HistoView *m_view = nullptr; // owned, a child of the group box
    HistoThresholds m_thresholds{};
    std::uint32_t m_sensorClass = 0;
    std::int64_t m_familyId = 0;
    QPoint m_firstPlace; // on the screen, until the operator moves it
};
