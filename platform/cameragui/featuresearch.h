// The words that the user searches for, and the texts of features to be searched. GUI thread only.
#pragma once

#include "tovcameragui.h"

#include <QString>
#include <QStringList>

#include <vector>

namespace TovGui {

class FeatureSearch
{
public:
    // By index. They outlive the next call.
    void SetFeatures(std::vector<TovCam::FeatureInfo const *> features);
    // False where they are the same words as before.
    bool SetText(QString const &text);
    bool IsEmpty() const; // no words: everything matches
    // Whether the feature holds each of the words in name, display name or description, or in its names alone.
    bool Matches(std::uint32_t feature) const;
    bool NameMatches(std::uint32_t feature) const;

private:
    void MakeHaystacks();

    std::vector<TovCam::FeatureInfo const *> m_features;
    std::vector<QString> m_haystacks; // folded text of each feature, made at the first search
    std::vector<int> m_nameLengths;   // how many of its characters are names
    QStringList m_words;              // folded
};

} // namespace TovGui
