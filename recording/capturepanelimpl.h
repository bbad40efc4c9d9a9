// What the operator records with: snap and record, the counters of the recording, where its files go and what they are
// called, and their format. It records nothing by itself: its widgets show parameters of the writer and of the grabbing
// FIFO, and its buttons are the host's, which also says whether there is a choice of formats. GUI thread only.
#pragma once

#include "playerpanel.h"
#include "ui_capturepanel.h"

#include <QList>
#include <QMenu>
#include <QString>

#include <cstdint>

class PanelHost;
class RecordingReport;

class CapturePanelImpl : public PlayerPanel, private Ui::CapturePanel
{
    Q_OBJECT
public:
    // Captions of the menu of file name templates, which also identify its actions.
    static QString const kReset;
    static QString const kAddPcDateAndTime;
    static QString const kAddPcTimestamp;
    static QString const kAddImageId;
    static QString const kAddImageTimestamp;

    // For the host's current session, which the panel must not outlive.
    CapturePanelImpl(QMainWindow *window, PanelHost *host);

    void SetCurrentSession(Session *session) override;
    void UpdateAll() override;
    // With its groups side by side.
    QSize sizeHint() const override;

    // Takes what is being typed, although its field has not been left yet.
    void FinishEditing();

public slots:
    void FileFormatChanged(int n); // index into the list of formats
    void FolderSelect();
    void CompressorChanged(int sel);
    void GetFpsFromCamera();
    void ShowCompressorOptions(); // does nothing: no compressor has options
    void ShowNameTemplatesMenu();
    void OnNameTemplatesMenu(QAction *in);

protected:
    void resizeEvent(QResizeEvent *event) override;

private:
    bool IsMovie() const;
    void TakeComponents(Session *session);
    void SetupCtlParams();
    void FillFormats();
    void FillCompressors();
    void BuildNameMenu();
    void SetUpForm();
    void TakeFps();       // what was typed
    void Arrange();       // the groups
    void ShowRecording(); // marks losses by colours and tooltips
    // Runs an action of the host, and then updates the buttons.
    void Ask(void (PanelHost::*action)());
    QSize SizeSideBySide() const; // that the groups need

    std::int64_t m_fileFormat = 0;
    PanelHost *m_host;
    bool m_furtherFormats; // the list has more than its first one
    TovComponent *m_writer = nullptr;
    RecordingReport *m_report = nullptr;  // the writer's
    TovComponent *m_serializer = nullptr; // null when there is none
    TovComponent *m_grabber = nullptr;
    QList<QString> m_compressors;
    QMenu m_nameMenu;
};
