#include "playerpanel.h"

#include "tovparamtablemodel.h"

#include "tovmisc.h"

#include <QApplication>
#include <QCheckBox>
#include <QCloseEvent>
#include <QComboBox>
#include <QGroupBox>
#include <QGuiApplication>
#include <QLayout>
#include <QLineEdit>
#include <QMainWindow>
#include <QMenu>
#include <QMenuBar>
#include <QScreen>
#include <QSettings>
#include <QTableView>
#include <QTimer>

#include <algorithm>
#include <iterator>
#include <utility>

namespace {

QString const GeometryKey = QStringLiteral("wndGeometry");
constexpr unsigned int StringEditSize = 1000;
char const ShownText[] = "shownText"; // property of an edit: the text last read from its parameter, or written to it

// What cannot be read is empty.
QString ValueText(TovComponent *component, char const *param, char const *format, unsigned int size)
{
    char text[256] = "";
    unsigned int needed = size;
    if (TovSucceeded(component->GetParamAsString(param, text, &needed, format)) || needed <= size)
        return QString::fromUtf8(text);
    // Longer than most, such as a folder's name.
    std::vector<char> longText(needed + 1);
    component->GetParamAsString(param, longText.data(), &needed, format);
    return QString::fromUtf8(longText.data());
}

void ShowText(QLineEdit *edit, QString const &text)
{
    edit->setText(text);
    edit->setProperty(ShownText, text);
}

bool BoolValue(TovComponent *component, char const *param)
{
    bool value = false;
    if (component)
        component->GetParamBool(param, &value);
    return value;
}

} // namespace

std::map<PlayerPanel *, PlayerPanel *> PlayerPanel::s_panels;
std::mutex PlayerPanel::s_registryMutex;

PlayerPanel::PlayerPanel(QMainWindow *window, QString const &actionName, int timerPeriod)
    : QDockWidget(window),
      m_mainWindow(window),
      m_actionName(actionName)
{
    if (timerPeriod != 0) {
        m_timer = new QTimer(this);
        connect(m_timer, &QTimer::timeout, this, &PlayerPanel::UpdateByTimer);
        m_timer->start(timerPeriod);
    }
    connect(this, &PlayerPanel::enableControl, this, &PlayerPanel::enableControlSlot);
    connect(this, &QWidget::windowTitleChanged, this, &QWidget::setAccessibleName);
    std::lock_guard const lock(s_registryMutex);
    s_panels[this] = this;
}

PlayerPanel::~PlayerPanel()
{
    {
        std::lock_guard const lock(s_registryMutex);
        s_panels[this] = nullptr;
    }
    // The base hides the widgets next. A field with the focus would then end its edit, in slots of a panel that is
    // gone.
    for (QWidget *const child : findChildren<QWidget *>())
        child->disconnect(this);
}

QString const &PlayerPanel::GetActionName() const
{
    return m_actionName;
}

void PlayerPanel::SetCurrentSession(Session *session)
{
    m_session = session;
    UpdateAll();
}

void PlayerPanel::UpdateAll()
{
    UpdateFromComponent(QString());
}

bool PlayerPanel::SaveStateToGlobalSettings(QSettings *settings)
{
    settings->beginGroup(objectName());
    settings->setValue(GeometryKey, saveGeometry());
    settings->endGroup();
    return true;
}

bool PlayerPanel::SaveStateToSessionSettings(QSettings * /*settings*/, QString const & /*name*/)
{
    return false;
}

bool PlayerPanel::LoadStateFromGlobalSettings(QSettings *settings)
{
    settings->beginGroup(objectName());
    restoreGeometry(settings->value(GeometryKey).toByteArray());
    settings->endGroup();
    return true;
}

bool PlayerPanel::LoadStateFromSessionSettings(QSettings * /*settings*/, QString const & /*name*/)
{
    return false;
}

void PlayerPanel::OnCameraParamUpdated(QString const & /*name*/)
{
}

bool PlayerPanel::UpdateSelfByTimer()
{
    return true;
}

void PlayerPanel::AddParamLink(char const *param, QWidget *widget, TovComponent *component, int row, char const *format)
{
    ParamLink link{QString::fromUtf8(param), format, widget->objectName(), row, component};
    std::lock_guard const lock(s_registryMutex);
    m_links.push_back(std::move(link));
}

