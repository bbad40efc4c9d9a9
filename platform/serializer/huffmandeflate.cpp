#include "huffmandeflate.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>

static_assert(std::endian::native == std::endian::little, "bits are stored as whole words");

namespace {

constexpr unsigned Literals = HuffmanDeflate::Literals, EndOfBlock = 256;
// Below deflate's 15, so that four codes fit into a word beside the pending bits.
constexpr unsigned LongestCode = 12;
constexpr unsigned LengthCodes = 19, LongestLengthCode = 7;
// Shorter repetitions are not worth leaving the loop over literals.
constexpr std::size_t ShortestRun = 8;
constexpr unsigned LongestMatch = 258, ShortestMatch = 3;

using Code = HuffmanDeflate::Code;

// Lengths of a complete code over the symbols that occur, none longer than `longest`. At least two occur.
void MakeLengths(std::uint32_t const *counts, unsigned symbols, unsigned longest, std::uint8_t *lengths)
{
    struct Node
    {
        std::uint64_t count;
        int parent;
    };
    std::array<std::uint16_t, Literals> order;
    std::array<Node, 2 * Literals> nodes;
    unsigned used = 0;
    for (unsigned s = 0; s < symbols; ++s) {
        lengths[s] = 0;
        if (counts[s])
            order[used++] = std::uint16_t(s);
    }
    std::sort(order.begin(), order.begin() + used,
              [counts](unsigned a, unsigned b) { return counts[a] != counts[b] ? counts[a] < counts[b] : a < b; });
    for (unsigned i = 0; i < used; ++i)
        nodes[i] = {counts[order[i]], 0};
    // The two rarest of leaves and inner nodes, which are both in rising order, again and again.
    unsigned leaf = 0, inner = used, end = used;
    auto const rarest = [&] {
        return leaf < used && (inner == end || nodes[leaf].count <= nodes[inner].count) ? leaf++ : inner++;
    };
    while (end < 2 * used - 1) {
        unsigned const a = rarest(), b = rarest();
        nodes[end] = {nodes[a].count + nodes[b].count, 0};
        nodes[a].parent = nodes[b].parent = int(end++);
    }
    std::array<std::uint8_t, 2 * Literals> depth;
    depth[end - 1] = 0;
    for (int i = int(end) - 2; i >= 0; --i)
        depth[unsigned(i)] = std::uint8_t(std::min(depth[unsigned(nodes[unsigned(i)].parent)] + 1, 255));

    // Each code of length l takes 2^(longest - l) of 2^longest. Cutting the deep ones takes too much: the rarest of the
    // others grow until it fits; then what is left over goes to the most frequent that can use it.
    std::int64_t room = std::int64_t(1) << longest;
    for (unsigned i = 0; i < used; ++i) {
        unsigned const length = std::min<unsigned>(depth[i], longest);
        lengths[order[i]] = std::uint8_t(length);
        room -= std::int64_t(1) << (longest - length);
    }
    for (unsigned i = 0; room < 0; ++i) {
        for (std::uint8_t &length = lengths[order[i]]; length < longest && room < 0;)
            room += std::int64_t(1) << (longest - ++length);
    }
    for (unsigned i = used; room > 0; i = i ? i : used) {
        std::uint8_t &length = lengths[order[--i]];
        if (std::int64_t const gain = std::int64_t(1) << (longest - length); gain <= room) {
            room -= gain;
            --length;
        }
    }
}

// Canonical codes, their bits in the order in which they are sent.
void MakeCodes(std::uint8_t const *lengths, unsigned symbols, Code *codes)
{
    std::array<unsigned, 16> next{};
    for (unsigned s = 0; s < symbols; ++s)
        ++next[lengths[s]];
    next[0] = 0;
    unsigned code = 0;
    for (unsigned l = 1; l < next.size(); ++l) {
        unsigned const count = next[l];
        next[l] = code;
        code = (code + count) << 1;
    }
    for (unsigned s = 0; s < symbols; ++s) {
        unsigned const length = lengths[s];
        unsigned reversed = 0;
        if (length) {
            unsigned const bits = next[length]++;
            for (unsigned b = 0; b < length; ++b)
                reversed |= (bits >> b & 1) << (length - 1 - b);
        }
        codes[s] = {std::uint16_t(reversed), std::uint16_t(length)};
    }
}

struct LengthSymbol
{
    std::uint16_t symbol;
    std::uint8_t extraBits;
    std::uint8_t extra;
};

std::array<LengthSymbol, LongestMatch + 1> MakeLengthSymbols()
{
    std::array<LengthSymbol, LongestMatch + 1> table{};
    unsigned length = ShortestMatch;
    for (unsigned symbol = 257; symbol < 285; ++symbol) {
        unsigned const extraBits = symbol < 265 ? 0 : (symbol - 261) / 4;
        for (unsigned extra = 0; extra < 1u << extraBits && length < LongestMatch; ++extra)
            table[length++] = {std::uint16_t(symbol), std::uint8_t(extraBits), std::uint8_t(extra)};
    }
    table[LongestMatch] = {285, 0, 0};
    return table;
}

std::array<LengthSymbol, LongestMatch + 1> const s_lengthSymbols = MakeLengthSymbols();

// A run as matches; its length is at least a match's.
template<class F>
void ForEachMatch(std::uint32_t length, F &&function)
{
    while (length > 0) {
        unsigned take = std::min<std::uint32_t>(length, LongestMatch);
        if (length - take > 0 && length - take < ShortestMatch)
            take -= ShortestMatch;
        function(s_lengthSymbols[take]);
        length -= take;
    }
}

std::uint64_t Load(std::uint8_t const *at)
{
    std::uint64_t word;
    std::memcpy(&word, at, sizeof word);
    return word;
}

} // namespace

