#include "featureviewstate.h"

#include <QStringList>

#include <algorithm>
#include <cstring>

namespace TovGui {

namespace {

constexpr char Header[] = "TovFeatureTree 1";
constexpr std::size_t MostBytes = 1 << 20;
constexpr int MostExpanded = 10000;
constexpr int LongestSearch = 200;
constexpr char const *Levels[] = {"Beginner", "Expert", "Guru"};

} // namespace

QByteArray FeatureViewState::ToText() const
{
    QByteArray text = QByteArray(Header) + '\n';
    text += QByteArray("visibility ") + Levels[visibility] + '\n';
    if (!search.isEmpty())
        text += "search " + search.toUtf8().toPercentEncoding() + '\n';
    if (column > 0)
        text += "column " + QByteArray::number(column) + '\n';
    QStringList paths = expanded.values();
    paths.sort();
    for (QString const &path : qAsConst(paths))
        text += "expanded " + path.toLatin1() + '\n'; // the names in it are percent-encoded
    if (!selected.isEmpty())
        text += "selected " + selected.toLatin1() + '\n';
    return text;
}

bool FeatureViewState::FromText(char const *text)
{
    std::size_t const length = text ? ::strnlen(text, MostBytes + 1) : 0;
    if (length == 0 || length > MostBytes)
        return false;
    QList<QByteArray> const lines = QByteArray(text, int(length)).split('\n');
    if (lines.front() != Header)
        return false;
    FeatureViewState state;
    for (QByteArray const &line : lines) {
        int const blank = line.indexOf(' ');
        QByteArray const word = line.left(blank);
        QByteArray const argument = line.mid(blank + 1);
        if (blank <= 0 || argument.isEmpty())
            continue;
        if (word == "visibility") {
            auto const level = std::find(std::begin(Levels), std::end(Levels), argument);
            if (level != std::end(Levels))
                state.visibility = Visibility(level - Levels);
        } else if (word == "search") {
            state.search = QString::fromUtf8(QByteArray::fromPercentEncoding(argument)).left(LongestSearch);
        } else if (word == "column") {
            state.column = std::clamp(argument.toInt(), 0, 200);
        } else if (word == "expanded" && state.expanded.size() < MostExpanded) {
            state.expanded.insert(QString::fromLatin1(argument));
        } else if (word == "selected") {
            state.selected = QString::fromLatin1(argument);
        }
    }
    *this = state;
    return true;
}

} // namespace TovGui
