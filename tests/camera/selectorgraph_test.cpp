// Features that select each other: what saving and loading costs, counted in accesses to registers.
#include "genicam/configurationlayout.h"
#include "memorycamera.h"
#include "selectorxml.h"

#include "genicam/configuration.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace {

void SaveAndLoad(MemoryCamera &camera, Configuration *loaded)
{
    std::fill(camera.memory.begin(), camera.memory.end(), 0);
    Configuration saved;
    saved.camera.model = "x";
    ASSERT_EQ(saved.Take(camera.GetNodes()), TOV_CAM_ERR_OK);
    ASSERT_EQ(loaded->Parse(saved.ToText()), TOV_CAM_ERR_OK);
    ASSERT_EQ(loaded->Apply(camera.GetNodes(), true), TOV_CAM_ERR_OK);
}

TEST(SelectorGraph, CostsNoMoreAccessesThanItsLimits)
{
    for (Selection const selection : {Selection::Next, Selection::Anywhere, Selection::Layers}) {
        for (int const selected : {2, 20}) {
            SCOPED_TRACE(testing::Message() << static_cast<int>(selection) << ' ' << selected);
            MemoryCamera camera(SelectorDescription(3000, selected, selection));
            ASSERT_EQ(camera.GetNodes().GetStatus(), TOV_CAM_ERR_OK);
            Configuration loaded;
            SaveAndLoad(camera, &loaded);
            EXPECT_LT(camera.accesses, 600'000u);
            ConfigurationLayout const layout(camera.GetNodes());
            for (std::uint32_t i = 0; i < camera.GetNodes().GetFeatureCount(); ++i)
                ASSERT_LE(layout.GetSelectorsOf(i).size(), 16u);
        }
    }
}

// What is within the limits is stored whole: each value of each selector.
TEST(SelectorGraph, StoresEachCombinationOfAFewSelectors)
{
    MemoryCamera camera("<RegisterDescription ModelName=\"x\" SchemaMajorVersion=\"1\" SchemaMinorVersion=\"1\" "
                        "SchemaSubMinorVersion=\"0\"><Category Name=\"Root\"><pFeature>Table</pFeature>"
                        "<pFeature>Index</pFeature><pFeature>Value</pFeature></Category>"
                        "<Integer Name=\"Table\"><Value>0</Value><Min>0</Min><Max>3</Max>"
                        "<pSelected>Index</pSelected></Integer>"
                        "<Integer Name=\"Index\"><Value>0</Value><Min>0</Min><Max>1023</Max>"
                        "<pSelected>Value</pSelected></Integer>"
                        "<Integer Name=\"Value\"><Streamable>Yes</Streamable><pValue>Value_Reg</pValue></Integer>"
                        "<IntReg Name=\"Value_Reg\"><Address>0</Address><pIndex Offset=\"4\">Index</pIndex>"
                        "<pIndex Offset=\"4096\">Table</pIndex><Length>4</Length><AccessMode>RW</AccessMode>"
                        "<pPort>Device</pPort><Endianess>LittleEndian</Endianess></IntReg>"
                        "<Port Name=\"Device\"/></RegisterDescription>");
    Configuration loaded;
    SaveAndLoad(camera, &loaded);
    EXPECT_EQ(loaded.groups.size(), 4096u);
}

} // namespace
