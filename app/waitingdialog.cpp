#include "waitingdialog.h"

#include <QApplication>
#include <QDialog>
#include <QDialogButtonBox>
#include <QKeyEvent>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QTimer>
#include <QVBoxLayout>
#include <QWindow>

namespace {

constexpr std::chrono::milliseconds Refresh{100};
constexpr int BarSteps = 1000;
constexpr int WidthInCharacters = 52;

bool IsInput(QEvent::Type type)
{
    switch (type) {
    // Not the release of a button or key that was pressed before: whoever saw the one waits for the other.
    case QEvent::MouseButtonPress:
    case QEvent::MouseButtonDblClick:
    case QEvent::NonClientAreaMouseButtonPress:
    case QEvent::NonClientAreaMouseButtonDblClick:
    case QEvent::Wheel:
    case QEvent::KeyPress:
    case QEvent::Shortcut:
    case QEvent::ShortcutOverride:
    case QEvent::ContextMenu:
    case QEvent::DragEnter:
    case QEvent::DragMove:
    case QEvent::Drop:
    case QEvent::TouchBegin:
    case QEvent::TouchUpdate:
    case QEvent::TabletPress:
    case QEvent::NativeGesture:
    case QEvent::Gesture:
        return true;
    default:
        return false;
    }
}

} // namespace

class WaitingDialog::Window : public QDialog
{
public:
    Window(QWidget *parent, std::function<void()> cancel) : QDialog(parent), m_cancel(std::move(cancel))
    {
        setObjectName(QStringLiteral("waitingDialog"));
        setWindowTitle(QCoreApplication::applicationName());
        setWindowFlag(Qt::WindowContextHelpButtonHint, false);
        setFocusPolicy(Qt::StrongFocus); // a key that is still held must not press the button
        auto *const layout = new QVBoxLayout(this);
        for (QLabel **const label : {&m_what, &m_step}) {
            *label = new QLabel(this);
            (*label)->setTextFormat(Qt::PlainText);
            (*label)->setWordWrap(true);
            layout->addWidget(*label);
        }
        QFont bold = m_what->font();
        bold.setBold(true);
        m_what->setFont(bold);
        m_bar = new QProgressBar(this);
        m_bar->setTextVisible(false);
        layout->addWidget(m_bar);
        m_limit = new QLabel(this);
        layout->addWidget(m_limit);
        m_what->setObjectName(QStringLiteral("waitingWhat"));
        m_step->setObjectName(QStringLiteral("waitingStep"));
        m_bar->setObjectName(QStringLiteral("waitingBar"));
        m_limit->setObjectName(QStringLiteral("waitingLimit"));
        auto *const buttons = new QDialogButtonBox(QDialogButtonBox::Cancel, this);
        m_button = buttons->button(QDialogButtonBox::Cancel);
        m_button->setAutoDefault(false);
        connect(buttons, &QDialogButtonBox::rejected, this, &Window::reject);
        layout->addWidget(buttons);
        setMinimumWidth(fontMetrics().averageCharWidth() * WidthInCharacters);
        setFocus();
    }
    // Escape, the button and the window's own: it closes when the action is over.
    void reject() override
    {
        m_cancel();
    }

    QLabel *m_what, *m_step, *m_limit;
    QProgressBar *m_bar;
    QPushButton *m_button;

private:
    std::function<void()> m_cancel;
};

WaitingDialog::WaitingDialog(QWidget *window, std::function<QString()> what, std::function<Step()> step,
                             std::optional<std::chrono::seconds> limit)
    : m_window(window),
      m_what(std::move(what)),
      m_step(std::move(step)),
      m_limit(limit)
{
    m_since.start();
}

WaitingDialog::~WaitingDialog()
{
    Close();
}

void WaitingDialog::Enter()
{
    m_modalBefore = QApplication::activeModalWidget();
    QApplication::setOverrideCursor(Qt::BusyCursor);
    QCoreApplication::instance()->installEventFilter(this);
}

void WaitingDialog::Leave()
{
    QCoreApplication::instance()->removeEventFilter(this);
    QApplication::restoreOverrideCursor();
}

void WaitingDialog::Show()
{
    if (!m_what)
        return;
    // Over a modal dialog that is open, whose input Qt lets through.
    m_dialog = new Window(m_modalBefore ? m_modalBefore.data() : m_window, [this] { Cancel(); });
    m_dialog->m_what->setText(m_what());
    m_dialog->m_bar->setAccessibleName(m_dialog->m_what->text());
    auto *const refresh = new QTimer(m_dialog);
    connect(refresh, &QTimer::timeout, this, &WaitingDialog::Tell);
    refresh->start(Refresh);
    Tell();
    m_dialog->show();
}

void WaitingDialog::Close()
{
    delete m_dialog;
}

void WaitingDialog::Cancel()
{
    if (WaitingAction *const action = WaitingAction::Current())
        action->Cancel();
    if (m_dialog)
        Tell();
}

void WaitingDialog::Tell()
{
    WaitingAction const *const action = WaitingAction::Current();
    bool const over = action && action->IsGivenUp();
    Step const step = m_step();
    bool const known = !over && step.total > 0 && step.done <= step.total;
    m_dialog->m_step->setText(over && !step.lasts ? tr("Giving up...") : step.text);
    m_dialog->m_bar->setRange(0, known ? BarSteps : 0);
    if (known)
        m_dialog->m_bar->setValue(
            static_cast<int>(static_cast<double>(step.done) / static_cast<double>(step.total) * BarSteps));
    qint64 const seconds = m_since.elapsed() / 1000;
    m_dialog->m_limit->setText(m_limit ? tr("Gives up after %1 s (%2 s so far)").arg(m_limit->count()).arg(seconds)
                                       : tr("%1 s so far").arg(seconds));
    m_dialog->m_button->setEnabled(!over);
}

bool WaitingDialog::MayReach(QObject const *watched) const
{
    QWidget const *const modal = QApplication::activeModalWidget();
    if (modal && modal != m_modalBefore)
        return true; // Qt sees to it that nothing else is reached
    if (!m_dialog)
        return false;
    if (watched->isWidgetType())
        return static_cast<QWidget const *>(watched)->window() == m_dialog.data();
    return watched == m_dialog->windowHandle();
}

bool WaitingDialog::eventFilter(QObject *watched, QEvent *event)
{
    if (!IsInput(event->type()) || MayReach(watched))
        return false;
    if (event->type() == QEvent::KeyPress && static_cast<QKeyEvent *>(event)->key() == Qt::Key_Escape)
        Cancel();
    event->accept(); // or it would go on to the parent
    return true;
}