// Bits one after another, the lowest of a byte first.
struct HuffmanDeflate::BitWriter
{
    std::uint8_t *out;
    std::uint64_t bits;
    unsigned count;

    void Put(std::uint64_t value, unsigned bitCount)
    {
        bits |= value << count;
        count += bitCount;
    }
    // Writes the whole bytes; up to seven bits stay pending. Touches eight bytes.
    void Flush()
    {
        std::memcpy(out, &bits, sizeof bits);
        out += count >> 3;
        bits >>= count & ~7u;
        count &= 7;
    }
    void FillByte()
    {
        count = (count + 7) & ~7u;
        Flush();
    }
};

// The lengths of the block's codes, sent one by one: that is little beside a block.
void HuffmanDeflate::WriteHead(std::array<std::uint8_t, Literals + 1> const &lengths, bool last, BitWriter &writer)
{
    std::array<std::uint32_t, LengthCodes> counts{};
    for (std::uint8_t const length : lengths)
        ++counts[length];
    std::array<std::uint8_t, LengthCodes> lengthLengths;
    MakeLengths(counts.data(), LengthCodes, LongestLengthCode, lengthLengths.data());
    std::array<Code, LengthCodes> codes;
    MakeCodes(lengthLengths.data(), LengthCodes, codes.data());
    static constexpr std::uint8_t order[] = {16, 17, 18, 0, 8, 7, 9, 6, 10, 5, 11, 4, 12, 3, 13, 2, 14, 1, 15};
    writer.Put(last ? 1 : 0, 1);
    writer.Put(2, 2); // codes of its own
    writer.Put(Literals - 257, 5);
    writer.Put(0, 5); // one distance
    writer.Put(LengthCodes - 4, 4);
    writer.Flush();
    for (std::uint8_t const symbol : order) {
        writer.Put(lengthLengths[symbol], 3);
        writer.Flush();
    }
    for (std::uint8_t const length : lengths) {
        writer.Put(codes[length].bits, codes[length].length);
        writer.Flush();
    }
}

void HuffmanDeflate::Begin()
{
    m_bits = 0;
    m_bitCount = 0;
}

void HuffmanDeflate::FindRuns(std::uint8_t const *data, std::size_t size)
{
    m_runs.clear();
    std::size_t i = 1;
    while (i + ShortestRun <= size) {
        if (Load(data + i) != Load(data + i - 1)) {
            i += ShortestRun;
            continue;
        }
        std::size_t end = i + ShortestRun;
        while (end + 8 <= size && Load(data + end) == Load(data + end - 1))
            end += 8;
        while (end < size && data[end] == data[end - 1])
            ++end;
        m_runs.push_back({std::uint32_t(i), std::uint32_t(end - i)});
        i = end + 1;
    }
    m_runs.push_back({std::uint32_t(size), 0});
}

// How often each symbol occurs in the block.
HuffmanDeflate::Counts HuffmanDeflate::CountSymbols(std::uint8_t const *data) const
{
    // Four tables: neighbouring bytes are often equal, and their counts would wait for each other.
    std::array<Counts, 4> counts{};
    std::size_t at = 0;
    for (Run const &run : m_runs) {
        for (; at + 4 <= run.begin; at += 4) {
            ++counts[0][data[at]];
            ++counts[1][data[at + 1]];
            ++counts[2][data[at + 2]];
            ++counts[3][data[at + 3]];
        }
        for (; at < run.begin; ++at)
            ++counts[0][data[at]];
        ForEachMatch(run.length, [&](LengthSymbol const &match) { ++counts[0][match.symbol]; });
        at += run.length;
    }
    for (unsigned s = 0; s < Literals; ++s)
        counts[0][s] += counts[1][s] + counts[2][s] + counts[3][s];
    counts[0][EndOfBlock] = 1;
    return counts[0];
}

void HuffmanDeflate::WriteSymbols(std::uint8_t const *data, Codes const &codes, BitWriter &writer) const
{
    BitWriter bits = writer; // stays in registers
    auto const literal = [&](std::uint8_t value) {
        bits.Put(codes[value].bits, codes[value].length);
    };
    std::size_t at = 0;
    for (Run const &run : m_runs) {
        for (; at + 4 <= run.begin; at += 4) {
            literal(data[at]);
            literal(data[at + 1]);
            literal(data[at + 2]);
            literal(data[at + 3]);
            bits.Flush();
        }
        for (; at < run.begin; ++at) {
            literal(data[at]);
            bits.Flush();
        }
        ForEachMatch(run.length, [&](LengthSymbol const &match) {
            bits.Put(codes[match.symbol].bits, codes[match.symbol].length);
            bits.Put(match.extra, match.extraBits);
            bits.Put(0, 1); // the one distance
            bits.Flush();
        });
        at += run.length;
    }
    bits.Put(codes[EndOfBlock].bits, codes[EndOfBlock].length);
    bits.Flush();
    writer = bits;
}

std::size_t HuffmanDeflate::Block(std::uint8_t const *data, std::size_t size, bool last, std::uint8_t *out)
{
    FindRuns(data, size);
    Counts const counts = CountSymbols(data);
    std::array<std::uint8_t, Literals + 1> lengths;
    MakeLengths(counts.data(), Literals, LongestCode, lengths.data());
    lengths[Literals] = 1; // of the one distance that there is: 1
    Codes codes;
    MakeCodes(lengths.data(), Literals, codes.data());

    BitWriter writer{out, m_bits, m_bitCount};
    WriteHead(lengths, last, writer);
    WriteSymbols(data, codes, writer);
    if (last)
        writer.FillByte();
    m_bits = writer.bits;
    m_bitCount = writer.count;
    return std::size_t(writer.out - out);
}
