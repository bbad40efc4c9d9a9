#include "featuremodel.h"

#include "featurerowtext.h"
#include "featurescale.h"
#include "featurewords.h"

#include "tovplaintext.h"

#include <QApplication>
#include <QColor>
#include <QFont>
#include <QPalette>

#include <algorithm>

using namespace TovCam;

namespace TovGui {

namespace {

constexpr auto FailureShown = std::chrono::seconds(20); // after a write; later reads clear it

bool SameValue(FeatureValue const &a, FeatureValue const &b)
{
    return a.integer == b.integer && a.real == b.real && a.text == b.text;
}

bool SameRefused(std::vector<RefusedSetting> const &a, std::vector<RefusedSetting> const &b)
{
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](RefusedSetting const &x, RefusedSetting const &y) {
        return x.selectors == y.selectors && x.wanted == y.wanted && x.status == y.status;
    });
}

bool SameState(FeatureState const &a, FeatureState const &b)
{
    return a.access == b.access && a.valueStatus == b.valueStatus && SameValue(a.value, b.value) &&
           a.minimum == b.minimum && a.maximum == b.maximum && a.increment == b.increment &&
           a.realMinimum == b.realMinimum && a.realMaximum == b.realMaximum && a.realIncrement == b.realIncrement &&
           a.length == b.length && a.available == b.available && a.streamLocked == b.streamLocked &&
           SameRefused(a.refused, b.refused);
}

QString Encoded(std::string const &name)
{
    return QString::fromLatin1(QByteArray::fromStdString(name).toPercentEncoding());
}

} // namespace

FeatureModel::FeatureModel(QObject *parent) : QAbstractItemModel(parent)
{
}

FeatureModel::~FeatureModel() = default;

QColor FeatureModel::Grey()
{
    QPalette const palette = QApplication::palette();
    QColor const &text = palette.color(QPalette::Active, QPalette::Text);
    QColor const &base = palette.color(QPalette::Active, QPalette::Base);
    auto const mix = [](int a, int b) {
        return (a * 55 + b * 45) / 100;
    };
    return QColor(mix(text.red(), base.red()), mix(text.green(), base.green()), mix(text.blue(), base.blue()));
}

void FeatureModel::SetFeatures(std::vector<FeatureInfo const *> const &features)
{
    beginResetModel();
    m_search.SetFeatures(features);
    m_features.assign(features.size(), {});
    m_nodes.clear();
    m_places.assign(features.size(), {});
    for (std::size_t i = 0; i < features.size(); ++i)
        m_features[i].info = features[i];
    if (!features.empty()) {
        m_nodes.reserve(features.size() + 16);
        m_nodes.push_back({0, 0, 0, {}, {}});
        std::vector<bool> ancestors(features.size(), false);
        AddChildren(0, ancestors);
        Filter(0, false);
    }
    endResetModel();
}

// A description may put a category into several others, or even into itself.
void FeatureModel::AddChildren(int node, std::vector<bool> &ancestors)
{
    std::uint32_t const feature = m_nodes[std::size_t(node)].feature;
    ancestors[feature] = true;
    for (std::uint32_t const child : m_features[feature].info->children) {
        if (child >= m_features.size() || ancestors[child] || m_nodes.size() > 4 * m_features.size())
            continue;
        int const place = int(m_nodes.size());
        m_nodes.push_back({child, node, -1, {}, {}});
        m_nodes[std::size_t(node)].children.push_back(place);
        m_places[child].push_back(place);
        if (m_features[child].info->kind == FeatureKind::Category)
            AddChildren(place, ancestors);
    }
    ancestors[feature] = false;
}

void FeatureModel::SetFilter(QString const &text, Visibility level)
{
    bool const sameWords = !m_search.SetText(text);
    if (sameWords && level == m_level)
        return;
    m_level = level;
    if (m_nodes.empty())
        return;
    emit layoutAboutToBeChanged();
    std::vector<int> places;
    QModelIndexList const before = persistentIndexList();
    for (QModelIndex const &index : before)
        places.push_back(NodeOf(index));
    for (Node &node : m_nodes)
        node.row = -1;
    m_nodes[0].row = 0;
    Filter(0, false);
    QModelIndexList after;
    for (int i = 0; i < before.size(); ++i)
        after << IndexOf(places[std::size_t(i)], before[i].column());
    changePersistentIndexList(before, after);
    emit layoutChanged();
}