void PlayerPanel::LinkEdit(QLineEdit *edit, char const *param, char const *format, TovComponent *component,
                           void (PlayerPanel::*changed)())
{
    AddParamLink(param, edit, component, 0, format);
    if (!edit->isReadOnly())
        connect(edit, &QLineEdit::editingFinished, this, changed);
}

void PlayerPanel::AddIntegerEdit(QLineEdit *edit, char const *param, char const *format, TovComponent *component)
{
    LinkEdit(edit, param, format, component, &PlayerPanel::IntegerEditChanged);
    edit->setText(ValueText(component, param, format, 255));
}

void PlayerPanel::AddFloatEdit(QLineEdit *edit, char const *param, char const *format, TovComponent *component)
{
    LinkEdit(edit, param, format, component, &PlayerPanel::FloatEditChanged);
    edit->setText(ValueText(component, param, format, 255));
}

bool PlayerPanel::AddStringEdit(QLineEdit *edit, char const *param, TovComponent *component)
{
    LinkEdit(edit, param, nullptr, component, &PlayerPanel::StringEditChanged);
    char text[StringEditSize] = "";
    unsigned int size = sizeof text;
    bool const read = TovSucceeded(component->GetParamString(param, text, &size));
    ShowText(edit, read ? QString::fromUtf8(text) : ValueText(component, param, nullptr, 255));
    return true;
}

void PlayerPanel::AddBoolCheckBox(QCheckBox *box, char const *param, TovComponent *component)
{
    AddParamLink(param, box, component, 0, nullptr);
    connect(box, &QCheckBox::stateChanged, this, &PlayerPanel::CheckBoxChanged);
    box->setChecked(BoolValue(component, param));
}

void PlayerPanel::AddBoolCheckGroupBox(QGroupBox *box, char const *param, TovComponent *component)
{
    AddParamLink(param, box, component, 0, nullptr);
    connect(box, &QGroupBox::toggled, this, &PlayerPanel::CheckGroupBoxChanged);
    box->setChecked(BoolValue(component, param));
}

void PlayerPanel::AddTableParam(QTableView *view, char const *param, TovComponent *component, char const *label)
{
    auto *const model = qobject_cast<TovParamTableModel *>(view->model());
    if (!model)
        return;
    int const row = model->rowCount();
    model->AddParam({component, QString::fromUtf8(param), QString::fromUtf8(label ? label : param)});
    AddParamLink(param, view, component, row, nullptr);
}

ParamLink PlayerPanel::GetParamForControl(QString const &controlName) const
{
    auto const found = std::find_if(m_links.begin(), m_links.end(),
                                    [&](ParamLink const &link) { return link.controlName == controlName; });
    return found != m_links.end() ? *found : ParamLink();
}

ParamLink PlayerPanel::GetControlForParam(QString const &paramName) const
{
    auto const found = std::find_if(m_links.begin(), m_links.end(),
                                    [&](ParamLink const &link) { return link.paramName == paramName; });
    return found != m_links.end() ? *found : ParamLink();
}

bool PlayerPanel::HasParam(QString const &paramName) const
{
    return std::any_of(m_links.begin(), m_links.end(),
                       [&](ParamLink const &link) { return link.paramName == paramName; });
}

PlayerPanel *PlayerPanel::GetPanel(QString const &actionName)
{
    for (auto const &[key, panel] : s_panels) {
        if (panel && panel->m_actionName == actionName)
            return panel;
    }
    return nullptr;
}

bool PlayerPanel::IsAlive(PlayerPanel *panel)
{
    std::lock_guard const lock(s_registryMutex);
    return s_panels[panel] != nullptr;
}

