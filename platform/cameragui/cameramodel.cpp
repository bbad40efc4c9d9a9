#include "cameramodel.h"

#include "tovplaintip.h"

#include <QApplication>
#include <QFont>
#include <QPalette>

#include <algorithm>

namespace TovGui {

namespace {

void *KeyOf(CameraEntry const &entry)
{
    return entry.info;
}

void *KeyOf(InterfaceEntry const &entry)
{
    return entry.interface;
}

void *KeyOf(std::unique_ptr<InterfaceEntry> const &entry)
{
    return entry->interface;
}

QString StatusText(CameraEntry const &camera)
{
    if (camera.failure.refusal == TovCam::OpenRefusal::NoRight)
        return CameraModel::tr("no right");
    if (camera.place.isForeign)
        return CameraModel::tr("wrong subnet");
    switch (camera.access) {
    case TovCam::DeviceInfo::AccessFree:
        return CameraModel::tr("free");
    case TovCam::DeviceInfo::AccessBusy:
        return CameraModel::tr("busy");
    default:
        return CameraModel::tr("unknown");
    }
}

QString CameraToolTip(CameraEntry const &camera)
{
    QString text = camera.name;
    if (!camera.address.isEmpty())
        text += CameraModel::tr("\nAddress: %1").arg(camera.address);
    if (camera.IsBusy() && camera.failure.refusal != TovCam::OpenRefusal::InUse)
        text += CameraModel::tr("\nBusy: this or another program has it open");
    else if (QString const trouble = camera.Trouble(); !trouble.isEmpty())
        text += QLatin1Char('\n') + trouble;
    else if (camera.access == TovCam::DeviceInfo::AccessFree)
        text += CameraModel::tr("\nFree: double-click to connect");
    return TovPlainTip(text);
}

} // namespace

CameraModel::CameraModel(QObject *parent) : QAbstractItemModel(parent)
{
}

CameraModel::~CameraModel() = default;

// Turns `rows` into `target` by removals, moves and insertions, so that a row that is in both keeps its identity. An
// object listed twice would only add an extra row, which the last step removes.
template<class Rows, class Target, class Make, class Update>
void CameraModel::Sync(QModelIndex const &parent, Rows &rows, Target const &target, Make make, Update update)
{
    auto const remove = [&](int row) {
        beginRemoveRows(parent, row, row);
        rows.erase(rows.begin() + row);
        endRemoveRows();
    };
    for (int row = int(rows.size()) - 1; row >= 0; --row) {
        void *const key = KeyOf(rows[std::size_t(row)]);
        if (std::none_of(target.begin(), target.end(), [&](auto const &entry) { return KeyOf(entry) == key; }))
            remove(row);
    }
    for (int row = 0; row < int(target.size()); ++row) {
        auto const &wanted = target[std::size_t(row)];
        auto const found = std::find_if(rows.begin() + row, rows.end(),
                                        [&](auto const &entry) { return KeyOf(entry) == KeyOf(wanted); });
        if (found == rows.end()) {
            beginInsertRows(parent, row, row);
            rows.insert(rows.begin() + row, make(wanted));
            endInsertRows();
            continue;
        }
        if (int const from = int(found - rows.begin()); from != row) {
            beginMoveRows(parent, from, from, parent, row);
            std::rotate(rows.begin() + row, found, found + 1);
            endMoveRows();
        }
        update(row, wanted);
    }
    while (rows.size() > target.size())
        remove(int(rows.size()) - 1);
}

void CameraModel::SetList(CameraList const &list)
{
    auto const updateGroup = [this](int row, InterfaceEntry const &wanted) {
        InterfaceEntry &group = *m_groups[std::size_t(row)];
        QModelIndex const parent = index(row, 0);
        bool const changed = group.description != wanted.description || group.version != wanted.version ||
                             group.kind != wanted.kind || group.cameras.size() != wanted.cameras.size();
        group.description = wanted.description;
        group.version = wanted.version;
        group.kind = wanted.kind;
        Sync(
            parent, group.cameras, wanted.cameras, [](CameraEntry const &camera) { return camera; },
            [&](int cameraRow, CameraEntry const &camera) {
                CameraEntry &entry = group.cameras[std::size_t(cameraRow)];
                if (entry == camera)
                    return;
                entry = camera;
                emit dataChanged(index(cameraRow, 0, parent), index(cameraRow, ColumnCount - 1, parent));
            });
        if (changed)
            emit dataChanged(parent, parent);
    };
    Sync(
        {}, m_groups, list, [](InterfaceEntry const &group) { return std::make_unique<InterfaceEntry>(group); },
        updateGroup);
}

CameraEntry const *CameraModel::CameraAt(QModelIndex const &index) const
{
    if (!index.isValid() || !index.internalPointer())
        return nullptr;
    auto const *group = static_cast<InterfaceEntry const *>(index.internalPointer());
    return std::size_t(index.row()) < group->cameras.size() ? &group->cameras[std::size_t(index.row())] : nullptr;
}

QModelIndex CameraModel::IndexOf(TovCam::DeviceInfo *info) const
{
    for (auto const &group : m_groups) {
        for (std::size_t i = 0; i < group->cameras.size(); ++i) {
            if (group->cameras[i].info == info)
                return createIndex(int(i), 0, group.get());
        }
    }
    return {};
}

QModelIndex CameraModel::FirstWhere(bool (CameraEntry::*is)() const) const
{
    for (auto const &group : m_groups) {
        for (std::size_t i = 0; i < group->cameras.size(); ++i) {
            if ((group->cameras[i].*is)())
                return createIndex(int(i), 0, group.get());
        }
    }
    return {};
}

QModelIndex CameraModel::FirstFree() const
{
    QModelIndex const free = FirstWhere(&CameraEntry::CanBeOpened);
    return free.isValid() ? free : FirstWhere(&CameraEntry::CanGetAddress);
}

std::vector<CameraEntry> CameraModel::Cameras() const
{
    std::vector<CameraEntry> cameras;
    for (auto const &group : m_groups)
        cameras.insert(cameras.end(), group->cameras.begin(), group->cameras.end());
    return cameras;
}

int CameraModel::CameraCount() const
{
    std::size_t count = 0;
    for (auto const &group : m_groups)
        count += group->cameras.size();
    return int(count);
}

QModelIndex CameraModel::index(int row, int column, QModelIndex const &parent) const
{
    if (row < 0 || column < 0 || column >= ColumnCount || row >= rowCount(parent))
        return {};
    return createIndex(row, column, parent.isValid() ? m_groups[std::size_t(parent.row())].get() : nullptr);
}

int CameraModel::GroupRow(InterfaceEntry const *group) const
{
    auto const found =
        std::find_if(m_groups.begin(), m_groups.end(), [group](auto const &entry) { return entry.get() == group; });
    return found == m_groups.end() ? -1 : int(found - m_groups.begin());
}

QModelIndex CameraModel::parent(QModelIndex const &index) const
{
    if (!index.isValid() || !index.internalPointer())
        return {};
    int const row = GroupRow(static_cast<InterfaceEntry const *>(index.internalPointer()));
    return row < 0 ? QModelIndex() : createIndex(row, 0, nullptr);
}

int CameraModel::rowCount(QModelIndex const &parent) const
{
    if (!parent.isValid())
        return int(m_groups.size());
    if (parent.internalPointer() || parent.column() != 0)
        return 0;
    return int(m_groups[std::size_t(parent.row())]->cameras.size());
}

int CameraModel::columnCount(QModelIndex const &) const
{
    return ColumnCount;
}

QVariant CameraModel::GroupData(InterfaceEntry const &group, int column, int role) const
{
    if (column != 0)
        return {};
    switch (role) {
    case Qt::DisplayRole:
        return group.cameras.empty() ? tr("%1 - no camera").arg(group.description) : group.description;
    case Qt::ToolTipRole:
        return TovPlainTip(group.version.isEmpty() ? group.description
                                                   : tr("%1\nDriver: %2").arg(group.description, group.version));
    case Qt::FontRole: {
        QFont font = QApplication::font();
        font.setBold(true);
        return font;
    }
    default:
        return {};
    }
}

QVariant CameraModel::CameraData(CameraEntry const &camera, int column, int role) const
{
    switch (role) {
    case Qt::DisplayRole:
        switch (column) {
        case ColumnModel:
            return camera.model;
        case ColumnVendor:
            return camera.vendor;
        case ColumnSerial:
            return camera.serial;
        case ColumnUserID:
            return camera.userID;
        case ColumnAddress:
            return camera.address;
        default:
            return StatusText(camera);
        }
    case Qt::ToolTipRole:
        return CameraToolTip(camera);
    case Qt::ForegroundRole:
        return camera.IsBusy() ? QVariant(QApplication::palette().brush(QPalette::Disabled, QPalette::Text))
                               : QVariant();
    default:
        return {};
    }
}

QVariant CameraModel::data(QModelIndex const &index, int role) const
{
    if (!index.isValid())
        return {};
    if (CameraEntry const *camera = CameraAt(index))
        return CameraData(*camera, index.column(), role);
    return GroupData(*m_groups[std::size_t(index.row())], index.column(), role);
}

QVariant CameraModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole)
        return {};
    switch (section) {
    case ColumnModel:
        return tr("Model");
    case ColumnVendor:
        return tr("Vendor");
    case ColumnSerial:
        return tr("Serial number");
    case ColumnUserID:
        return tr("User ID");
    case ColumnAddress:
        return tr("Address");
    case ColumnStatus:
        return tr("Status");
    default:
        return {};
    }
}

Qt::ItemFlags CameraModel::flags(QModelIndex const &index) const
{
    if (!index.isValid())
        return Qt::NoItemFlags;
    return CameraAt(index) ? Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemNeverHasChildren : Qt::ItemIsEnabled;
}

} // namespace TovGui
