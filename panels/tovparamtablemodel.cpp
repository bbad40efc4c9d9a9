#include "tovparamtablemodel.h"

#include "tovmisc.h"

#include <QClipboard>
#include <QGuiApplication>

TovParamTableModel::TovParamTableModel(QObject *parent) : QAbstractTableModel(parent)
{
}

void TovParamTableModel::initFormats()
{
    for (char const *key : {"FpsAvg", "FpsInst", "Speed"})
        m_formats.insert(QString::fromLatin1(key), QStringLiteral("%.2f"));
}

void TovParamTableModel::AddParam(TableParam const &param)
{
    beginInsertRows(QModelIndex(), m_params.size(), m_params.size());
    m_params.append(param);
    endInsertRows();
}

int TovParamTableModel::rowCount(QModelIndex const & /*parent*/) const
{
    return m_params.size();
}

int TovParamTableModel::columnCount(QModelIndex const & /*parent*/) const
{
    return 2;
}

QVariant TovParamTableModel::data(QModelIndex const &index, int role) const
{
    if (!index.isValid() || role != Qt::DisplayRole || index.row() >= m_params.size())
        return {};
    TableParam const &param = m_params[index.row()];
    return index.column() == 0 ? param.label : GetParamString(param.component, param.key);
}

QVariant TovParamTableModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (role != Qt::DisplayRole || orientation != Qt::Horizontal)
        return {};
    switch (section) {
    case 0:
        return tr("Parameter");
    case 1:
        return tr("Value");
    default:
        return QAbstractTableModel::headerData(section, orientation, role);
    }
}

QString TovParamTableModel::GetParamString(TovComponent *component, QString const &key) const
{
    char text[256] = "n/a";
    unsigned int size = sizeof text;
    QByteArray const format = m_formats.value(key).toUtf8();
    if (component)
        component->GetParamAsString(key.toUtf8().constData(), text, &size,
                                    format.isEmpty() ? nullptr : format.constData());
    return QString::fromUtf8(text);
}

QString TovParamTableModel::RowText(TableParam const &param) const
{
    return param.label + QLatin1Char('\t') + GetParamString(param.component, param.key);
}

void TovParamTableModel::CopyField(QModelIndex const &index) const
{
    int row = index.row();
    if (row > m_params.size()) // a row just past the end stays, and copies an empty record
        row = 0;
    TableParam const param = m_params.value(row, {nullptr, QString(), QString()});
    QGuiApplication::clipboard()->setText(RowText(param), QClipboard::Clipboard);
}

void TovParamTableModel::CopyTable() const
{
    QString text;
    for (TableParam const &param : m_params)
        text += RowText(param) + QLatin1Char('\n');
    QGuiApplication::clipboard()->setText(text, QClipboard::Clipboard);
}