// Whether anything under the node is shown; `all`: a category above matches the search.
bool FeatureModel::Filter(int place, bool all)
{
    Node &node = m_nodes[std::size_t(place)];
    node.shown.clear();
    for (int const child : node.children) {
        std::uint32_t const feature = m_nodes[std::size_t(child)].feature;
        FeatureInfo const &info = *m_features[feature].info;
        bool shown = int(info.visibility) <= int(m_level);
        if (shown && info.kind == FeatureKind::Category)
            shown = Filter(child, all || (IsSearching() && m_search.NameMatches(feature)));
        else if (shown)
            shown = all || m_search.Matches(feature);
        if (shown) {
            m_nodes[std::size_t(child)].row = int(node.shown.size());
            node.shown.push_back(child);
        }
    }
    return !node.shown.empty();
}

// As Filter, without showing it.
void FeatureModel::Collect(int place, bool all, Visibility level, std::vector<bool> &found) const
{
    for (int const child : m_nodes[std::size_t(place)].children) {
        std::uint32_t const feature = m_nodes[std::size_t(child)].feature;
        FeatureInfo const &info = *m_features[feature].info;
        if (int(info.visibility) > int(level))
            continue;
        if (info.kind == FeatureKind::Category)
            Collect(child, all || (IsSearching() && m_search.NameMatches(feature)), level, found);
        else if (all || m_search.Matches(feature))
            found[feature] = true;
    }
}

std::optional<FeatureModel::Found> FeatureModel::FoundAbove() const
{
    for (int level = m_level + 1; level <= Guru && !m_nodes.empty(); ++level) {
        std::vector<bool> found(m_features.size());
        Collect(0, false, Visibility(level), found);
        if (auto const count = std::count(found.begin(), found.end(), true))
            return Found{Visibility(level), int(count)};
    }
    return std::nullopt;
}

bool FeatureModel::IsSearching() const
{
    return !m_search.IsEmpty();
}

std::uint32_t FeatureModel::FeatureCount() const
{
    return std::uint32_t(m_features.size());
}

FeatureRow const *FeatureModel::Feature(std::uint32_t feature) const
{
    return feature < m_features.size() ? &m_features[feature] : nullptr;
}

int FeatureModel::NodeOf(QModelIndex const &index) const
{
    return index.isValid() ? int(index.internalId()) : 0;
}

QModelIndex FeatureModel::IndexOf(int place, int column) const
{
    int const row = m_nodes[std::size_t(place)].row;
    return place == 0 || row < 0 ? QModelIndex() : createIndex(row, column, quintptr(place));
}

std::uint32_t FeatureModel::FeatureOf(QModelIndex const &index) const
{
    return index.isValid() ? m_nodes[std::size_t(NodeOf(index))].feature : NoFeature;
}

FeatureRow const *FeatureModel::RowOf(QModelIndex const &index) const
{
    return index.isValid() ? &m_features[FeatureOf(index)] : nullptr;
}

bool FeatureModel::IsCategory(QModelIndex const &index) const
{
    FeatureRow const *row = RowOf(index);
    return row && row->info->kind == FeatureKind::Category;
}

QString FeatureModel::PathOf(QModelIndex const &index) const
{
    QString path;
    for (QModelIndex at = index; at.isValid(); at = at.parent()) {
        QString const name = Encoded(RowOf(at)->info->name);
        path = path.isEmpty() ? name : name + QLatin1Char('/') + path;
    }
    return path;
}

QModelIndex FeatureModel::IndexOf(QString const &path) const
{
    if (m_nodes.empty())
        return {};
    int place = 0;
    for (QString const &name : path.split(QLatin1Char('/'))) {
        std::vector<int> const &shown = m_nodes[std::size_t(place)].shown;
        auto const found = std::find_if(shown.begin(), shown.end(), [&](int child) {
            return Encoded(m_features[m_nodes[std::size_t(child)].feature].info->name) == name;
        });
        if (found == shown.end())
            return {};
        place = *found;
    }
    return IndexOf(place, 0);
}

QModelIndexList FeatureModel::Categories() const
{
    QModelIndexList list;
    for (std::size_t place = 1; place < m_nodes.size(); ++place) {
        if (m_features[m_nodes[place].feature].info->kind == FeatureKind::Category) {
            if (QModelIndex const index = IndexOf(int(place), 0); index.isValid())
                list << index;
        }
    }
    return list;
}

void FeatureModel::Changed(std::uint32_t feature)
{
    for (int const place : m_places[feature]) {
        if (QModelIndex const index = IndexOf(place, 0); index.isValid())
            emit dataChanged(index, index.siblingAtColumn(ColumnValue));
    }
}

