// A table of named parameters of components: a label and the value, which is read whenever a view asks. Rows are added
// by PlayerPanel::AddTableParam. GUI thread only.
#pragma once

#include <QAbstractTableModel>
#include <QList>
#include <QMap>
#include <QString>

class TovComponent;

class TovParamTableModel : public QAbstractTableModel
{
    Q_OBJECT
public:
    struct TableParam
    {
        TovComponent *component; // outlives the model
        QString key;
        QString label;
    };

    explicit TovParamTableModel(QObject *parent = nullptr);

    // Sets the printf formats of the keys that have one; the others have the parameter's own text.
    void initFormats();
    void AddParam(TableParam const &param); // a row at the end

    // The number of rows, whatever the parent.
    int rowCount(QModelIndex const &parent = {}) const override;
    int columnCount(QModelIndex const &parent = {}) const override;
    QVariant data(QModelIndex const &index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;

    // The value as text, "n/a" when the component does not give it.
    QString GetParamString(TovComponent *component, QString const &key) const;
    // To the clipboard: label, tab and the value at this moment. The second one copies every row, each with a line
    // feed.
    void CopyField(QModelIndex const &index) const;
    void CopyTable() const;

private:
    QString RowText(TableParam const &param) const;

    QList<TableParam> m_params;
    QMap<QString, QString> m_formats; // by key
};
