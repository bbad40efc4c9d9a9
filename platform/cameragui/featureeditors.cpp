#include "featureeditors.h"

#include "featurescale.h"

#include "tovplaintip.h"

#include <QAbstractItemView>
#include <QAbstractSpinBox>
#include <QApplication>
#include <QComboBox>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLineEdit>
#include <QSlider>
#include <QTimer>

#include <algorithm>
#include <cmath>
#include <functional>

using namespace TovCam;

namespace TovGui {

namespace {

constexpr int SliderPlaces = 1000;

// Text that would not be taken as it is appears in red.
void ShowAccepted(QWidget *widget, bool accepted)
{
    QPalette palette = widget->parentWidget()->palette();
    if (!accepted)
        palette.setColor(QPalette::Text, Qt::red);
    widget->setPalette(palette);
}

// Unlike QWidget::isAncestorOf, also across the window that a list opens in.
bool IsWithin(QWidget const *widget, QWidget const *ancestor)
{
    while (widget && widget != ancestor)
        widget = widget->parentWidget();
    return widget;
}

// A number of any width, with the camera's steps.
class NumberSpin : public QAbstractSpinBox
{
public:
    NumberSpin(FeatureInfo const &info, FeatureState const &state, QWidget *parent)
        : QAbstractSpinBox(parent),
          m_info(info),
          m_state(state)
    {
        setFrame(false);
    }
    QLineEdit *Line() const
    {
        return lineEdit();
    }
    void Show(FeatureValue const &value)
    {
        QString const number = FeatureText::Value(m_info, value);
        QString const unit = QString::fromStdString(m_info.unit);
        lineEdit()->setText(unit.isEmpty() ? number : number + QLatin1Char(' ') + unit);
        lineEdit()->setSelection(0, number.size());
    }
    void selectNumber()
    {
        QString const text = lineEdit()->text();
        int const unit = m_info.unit.empty() ? 0 : 1 + QString::fromStdString(m_info.unit).size();
        lineEdit()->setSelection(0, std::max(text.size() - unit, 0));
    }
    void stepBy(int steps) override
    {
        ParsedValue const now = FeatureText::Parse(m_info, m_state, lineEdit()->text());
        if (now.accepted)
            Show(FeatureScale::Stepped(m_info, m_state, now.value, steps));
    }
    QValidator::State validate(QString &, int &) const override
    {
        return QValidator::Acceptable; // judged at the end, with a hint
    }

protected:
    StepEnabled stepEnabled() const override
    {
        return StepUpEnabled | StepDownEnabled;
    }
    void focusInEvent(QFocusEvent *event) override
    {
        QAbstractSpinBox::focusInEvent(event);
        selectNumber(); // the base selects the unit as well
    }

private:
    FeatureInfo const &m_info;
    FeatureState const m_state; // when the editor was opened
};

class NumberEditor : public FeatureEditor
{
public:
    NumberEditor(FeatureModel *model, std::uint32_t feature, bool withSlider, QWidget *parent)
        : FeatureEditor(model, feature, parent),
          m_state(Row()->state),
          m_spin(new NumberSpin(*Row()->info, m_state, this))
    {
        m_spin->Show(m_original);
        m_text = m_spin->Line()->text();
        m_spin->setAccessibleName(QString::fromStdString(Row()->info->displayName));
        if (withSlider)
            AddSlider();
        layout()->addWidget(m_spin);
        SetInput(m_spin);
        connect(m_spin->Line(), &QLineEdit::textChanged, this, &NumberEditor::OnText);
    }
    ParsedValue Result() const override
    {
        FeatureRow const *row = Row();
        if (!row || m_spin->Line()->text() == m_text)
            return {};
        return FeatureText::Parse(*row->info, row->state, m_spin->Line()->text());
    }

protected:
    void resizeEvent(QResizeEvent *event) override
    {
        if (m_slider)
            m_slider->setVisible(width() > fontMetrics().averageCharWidth() * 26);
        FeatureEditor::resizeEvent(event);
    }

private:
    void AddSlider()
    {
        FeatureInfo const &info = *Row()->info;
        m_slider = new QSlider(Qt::Horizontal, this);
        m_slider->setObjectName(QStringLiteral("featureSlider"));
        m_slider->setFocusPolicy(Qt::ClickFocus);
        m_slider->setRange(0, Places(info));
        m_slider->setPageStep(std::max(m_slider->maximum() / 10, 1));
        m_slider->setValue(PlaceOf(m_original));
        layout()->addWidget(m_slider);
        static_cast<QHBoxLayout *>(layout())->setStretchFactor(m_slider, 1);
        m_spin->setFixedWidth(fontMetrics().averageCharWidth() * 15);
        Watch(m_slider);
        connect(m_slider, &QSlider::valueChanged, this, &NumberEditor::OnSlider);
    }
    // As many as the camera has values, if those are few.
    int Places(FeatureInfo const &info) const
    {
        bool const linear = info.representation == FeatureRepresentation::Linear;
        double const step = info.kind == FeatureKind::Integer ? double(std::max<std::int64_t>(m_state.increment, 1))
                                                              : m_state.realIncrement;
        double const width = info.kind == FeatureKind::Integer ? double(m_state.maximum) - double(m_state.minimum)
                                                               : m_state.realMaximum - m_state.realMinimum;
        return linear && step > 0.0 && width / step < SliderPlaces ? std::max(int(width / step), 1) : SliderPlaces;
    }
    int PlaceOf(FeatureValue const &value) const
    {
        return int(std::lround(FeatureScale::PositionOf(*Row()->info, m_state, value) * m_slider->maximum()));
    }
    // The camera follows while the slider moves.
    void OnSlider(int place)
    {
        FeatureRow const *row = Row();
        if (!row || m_setting)
            return;
        FeatureValue const value = FeatureScale::ValueAt(*row->info, m_state, double(place) / m_slider->maximum());
        m_setting = true;
        m_spin->Show(value);
        m_setting = false;
        m_text = m_spin->Line()->text();
        WriteLive(value);
    }
    void OnText(QString const &text)
    {
        FeatureRow const *row = Row();
        if (!row || m_setting)
            return;
        ParsedValue const parsed = FeatureText::Parse(*row->info, row->state, text);
        ShowAccepted(m_spin, parsed.accepted && parsed.hint.isEmpty());
        if (m_slider && parsed.accepted) {
            m_setting = true;
            m_slider->setValue(PlaceOf(parsed.value));
            m_setting = false;
        }
    }

