// Descriptions whose features select each other, far beyond what cameras have.
#pragma once

#include <cstdint>
#include <string>

enum class Selection {
    Next,     // each feature selects those that follow it: a long chain
    Anywhere, // each selects some that are spread over all
    Layers,   // a half selects the other half, which is what is stored
};

// `features` integers of their own registers, with the values 0 to 3, each selecting `selected` others.
inline std::string SelectorDescription(int features, int selected, Selection selection)
{
    std::string category = "<Category Name=\"Root\">", nodes;
    std::uint32_t random = 1;
    auto const pick = [&](int i, int k) {
        random = random * 1664525u + 1013904223u;
        int const any = static_cast<int>((random >> 8) % static_cast<unsigned>(features));
        switch (selection) {
        case Selection::Next:
            return i + 1 + k;
        case Selection::Anywhere:
            return any;
        default:
            return i < features / 2 ? features / 2 + any / 2 : features;
        }
    };
    for (int i = 0; i < features; ++i) {
        std::string const name = "Feature" + std::to_string(i);
        category += "<pFeature>" + name + "</pFeature>";
        nodes += "<Integer Name=\"" + name + "\"><Streamable>Yes</Streamable><pValue>" + name +
                 "_Reg</pValue><Min>0</Min><Max>3</Max>";
        for (int k = 0; k < selected; ++k) {
            int const other = pick(i, k);
            if (other < features && other != i)
                nodes += "<pSelected>Feature" + std::to_string(other) + "</pSelected>";
        }
        nodes += "</Integer>\n<IntReg Name=\"" + name + "_Reg\"><Address>" + std::to_string(i * 4) +
                 "</Address><Length>4</Length><AccessMode>RW</AccessMode><pPort>Device</pPort><Endianess>BigEndian"
                 "</Endianess></IntReg>\n";
    }
    return "<RegisterDescription ModelName=\"Selectors\" VendorName=\"Velmor\" SchemaMajorVersion=\"1\" "
           "SchemaMinorVersion=\"1\" SchemaSubMinorVersion=\"0\">\n" +
           category + "</Category>\n" + nodes + "<Port Name=\"Device\"/>\n</RegisterDescription>\n";
}