void FeatureModel::ApplyRead(std::uint32_t feature, std::int32_t status, FeatureState const &state)
{
    if (feature >= m_features.size())
        return;
    FeatureRow &row = m_features[feature];
    auto const now = FeatureRow::Clock::now();
    row.read = now;
    row.stale = false;
    row.since = {};
    bool changed = row.slow || !row.known;
    row.slow = false;
    std::int32_t const failed = status ? status : state.valueStatus;
    if (!row.writeFailed || now - row.acted > FailureShown) {
        QString const failure = failed ? FeatureWords::Status(failed) : QString();
        changed = changed || failure != row.failure;
        row.failure = failure;
        row.writeFailed = false;
    }
    changed = changed || row.lost != (failed != 0);
    row.lost = failed != 0;
    if (status == 0 && !SameState(state, row.state)) {
        FeatureValue const before = row.state.value;
        row.state = state;
        if (state.valueStatus) // the last known value stays
            row.state.value = before;
        changed = true;
    }
    row.known = row.known || status == 0;
    if (changed)
        Changed(feature);
}

QString FeatureModel::ApplyWritten(std::uint32_t feature, std::uint64_t ticket, std::int32_t status)
{
    if (feature >= m_features.size())
        return {};
    FeatureRow &row = m_features[feature];
    bool const newest = row.ticket == ticket;
    if (newest)
        row.ticket = 0;
    row.writeFailed = status != 0;
    row.failure = status ? FeatureWords::Status(status) : QString();
    row.acted = FeatureRow::Clock::now();
    bool const command = row.info->kind == FeatureKind::Command;
    if (command)
        row.run = status ? FeatureRow::Run::Idle : FeatureRow::Run::Running;
    else if (status == 0 && newest)
        row.state.value = row.wanted; // until it has been read again
    row.slow = false;
    row.since = {};
    row.stale = true;
    if (status == 0) {
        for (std::uint32_t const dependent : row.info->dependents) {
            if (dependent < m_features.size())
                m_features[dependent].stale = true;
        }
    }
    Changed(feature);
    return row.failure;
}

void FeatureModel::ApplyAsked(std::uint32_t feature, std::int32_t status, bool done)
{
    if (feature >= m_features.size() || m_features[feature].run != FeatureRow::Run::Running)
        return;
    FeatureRow &row = m_features[feature];
    row.acted = FeatureRow::Clock::now();
    if (status == 0 && !done)
        return;
    row.run = status ? FeatureRow::Run::Idle : FeatureRow::Run::Done;
    row.writeFailed = status != 0;
    row.failure = status ? FeatureWords::Status(status) : QString();
    for (std::uint32_t const dependent : row.info->dependents) { // its effects may only be there now
        if (dependent < m_features.size())
            m_features[dependent].stale = true;
    }
    Changed(feature);
}

void FeatureModel::SetWriting(std::uint32_t feature, std::uint64_t ticket, FeatureValue const &value)
{
    FeatureRow &row = m_features[feature];
    row.ticket = ticket;
    row.wanted = value;
    row.failure.clear();
    row.writeFailed = false;
    row.since = FeatureRow::Clock::now();
    row.run = FeatureRow::Run::Idle;
    Changed(feature);
}

void FeatureModel::SetAwaited(std::uint32_t feature, bool slow)
{
    FeatureRow &row = m_features[feature];
    if (row.since == FeatureRow::Clock::time_point())
        row.since = FeatureRow::Clock::now();
    if (row.slow == slow)
        return;
    row.slow = slow;
    Changed(feature);
}

void FeatureModel::SetNotAwaited(std::uint32_t feature)
{
    FeatureRow &row = m_features[feature];
    row.since = {};
    if (std::exchange(row.slow, false))
        Changed(feature);
}

void FeatureModel::SetAsked(std::uint32_t feature)
{
    m_features[feature].acted = FeatureRow::Clock::now();
}

void FeatureModel::EndDone(std::uint32_t feature)
{
    m_features[feature].run = FeatureRow::Run::Idle;
    Changed(feature);
}

QModelIndex FeatureModel::index(int row, int column, QModelIndex const &parent) const
{
    if (row < 0 || column < 0 || column >= ColumnCount || row >= rowCount(parent))
        return {};
    return createIndex(row, column, quintptr(m_nodes[std::size_t(NodeOf(parent))].shown[std::size_t(row)]));
}

QModelIndex FeatureModel::parent(QModelIndex const &index) const
{
    if (!index.isValid())
        return {};
    int const place = m_nodes[std::size_t(NodeOf(index))].parent;
    return place == 0 ? QModelIndex() : createIndex(m_nodes[std::size_t(place)].row, 0, quintptr(place));
}

