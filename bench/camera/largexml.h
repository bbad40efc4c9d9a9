// A camera's description of our own making, as large as the largest there are.
#pragma once

#include <string>

// `features` features in categories of fifty: integers with limits by formula, floats behind converters, enumerations,
// booleans, strings, commands and selectors, half of them locked by "TLParamsLocked".
inline std::string LargeDescription(int features)
{
    std::string categories, nodes;
    auto const number = [](int i) {
        return std::to_string(i);
    };
    auto const reg = [&](std::string const &name, char const *kind, int index, char const *rest) {
        nodes += std::string("<") + kind + " Name=\"" + name + "_Reg\"><Address>" +
                 number(0x1000 + index * 8 % 0x1000) + "</Address><Length>" + (kind[0] == 'F' ? "8" : "4") +
                 "</Length><AccessMode>RW</AccessMode><pPort>Device</pPort><Endianess>BigEndian</Endianess>" + rest +
                 "</" + kind + ">\n";
    };
    std::string root = "<Category Name=\"Root\">";
    for (int i = 0; i < features; ++i) {
        if (i % 50 == 0) {
            categories += (i ? "</Category>\n<Category Name=\"Group" : "<Category Name=\"Group") + number(i / 50) +
                          "\">" + "<ToolTip>Fifty features.</ToolTip><Visibility>Beginner</Visibility>";
            root += "<pFeature>Group" + number(i / 50) + "</pFeature>";
        }
        std::string const name = "Feature" + number(i);
        categories += "<pFeature>" + name + "</pFeature>";
        std::string const common = " Name=\"" + name + "\"><ToolTip>Number " + number(i) +
                                   " of many.</ToolTip><Description>What the feature number " + number(i) +
                                   " does for the picture, told at the length of a real one.</Description>"
                                   "<DisplayName>Feature " +
                                   number(i) + "</DisplayName><Visibility>" +
                                   (i % 3 == 0   ? "Beginner"
                                    : i % 3 == 1 ? "Expert"
                                                 : "Guru") +
                                   "</Visibility>" + (i % 2 ? "<pIsLocked>Locked</pIsLocked>" : "") +
                                   "<Streamable>Yes</Streamable><pValue>" + name;
        switch (i % 8) {
        case 0:
        case 1:
            nodes +=
                "<Integer" + common + "_Reg</pValue><Min>0</Min><pMax>" + name +
                "_Max</pMax><Inc>1</Inc><Representation>Linear</Representation></Integer>\n<IntSwissKnife Name=\"" +
                name + "_Max\"><pVariable Name=\"A\">Feature" + number(i / 8 * 8) +
                "_Reg</pVariable><Formula>4096 + A</Formula></IntSwissKnife>\n";
            reg(name, "IntReg", i, "<Sign>Unsigned</Sign>");
            break;
        case 2:
        case 3:
            nodes += "<Float" + common +
                     "_Conv</pValue><Min>0.0</Min><Max>1000.0</Max><Unit>us</Unit></Float>\n<Converter Name=\"" + name +
                     "_Conv\"><FormulaTo>FROM * 10</FormulaTo><FormulaFrom>TO / 10</FormulaFrom><pValue>" + name +
                     "_Reg</pValue></Converter>\n";
            reg(name, "IntReg", i, "<Sign>Unsigned</Sign>");
            break;
        case 4: {
            nodes += "<Enumeration" + common + "_Reg</pValue>";
            for (int k = 0; k < 6; ++k)
                nodes += "<EnumEntry Name=\"Choice" + number(k) + "\"><ToolTip>One of six.</ToolTip><Value>" +
                         number(k) + "</Value></EnumEntry>";
            nodes += "<pSelected>Feature" + number(i + 1) + "</pSelected><pSelected>Feature" + number(i + 2) +
                     "</pSelected></Enumeration>\n";
            reg(name, "IntReg", i, "<Sign>Unsigned</Sign>");
            break;
        }
        case 5:
            nodes += "<Boolean" + common + "_Reg</pValue><OnValue>1</OnValue><OffValue>0</OffValue></Boolean>\n";
            reg(name, "IntReg", i, "<Sign>Unsigned</Sign><PollingTime>500</PollingTime>");
            break;
        case 6:
            nodes += "<Float" + common + "_Reg</pValue><Min>0.0</Min><Max>1000.0</Max></Float>\n";
            reg(name, "FloatReg", i, "");
            break;
        default:
            nodes += "<Command" + common + "_Reg</pValue><CommandValue>1</CommandValue></Command>\n";
            reg(name, "IntReg", i, "<Sign>Unsigned</Sign>");
            break;
        }
    }
    nodes += "<Integer Name=\"TLParamsLocked\"><Value>0</Value><Min>0</Min><Max>1</Max></Integer>\n"
             "<IntSwissKnife Name=\"Locked\"><pVariable Name=\"L\">TLParamsLocked</pVariable><Formula>L</Formula>"
             "</IntSwissKnife>\n<Port Name=\"Device\"/>\n";
    return "<?xml version=\"1.0\"?>\n<RegisterDescription ModelName=\"Large\" VendorName=\"Velmor\">\n" + root +
           "<pFeature>TLParamsLocked</pFeature></Category>\n" + categories + "</Category>\n" + nodes +
           "</RegisterDescription>\n";
}
