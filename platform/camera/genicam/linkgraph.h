// References between the nodes of a description, by node name.
#pragma once

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

class LinkGraph
{
public:
    void Add(std::string const &from, std::string const &to);
    // What a node's value costs beside the nodes that it refers to, in nodes.
    void AddCost(std::string const &name, std::uint64_t cost);
    // No circle, no chain that is too long, and no node whose value takes too many others to evaluate.
    bool IsBounded();

private:
    struct Node
    {
        std::vector<std::string> links;
        bool open = false; // on the path being walked
        int height = -1;   // longest chain below, -1 while unknown
        std::uint64_t own = 1;
        std::uint64_t cost = 0;
    };
    bool Visit(Node &node, int depth);

    std::unordered_map<std::string, Node> m_nodes;
};