    FeatureState const m_state; // when the editor was opened
    NumberSpin *const m_spin;
    QSlider *m_slider = nullptr;
    QString m_text; // as the camera has it
    bool m_setting = false;
};

// Strings, addresses, and the bytes of a register to be copied.
class TextEditor : public FeatureEditor
{
public:
    TextEditor(FeatureModel *model, std::uint32_t feature, bool readOnly, QWidget *parent)
        : FeatureEditor(model, feature, parent),
          m_line(new QLineEdit(this))
    {
        FeatureInfo const &info = *Row()->info;
        m_text = readOnly ? QString::fromLatin1(QByteArray::fromStdString(m_original.text).toHex(' ').toUpper())
                          : FeatureText::Value(info, m_original);
        m_line->setFrame(false);
        m_line->setReadOnly(readOnly);
        m_line->setText(m_text);
        m_line->setAccessibleName(QString::fromStdString(info.displayName));
        m_line->selectAll();
        layout()->addWidget(m_line);
        SetInput(m_line);
        connect(m_line, &QLineEdit::textChanged, this, [this](QString const &text) {
            FeatureRow const *row = Row();
            ShowAccepted(m_line, !row || FeatureText::Parse(*row->info, row->state, text).hint.isEmpty());
        });
    }
    ParsedValue Result() const override
    {
        FeatureRow const *row = Row();
        if (!row || m_line->isReadOnly() || m_line->text() == m_text)
            return {};
        return FeatureText::Parse(*row->info, row->state, m_line->text());
    }

private:
    QLineEdit *const m_line;
    QString m_text; // as the camera has it
};

// Opens its list by itself, and ends when the list closes.
class ChoiceCombo : public QComboBox
{
public:
    using QComboBox::QComboBox;
    std::function<void()> onClosed;

