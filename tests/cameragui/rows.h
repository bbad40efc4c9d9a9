// What a tree shows, as text.
#pragma once

#include <QAbstractItemModel>
#include <QTextDocument>
#include <QTextDocumentFragment>

#include <string>

// What is read in a tooltip, which Qt takes for HTML or not.
inline std::string Visible(QString const &tip)
{
    return (Qt::mightBeRichText(tip) ? QTextDocumentFragment::fromHtml(tip).toPlainText() : tip).toStdString();
}

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
