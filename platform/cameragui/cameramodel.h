// Tree of interfaces with their cameras. GUI thread only.
#pragma once

#include "cameralist.h"

#include <QAbstractItemModel>

namespace TovGui {

class TOV_CAMERAGUI_API CameraModel : public QAbstractItemModel
{
    Q_OBJECT
public:
    enum Column { ColumnModel, ColumnVendor, ColumnSerial, ColumnUserID, ColumnAddress, ColumnStatus, ColumnCount };

    explicit CameraModel(QObject *parent = nullptr);
    ~CameraModel() override;

    // Takes over a new listing row by row: what stayed keeps its index, so that views keep selection and expansion.
    void SetList(CameraList const &list);
    // Null for an interface's row or an invalid index.
    CameraEntry const *CameraAt(QModelIndex const &index) const;
    QModelIndex IndexOf(TovCam::DeviceInfo *info) const; // first column; invalid when it is not listed
    // One that can be opened or, where there is none, be brought into reach; invalid where there is neither.
    QModelIndex FirstFree() const;
    std::vector<CameraEntry> Cameras() const;
    int CameraCount() const;

    QModelIndex index(int row, int column, QModelIndex const &parent = {}) const override;
    QModelIndex parent(QModelIndex const &index) const override;
    int rowCount(QModelIndex const &parent = {}) const override;
    int columnCount(QModelIndex const &parent = {}) const override;
    QVariant data(QModelIndex const &index, int role) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;
    Qt::ItemFlags flags(QModelIndex const &index) const override;

private:
    using Groups = std::vector<std::unique_ptr<InterfaceEntry>>;

    template<class Rows, class Target, class Make, class Update>
    void Sync(QModelIndex const &parent, Rows &rows, Target const &target, Make make, Update update);
    QModelIndex FirstWhere(bool (CameraEntry::*is)() const) const;
    int GroupRow(InterfaceEntry const *group) const;
    QVariant GroupData(InterfaceEntry const &group, int column, int role) const;
    QVariant CameraData(CameraEntry const &camera, int column, int role) const;

    Groups m_groups; // by pointer: a camera's index holds its group's address
};

} // namespace TovGui
