// What stands beside the frames of a recording.
#pragma once

#include "seriesfiles.h"

#include <QDir>
#include <QFile>

#include <gtest/gtest.h>

#include <vector>

using SeriesFiles::Row;

// The only folder beside the frames, with its name in front: "/f/image_1.series/image_1".
inline QString Companions(QString const &folder)
{
    QFileInfoList const folders = QDir(folder).entryInfoList({QStringLiteral("*.series")}, QDir::Dirs);
    return folders.size() == 1 ? folders[0].filePath() + QLatin1Char('/') + folders[0].completeBaseName() : QString();
}

inline std::vector<Row> RowsOf(QString const &companions)
{
    QFile table(companions + QStringLiteral(".frames.csv"));
    std::vector<Row> rows;
    EXPECT_TRUE(table.open(QIODevice::ReadOnly) && SeriesFiles::IsTableHead(table.readLine().chopped(1).toStdString()));
    while (!table.atEnd())
        EXPECT_TRUE(SeriesFiles::Decode(table.readLine().chopped(1).toStdString(), rows.emplace_back()));
    return rows;
}