void PlayerPanel::UpdateFromComponent(QString const &name)
{
    if (name.isEmpty()) {
        // By index: a refresh may add a link.
        for (std::size_t i = 0; i < m_links.size(); ++i) {
            if (QString const param = m_links[i].paramName; !param.isEmpty())
                UpdateFromComponent(param);
        }
        return;
    }
    ParamLink const link = GetControlForParam(name);
    if (!link.component)
        return;
    QByteArray const param = name.toUtf8();
    if (auto *const edit = findChild<QLineEdit *>(link.controlName)) {
        // What is being typed stays, to be written once it is finished, and so does a selection in what is up to date.
        QString const text = ValueText(link.component, param.constData(), link.format, 256);
        if (text != edit->text() && !(edit->hasFocus() && edit->isModified()))
            ShowText(edit, text);
    } else if (auto *const combo = findChild<QComboBox *>(link.controlName)) {
        long value = 0;
        link.component->GetParamInt(param.constData(), &value);
        int const index =
            combo->findData(qlonglong{value}, Qt::UserRole, Qt::MatchFlags(Qt::MatchExactly | Qt::MatchCaseSensitive));
        if (index >= 0)
            combo->setCurrentIndex(index);
    } else if (auto *const box = findChild<QCheckBox *>(link.controlName)) {
        box->setChecked(BoolValue(link.component, param.constData()));
    } else if (auto *const group = findChild<QGroupBox *>(link.controlName)) {
        group->setChecked(BoolValue(link.component, param.constData()));
    } else if (auto *const view = findChild<QTableView *>(link.controlName)) {
        if (QAbstractItemModel *const model = view->model())
            emit model->dataChanged(model->index(link.row, 0), model->index(link.row, 1));
    }
}

void PlayerPanel::UpdateFromComponentAsync(QString const &name)
{
    std::lock_guard const lock(m_pendingMutex);
    if (name.isEmpty()) {
        m_pendingParams.clear();
        for (ParamLink const &link : m_links)
            m_pendingParams.push_back(link.paramName);
    } else if (std::find(m_pendingParams.begin(), m_pendingParams.end(), name) == m_pendingParams.end()) {
        m_pendingParams.push_back(name);
    }
}

unsigned int PlayerPanel::OnParamChanged(unsigned int /*component*/, _TovStParam *param)
{
    QString const name = QString::fromUtf8(param->name);
    std::vector<PlayerPanel *> immediate;
    {
        std::lock_guard const lock(s_registryMutex);
        for (auto const &[key, panel] : s_panels) {
            if (!panel || !panel->HasParam(name))
                continue;
            if (panel->m_timer)
                panel->UpdateFromComponentAsync(name);
            else
                immediate.push_back(panel);
        }
    }
    // Panels that are refreshed by the thread that makes the change; one refresh may close another panel.
    for (PlayerPanel *const panel : immediate) {
        if (IsAlive(panel))
            panel->UpdateFromComponent(name);
    }
    return 0;
}

void PlayerPanel::UpdateByTimer()
{
    if (!UpdateSelfByTimer())
        return;
    std::vector<QString> names;
    {
        std::lock_guard const lock(m_pendingMutex);
        names.swap(m_pendingParams);
    }
    for (QString const &name : names)
        UpdateFromComponent(name);
}

// Refreshes by the program need no mark: setText does not end an edit, and setChecked signals real changes alone.
ParamLink PlayerPanel::SenderLink(QObject *control) const
{
    if (auto *const edit = qobject_cast<QLineEdit *>(control))
        edit->setModified(false); // refreshed again from now on
    return control && !isModal() ? GetParamForControl(control->objectName()) : ParamLink();
}

void PlayerPanel::IntegerEditChanged()
{
    auto *const edit = qobject_cast<QLineEdit *>(sender());
    if (ParamLink const link = SenderLink(edit); link.component)
        link.component->SetParamInt(link.paramName.toLocal8Bit().constData(), edit->text().toInt());
}

void PlayerPanel::FloatEditChanged()
{
    auto *const edit = qobject_cast<QLineEdit *>(sender());
    // Under the control's name: an edit that is not named like its parameter writes nothing.
    if (ParamLink const link = SenderLink(edit); link.component)
        link.component->SetParamFloat(link.controlName.toLocal8Bit().constData(), edit->text().toDouble());
}

void PlayerPanel::StringEditChanged()
{
    auto *const edit = qobject_cast<QLineEdit *>(sender());
    // A field that was entered and left unchanged writes nothing: it may show its value rounded.
    bool const typed = edit && (edit->isModified() || edit->text() != edit->property(ShownText).toString());
    if (ParamLink const link = SenderLink(edit); link.component && typed) {
        link.component->SetParamString(link.paramName.toLocal8Bit().constData(), edit->text().toUtf8().constData());
        edit->setProperty(ShownText, edit->text());
    }
}

