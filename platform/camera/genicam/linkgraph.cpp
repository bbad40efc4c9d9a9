#include "linkgraph.h"

#include <algorithm>

namespace {

constexpr int MaxChain = 100;            // links from a feature to its last register; real cameras have about ten
constexpr std::uint64_t MaxCost = 20000; // nodes evaluated for one value; real cameras need a few hundred

} // namespace

void LinkGraph::Add(std::string const &from, std::string const &to)
{
    m_nodes[from].links.push_back(to);
}

void LinkGraph::AddCost(std::string const &name, std::uint64_t cost)
{
    m_nodes[name].own += cost;
}

bool LinkGraph::IsBounded()
{
    for (auto &[name, node] : m_nodes) {
        if (!Visit(node, 0))
            return false;
    }
    return true;
}

bool LinkGraph::Visit(Node &node, int depth)
{
    if (node.open || depth > MaxChain)
        return false;
    if (node.height >= 0)
        return depth + node.height <= MaxChain;
    node.open = true;
    int height = 0;
    std::uint64_t cost = node.own;
    for (std::string const &name : node.links) {
        auto const link = m_nodes.find(name);
        if (link == m_nodes.end()) {
            ++cost;
            continue;
        }
        if (!Visit(link->second, depth + 1))
            return false;
        height = std::max(height, link->second.height + 1);
        cost += link->second.cost;
    }
    node.open = false;
    node.height = height;
    node.cost = cost;
    return cost <= MaxCost;
}
