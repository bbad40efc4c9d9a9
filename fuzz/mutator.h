// Makes new inputs from known ones by changing their bytes, and the words, numbers and lines of text formats. The same
// seed makes the same inputs.
#pragma once

#include <cstdint>
#include <random>
#include <string>
#include <utility>
#include <vector>

class Mutator
{
public:
    // With words of the format.
    Mutator(std::uint32_t seed, std::vector<std::string> words);
    // One of the pool, changed once or a few times. The pool is not empty.
    std::string Mutate(std::vector<std::string> const &pool);

private:
    using Place = std::pair<std::size_t, std::size_t>; // where it begins, and its length

    std::size_t Below(std::size_t limit);
    Place FindWord(std::string const &text, bool number);
    void Change(std::string &input, std::vector<std::string> const &pool);
    void ChangeBytes(std::string &input, std::vector<std::string> const &pool, std::size_t kind);
    void ChangeText(std::string &input, std::size_t kind);
    void MoveLine(std::string &input);

    std::minstd_rand m_random;
    std::vector<std::string> const m_words;
};