void PlayerPanel::CheckBoxChanged(int state)
{
    if (ParamLink const link = SenderLink(qobject_cast<QCheckBox *>(sender())); link.component)
        link.component->SetParamBool(link.paramName.toLocal8Bit().constData(), state != Qt::Unchecked);
}

void PlayerPanel::CheckGroupBoxChanged(bool on)
{
    if (ParamLink const link = SenderLink(qobject_cast<QGroupBox *>(sender())); link.component)
        link.component->SetParamBool(link.paramName.toLocal8Bit().constData(), on);
}

void PlayerPanel::enableControlSlot(QObject *w, bool e)
{
    if (auto *const widget = qobject_cast<QWidget *>(w))
        widget->setEnabled(e);
}

bool PlayerPanel::CanBeSeen() const
{
    if (!isVisible() || window()->isMinimized())
        return false;
    if (!isWindow())
        return !visibleRegion().isEmpty(); // a tab behind another one lies outside the window
    // Only on this platform can it be found out what covers a window.
    if (QGuiApplication::platformName() != QLatin1String("xcb"))
        return true;
    QRect const inner = rect().adjusted(width() / 8, height() / 8, -width() / 8, -height() / 8);
    QPoint const points[] = {inner.center(), inner.topLeft(), inner.topRight(), inner.bottomLeft(),
                             inner.bottomRight()};
    return std::any_of(std::begin(points), std::end(points),
                       [this](QPoint point) { return QApplication::topLevelAt(mapToGlobal(point)) == this; });
}

void PlayerPanel::ShowOrHide()
{
    if (CanBeSeen()) {
        hide();
        return;
    }
    if (isWindow())
        setWindowState(windowState() & ~Qt::WindowMinimized);
    show();
    raise(); // from behind the other tabs of its place
    if (isWindow()) {
        KeepOnScreen();
        activateWindow();
    }
    CheckActionMenu(m_actionName, true); // the click on the action of an open panel has unchecked it
}

void PlayerPanel::SettleLayout()
{
    auto const parts = findChildren<QWidget *>();
    for (auto part = parts.rbegin(); part != parts.rend(); ++part) { // inner ones first
        if (QLayout *const inner = (*part)->layout())
            inner->activate();
    }
    layout()->activate();
}

void PlayerPanel::KeepOnScreen()
{
    if (!isWindow())
        return;
    SettleLayout();
    QRect const frame = frameGeometry();
    QScreen const *screen = QGuiApplication::screenAt(frame.center());
    if (!screen)
        screen = QGuiApplication::screenAt(frame.topLeft());
    QRect const room = (screen ? screen : m_mainWindow->screen())->availableGeometry();
    QSize const decoration = frame.size() - size();
    setMinimumSize(minimumSize().boundedTo(room.size() - decoration));
    resize(size().boundedTo(room.size() - decoration));
    QSize const whole = size() + decoration;
    move(std::clamp(frame.x(), room.x(), std::max(room.x(), room.x() + room.width() - whole.width())),
         std::clamp(frame.y(), room.y(), std::max(room.y(), room.y() + room.height() - whole.height())));
}

void PlayerPanel::CheckActionMenu(QString const &name, bool checked)
{
    auto const menus = m_mainWindow->menuBar()->findChildren<QMenu *>();
    for (QMenu const *menu : menus) {
        auto const actions = menu->actions();
        for (QAction *action : actions) {
            if (action->objectName() == name)
                action->setChecked(checked);
        }
    }
}

// A closed panel is only hidden.
void PlayerPanel::closeEvent(QCloseEvent *event)
{
    hide();
    event->ignore();
}

void PlayerPanel::showEvent(QShowEvent *event)
{
    event->accept();
    CheckActionMenu(m_actionName, true);
    if (!event->spontaneous())
        KeepOnScreen();
}

void PlayerPanel::hideEvent(QHideEvent *event)
{
    event->accept();
    CheckActionMenu(m_actionName, false);
}