    void hidePopup() override
    {
        QComboBox::hidePopup();
        QTimer::singleShot(0, this, [this] { onClosed(); }); // after `activated`
    }
};

class ChoiceEditor : public FeatureEditor
{
public:
    ChoiceEditor(FeatureModel *model, std::uint32_t feature, QWidget *parent)
        : FeatureEditor(model, feature, parent),
          m_combo(new ChoiceCombo(this))
    {
        FeatureRow const &row = *Row();
        FeatureInfo const &info = *row.info;
        for (std::uint32_t const available : row.state.available) {
            if (available >= info.entries.size())
                continue;
            FeatureEntry const &entry = info.entries[available];
            m_combo->addItem(TovPlainLine(QString::fromStdString(entry.displayName)), available);
            m_combo->setItemData(m_combo->count() - 1, TovPlainTip(QString::fromStdString(entry.toolTip)),
                                 Qt::ToolTipRole);
            if (m_original.text.empty() ? entry.value == m_original.integer : entry.name == m_original.text)
                m_initial = m_combo->count() - 1;
        }
        m_combo->setCurrentIndex(m_initial); // the camera may have one that cannot be chosen
        m_combo->setFrame(false);
        m_combo->setAccessibleName(QString::fromStdString(info.displayName));
        m_combo->onClosed = [this] {
            emit m_chosen ? finished(false) : givenUp();
        };
        layout()->addWidget(m_combo);
        SetInput(m_combo);
        connect(m_combo, QOverload<int>::of(&QComboBox::activated), this, [this] {
            m_chosen = true;
            if (!m_combo->view()->isVisible())
                emit finished(false);
        });
        QTimer::singleShot(0, m_combo, [this] {
            if (m_combo->isVisible())
                m_combo->showPopup();
        });
    }
    ParsedValue Result() const override
    {
        FeatureRow const *row = Row();
        ParsedValue result;
        if (!row || m_combo->currentIndex() < 0 || m_combo->currentIndex() == m_initial)
            return result;
        FeatureEntry const &entry = row->info->entries[m_combo->currentData().toUInt()];
        result.accepted = true;
        result.value.text = entry.name;
        result.value.integer = entry.value;
        return result;
    }

private:
    ChoiceCombo *const m_combo;
    int m_initial = -1;
    bool m_chosen = false;
};

} // namespace

FeatureEditor *FeatureEditor::Make(FeatureModel *model, std::uint32_t feature, QWidget *parent)
{
    FeatureRow const *row = model->Feature(feature);
    if (!row)
        return nullptr;
    switch (FeatureScale::EditingOf(*row->info, row->state)) {
    case FeatureEditing::Spin:
        return new NumberEditor(model, feature, false, parent);
    case FeatureEditing::Slider:
        return new NumberEditor(model, feature, true, parent);
    case FeatureEditing::Text:
        return new TextEditor(model, feature, false, parent);
    case FeatureEditing::Bytes:
        return new TextEditor(model, feature, true, parent);
    case FeatureEditing::Choice:
        return new ChoiceEditor(model, feature, parent);
    default:
        return nullptr;
    }
}

FeatureEditor::FeatureEditor(FeatureModel *model, std::uint32_t feature, QWidget *parent)
    : QWidget(parent),
      m_model(model),
      m_feature(feature),
      m_original(model->Feature(feature)->Shown())
{
    setAutoFillBackground(true);
    auto *const box = new QHBoxLayout(this);
    box->setContentsMargins(0, 0, 0, 0);
    box->setSpacing(4);
}

FeatureRow const *FeatureEditor::Row() const
{
    return m_model->Feature(m_feature);
}

void FeatureEditor::SetInput(QWidget *input)
{
    input->setObjectName(QStringLiteral("featureEditor"));
    input->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Expanding);
    setFocusProxy(input);
    Watch(input);
}

void FeatureEditor::Watch(QWidget *widget)
{
    widget->installEventFilter(this);
}

void FeatureEditor::WriteLive(FeatureValue const &value)
{
    m_live = true;
    emit m_model->writeRequested(m_feature, value, true);
}

void FeatureEditor::GiveUp()
{
    if (m_live && Row())
        emit m_model->writeRequested(m_feature, m_original, false);
}

void FeatureEditor::End()
{
    blockSignals(true);
}

bool FeatureEditor::eventFilter(QObject *watched, QEvent *event)
{
    if (event->type() == QEvent::ShortcutOverride) {
        int const key = static_cast<QKeyEvent *>(event)->key();
        if (key == Qt::Key_Escape || key == Qt::Key_Return || key == Qt::Key_Enter) {
            event->accept(); // no dialog's button takes it
            return true;
        }
    } else if (event->type() == QEvent::KeyPress) {
        switch (static_cast<QKeyEvent *>(event)->key()) {
        case Qt::Key_Escape:
            emit givenUp();
            return true;
        case Qt::Key_Return:
        case Qt::Key_Enter:
            emit finished(true);
            return true;
        case Qt::Key_Tab:
        case Qt::Key_Backtab:
            emit finished(false);
            return true;
        default:
            break;
        }
    } else if (event->type() == QEvent::FocusOut) {
        Qt::FocusReason const reason = static_cast<QFocusEvent *>(event)->reason();
        QWidget const *const next = QApplication::focusWidget();
        // Its own menus and lists, and a passing switch to another window, do not end it.
        if (reason != Qt::PopupFocusReason && reason != Qt::ActiveWindowFocusReason && !IsWithin(next, this))
            emit finished(false);
    }
    return QWidget::eventFilter(watched, event);
}

} // namespace TovGui
