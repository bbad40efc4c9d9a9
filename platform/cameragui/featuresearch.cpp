#include "featuresearch.h"

#include <algorithm>

using TovCam::FeatureInfo;

namespace TovGui {

void FeatureSearch::SetFeatures(std::vector<FeatureInfo const *> features)
{
    m_features = std::move(features);
    m_haystacks.clear();
    MakeHaystacks();
}

bool FeatureSearch::SetText(QString const &text)
{
    QStringList const words = text.toCaseFolded().split(QLatin1Char(' '), Qt::SkipEmptyParts);
    if (words == m_words)
        return false;
    m_words = words;
    MakeHaystacks();
    return true;
}

bool FeatureSearch::IsEmpty() const
{
    return m_words.isEmpty();
}

// What a search looks through, once there is something to search for.
void FeatureSearch::MakeHaystacks()
{
    if (m_words.isEmpty() || !m_haystacks.empty())
        return;
    m_haystacks.resize(m_features.size());
    m_nameLengths.resize(m_features.size());
    for (std::size_t i = 0; i < m_features.size(); ++i) {
        FeatureInfo const &info = *m_features[i];
        QString const names = QString::fromStdString(info.name + '\n' + info.displayName).toCaseFolded();
        m_nameLengths[i] = names.size();
        m_haystacks[i] =
            names + QLatin1Char('\n') + QString::fromStdString(info.description + '\n' + info.toolTip).toCaseFolded();
    }
}

bool FeatureSearch::Matches(std::uint32_t feature) const
{
    return std::all_of(m_words.begin(), m_words.end(),
                       [&](QString const &word) { return m_haystacks[feature].contains(word); });
}

bool FeatureSearch::NameMatches(std::uint32_t feature) const
{
    QStringView const names = QStringView(m_haystacks[feature]).left(m_nameLengths[feature]);
    return std::all_of(m_words.begin(), m_words.end(), [&](QString const &word) { return names.contains(word); });
}

} // namespace TovGui
