// The features of one camera as a tree of categories, and what is known of each: its last state, what waits and what
// failed. The model does its own filtering: three thousand features are filtered in a fraction of a proxy's time. GUI
// thread only.
#pragma once

#include "featurerow.h"
#include "featuresearch.h"

#include <QAbstractItemModel>

#include <optional>
#include <vector>

namespace TovGui {

class TOV_CAMERAGUI_API FeatureModel : public QAbstractItemModel
{
    Q_OBJECT
public:
    enum Column { ColumnFeature, ColumnValue, ColumnCount };
    enum class Mark { None, Locked, Waiting, Warning };
    static constexpr std::uint32_t NoFeature = 0xFFFFFFFFu;

    explicit FeatureModel(QObject *parent = nullptr);
    ~FeatureModel() override;

    // For what cannot be changed; darker than the palette's grey, to stay readable.
    static QColor Grey();

    // By index, the root category first. They stay their owner's, and outlive the model or the next call.
    void SetFeatures(std::vector<TovCam::FeatureInfo const *> const &features);
    // Features of the level and below that hold each word of the text in name, display name or description, and all of
    // a category that holds them in its name. Indexes of what stays remain valid.
    void SetFilter(QString const &text, Visibility level);
    bool IsSearching() const;
    // What the filter would find at a higher level: the lowest one where that is anything.
    struct Found
    {
        Visibility level;
        int features;
    };
    std::optional<Found> FoundAbove() const;

    std::uint32_t FeatureCount() const;
    FeatureRow const *Feature(std::uint32_t feature) const; // null past the last
    std::uint32_t FeatureOf(QModelIndex const &index) const;
    FeatureRow const *RowOf(QModelIndex const &index) const; // null for an invalid index
    bool IsCategory(QModelIndex const &index) const;
    Mark MarkOf(QModelIndex const &index) const;
    QString Summary(QModelIndex const &index) const; // of the row in one line, empty for none

    // Names of the categories down to the row, separated by slashes; a slash in a name is %2F.
    QString PathOf(QModelIndex const &index) const;
    QModelIndex IndexOf(QString const &path) const; // invalid when it is not shown
    // All categories that are shown.
    QModelIndexList Categories() const;

    // What the camera said.
    void ApplyRead(std::uint32_t feature, std::int32_t status, TovCam::FeatureState const &state);
    // The reason when it failed.
    QString ApplyWritten(std::uint32_t feature, std::uint64_t ticket, std::int32_t status);
    void ApplyAsked(std::uint32_t feature, std::int32_t status, bool done);
    void SetWriting(std::uint32_t feature, std::uint64_t ticket, TovCam::FeatureValue const &value);
    void SetAwaited(std::uint32_t feature, bool slow);
    void SetNotAwaited(std::uint32_t feature); // it is no longer asked for
    void SetAsked(std::uint32_t feature);
    void EndDone(std::uint32_t feature); // the tick of a command that has ended goes

    QModelIndex index(int row, int column, QModelIndex const &parent = {}) const override;
    QModelIndex parent(QModelIndex const &index) const override;
    int rowCount(QModelIndex const &parent = {}) const override;
    int columnCount(QModelIndex const &parent = {}) const override;
    QVariant data(QModelIndex const &index, int role) const override;
    bool setData(QModelIndex const &index, QVariant const &value, int role) override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;
    Qt::ItemFlags flags(QModelIndex const &index) const override;

signals:
    // A write was asked for; follow with SetWriting. `live`: of a slider that still moves.
    void writeRequested(std::uint32_t feature, TovCam::FeatureValue const &value, bool live);

private:
    struct Node
    {
        std::uint32_t feature;
        int parent;                // the root's own for the root
        int row;                   // among the shown ones, -1 hidden
        std::vector<int> children; // as described
        std::vector<int> shown;    // of them
    };

    void AddChildren(int node, std::vector<bool> &ancestors);
    bool Filter(int node, bool all);
    void Collect(int node, bool all, Visibility level, std::vector<bool> &found) const;
    QModelIndex IndexOf(int node, int column) const;
    int NodeOf(QModelIndex const &index) const;
    void Changed(std::uint32_t feature);
    QVariant ValueData(FeatureRow const &row, int role) const;

    std::vector<FeatureRow> m_features;
    std::vector<Node> m_nodes;              // the root first; a feature may be in several categories
    std::vector<std::vector<int>> m_places; // nodes of each feature
    FeatureSearch m_search;
    Visibility m_level = Beginner;
};

} // namespace TovGui

Q_DECLARE_METATYPE(TovCam::FeatureValue)