int FeatureModel::rowCount(QModelIndex const &parent) const
{
    if (m_nodes.empty() || parent.column() > 0)
        return 0;
    return int(m_nodes[std::size_t(NodeOf(parent))].shown.size());
}

int FeatureModel::columnCount(QModelIndex const &) const
{
    return ColumnCount;
}

FeatureModel::Mark FeatureModel::MarkOf(QModelIndex const &index) const
{
    FeatureRow const *row = RowOf(index);
    if (!row || row->info->kind == FeatureKind::Category)
        return Mark::None;
    if (row->slow || row->run == FeatureRow::Run::Running)
        return Mark::Waiting;
    if (!row->failure.isEmpty() || !row->state.refused.empty())
        return Mark::Warning;
    return row->known && !row->IsWritable() ? Mark::Locked : Mark::None;
}

QString FeatureModel::Summary(QModelIndex const &index) const
{
    FeatureRow const *row = RowOf(index);
    return row ? FeatureRowText::Summary(*row) : QString();
}

QVariant FeatureModel::ValueData(FeatureRow const &row, int role) const
{
    bool const check = FeatureScale::EditingOf(*row.info, row.state) == FeatureEditing::Check;
    switch (role) {
    case Qt::DisplayRole:
        return FeatureRowText::Value(row);
    case Qt::EditRole:
        return QVariant::fromValue(row.Shown());
    case Qt::CheckStateRole:
        if (check && row.HasValue())
            return row.Shown().integer ? Qt::Checked : Qt::Unchecked;
        return {};
    case Qt::ForegroundRole:
        return row.IsWritable() && !row.lost ? QVariant() : QVariant(Grey());
    case Qt::FontRole:
        if (row.slow || row.ticket) {
            QFont font = QApplication::font("QTreeView");
            font.setItalic(true);
            return font;
        }
        return {};
    default:
        return {};
    }
}

QVariant FeatureModel::data(QModelIndex const &index, int role) const
{
    FeatureRow const *row = RowOf(index);
    if (!row)
        return {};
    FeatureInfo const &info = *row->info;
    if (role == Qt::ToolTipRole)
        return FeatureRowText::ToolTip(*row);
    if (role == Qt::AccessibleDescriptionRole)
        return Summary(index);
    if (index.column() == ColumnValue)
        return info.kind == FeatureKind::Category ? QVariant() : ValueData(*row, role);
    switch (role) {
    case Qt::DisplayRole:
        return TovPlainLine(QString::fromStdString(info.displayName));
    case Qt::ForegroundRole:
        return row->IsAbsent() ? QVariant(Grey()) : QVariant();
    case Qt::FontRole:
        if (info.kind == FeatureKind::Category) {
            QFont font = QApplication::font("QTreeView");
            font.setBold(true);
            return font;
        }
        return {};
    default:
        return {};
    }
}

// EditRole: a TovCam::FeatureValue. CheckStateRole: as always.
bool FeatureModel::setData(QModelIndex const &index, QVariant const &value, int role)
{
    FeatureRow const *row = RowOf(index);
    if (!row || index.column() != ColumnValue || !row->IsWritable())
        return false;
    FeatureValue wanted;
    if (role == Qt::CheckStateRole)
        wanted.integer = value.toInt() == Qt::Unchecked ? 0 : 1;
    else if (role == Qt::EditRole)
        wanted = value.value<FeatureValue>();
    else
        return false;
    emit writeRequested(FeatureOf(index), wanted, false);
    return true;
}

QVariant FeatureModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole)
        return {};
    return section == ColumnFeature ? tr("Feature") : tr("Value");
}

Qt::ItemFlags FeatureModel::flags(QModelIndex const &index) const
{
    FeatureRow const *row = RowOf(index);
    if (!row)
        return Qt::NoItemFlags;
    Qt::ItemFlags flags = Qt::ItemIsEnabled | Qt::ItemIsSelectable;
    if (row->info->kind == FeatureKind::Category)
        return flags;
    flags |= Qt::ItemNeverHasChildren;
    if (index.column() != ColumnValue)
        return flags;
    FeatureEditing const editing = FeatureScale::EditingOf(*row->info, row->state);
    if (editing == FeatureEditing::Bytes && row->HasValue())
        return flags | Qt::ItemIsEditable; // to be selected and copied
    if (!row->IsWritable() || editing == FeatureEditing::Button)
        return flags;
    return flags | (editing == FeatureEditing::Check ? Qt::ItemIsUserCheckable : Qt::ItemIsEditable);
}

} // namespace TovGui
