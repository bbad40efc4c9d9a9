#include "mutator.h"

#include <algorithm>
#include <iterator>

namespace {

constexpr char const *Numbers[] = {"0",
                                   "-1",
                                   "1",
                                   "255",
                                   "65536",
                                   "2147483647",
                                   "4294967295",
                                   "-2147483648",
                                   "9223372036854775807",
                                   "-9223372036854775808",
                                   "99999999999999999999",
                                   "0x7fffffffffffffff",
                                   "1e308",
                                   "nan",
                                   "0.5"};

constexpr std::size_t ByteKinds = 6, TextKinds = 5;

} // namespace

Mutator::Mutator(std::uint32_t seed, std::vector<std::string> words) : m_random(seed), m_words(std::move(words))
{
}

std::string Mutator::Mutate(std::vector<std::string> const &pool)
{
    std::string input = pool[Below(pool.size())];
    for (std::size_t times = 1 + Below(6); times > 0; --times)
        Change(input, pool);
    return input;
}

std::size_t Mutator::Below(std::size_t limit)
{
    return limit == 0 ? 0 : m_random() % limit;
}

// A run of letters, digits and the like, or of digits alone.
Mutator::Place Mutator::FindWord(std::string const &text, bool number)
{
    auto const belongs = [number](char c) {
        return (c >= '0' && c <= '9') || (!number && (c == '_' || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z')));
    };
    std::size_t begin = Below(text.size() + 1);
    while (begin < text.size() && !belongs(text[begin]))
        ++begin;
    while (begin > 0 && begin < text.size() && belongs(text[begin - 1]))
        --begin;
    std::size_t end = begin;
    while (end < text.size() && belongs(text[end]))
        ++end;
    return {begin, end - begin};
}

void Mutator::Change(std::string &input, std::vector<std::string> const &pool)
{
    std::size_t const kind = Below(ByteKinds + TextKinds);
    if (kind < ByteKinds)
        ChangeBytes(input, pool, kind);
    else
        ChangeText(input, kind - ByteKinds);
}

void Mutator::ChangeBytes(std::string &input, std::vector<std::string> const &pool, std::size_t kind)
{
    std::size_t const at = Below(input.size() + 1);
    std::size_t const length = Below(std::min<std::size_t>(input.size() - at, 1u << Below(9)) + 1);
    switch (kind) {
    case 0:
        if (at < input.size())
            input[at] = static_cast<char>(input[at] ^ (1 << Below(8)));
        break;
    case 1:
        input.insert(at, 1 + Below(4), static_cast<char>(Below(256)));
        break;
    case 2:
        input.erase(at, length);
        break;
    case 3: {
        std::string const part = input.substr(at, length);
        input.insert(Below(input.size() + 1), part);
        break;
    }
    case 4: {
        std::string const &other = pool[Below(pool.size())];
        std::size_t const from = Below(other.size() + 1);
        input.insert(at, other.substr(from, Below(300)));
        break;
    }
    default: // an input that ends early says little, so few of them
        if (Below(20) == 0)
            input.resize(at);
        break;
    }
}

void Mutator::ChangeText(std::string &input, std::size_t kind)
{
    std::string word;
    switch (kind) {
    case 0: {
        auto const [begin, size] = FindWord(input, true);
        input.replace(begin, size, Numbers[Below(std::size(Numbers))]);
        return;
    }
    case 1: // a name replaces another one
    case 2: {
        auto const [from, fromSize] = FindWord(input, false);
        word = input.substr(from, fromSize);
        break;
    }
    case 3:
        if (m_words.empty())
            return;
        word = m_words[Below(m_words.size())];
        break;
    default:
        MoveLine(input);
        return;
    }
    auto const [begin, size] = FindWord(input, false);
    input.replace(begin, size, word);
}

// To another place, or to a second one.
void Mutator::MoveLine(std::string &input)
{
    std::size_t const at = Below(input.size() + 1);
    std::size_t const begin = input.rfind('\n', at) + 1;
    std::size_t const end = std::min(input.find('\n', at), input.size() - 1) + 1;
    if (begin >= end || end > input.size())
        return;
    std::string const line = input.substr(begin, end - begin);
    if (Below(2))
        input.erase(begin, end - begin);
    std::size_t const place = input.find('\n', Below(input.size() + 1));
    input.insert(place == std::string::npos ? input.size() : place + 1, line);
}
