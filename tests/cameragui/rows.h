// What a tree shows, as text.
#pragma once

#include <QAbstractItemModel>

#include <string>

// Rows as text, what a row holds in brackets.
inline std::string Rows(QAbstractItemModel const &model, QModelIndex const &parent = {})
{
    std::string text;
    for (int row = 0; row < model.rowCount(parent); ++row) {
        QModelIndex const index = model.index(row, 0, parent);
        text += (row ? " " : "") + index.data().toString().toStdString();
        if (model.hasChildren(index))
            text += "[" + Rows(model, index) + "]";
    }
    return text;
}
