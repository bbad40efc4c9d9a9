// Formulas of descriptions: what is rewritten and how, and that no register makes one end the program.
#include "genicam/formulaguard.h"
#include "genicam/formulatext.h"
#include "genicam/xmlcheck.h"
#include "memorycamera.h"
#include "sim/simmodel.h"

#include <gtest/gtest.h>

#include <limits>

namespace {

using TovCam::FeatureState;

std::string Guarded(std::string const &formula)
{
    std::vector<FormulaPart> parts{{FormulaPart::Kind::Formula, "", formula, true}};
    GuardParts(parts);
    return parts[0].text;
}

std::string Nested(std::string const &before, std::string const &middle, std::string const &after, int times)
{
    std::string begin, end;
    for (int i = 0; i < times; ++i) {
        begin += before;
        end += after;
    }
    return begin + middle + end;
}

TEST(FormulaGuard, RewritesWhatMayTrap)
{
    struct Case
    {
        char const *formula, *guarded; // null: as it was
    };
    char const *const None = "not_a_formula";
    for (auto const &[formula, guarded] : std::initializer_list<Case>{
             {"  FROM*1000/ 8  + A.B_1%0x10", nullptr},
             {"(A = 1) ? 2 : (A <> 3) ? ~B : -C ** 2 ** E", nullptr},
             {"A << 63 | B >> 0", nullptr},
             {"ROUND(A / 3, 2) + sin PI", nullptr},
             {"A/B", "A / ((B) = -1 ? 1 : (B)) * ((B) = -1 ? -1 : 1)"},
             {"A % B", "A % (((B) | 0) = -1 ? 1 : (B))"},
             {"2*A/-1*C", "2 * A / ((-1) = -1 ? 1 : (-1)) * ((-1) = -1 ? -1 : 1) * C"},
             {"1 << N + 1", "1 << ((N + 1) & 63)"},
             {"1 << 64", "1 << ((64) & 63)"},
             {"A % B ** 2 + C", "A % (((B ** 2) | 0) = -1 ? 1 : (B ** 2)) + C"},
             {"SGN(A % B)", "SGN(A % (((B) | 0) = -1 ? 1 : (B)))"},
             {"A B %", None},
             {"A % (B ? C)", None},
             {"A : B", None},
             {"(A, B)", None},
             {"sin cos A", None},
             {"A == B", None},
             {"A $ B", None},
             {"((A)", None},
             {"", None},
             {"ROUND(A) % B", None},
         })
        EXPECT_EQ(Guarded(formula), guarded ? guarded : formula);
    for (char const *formula : {"A/B", "(A % (B / C)) << -D", "A / (B % -1) / (C << D)"})
        EXPECT_EQ(Guarded(Guarded(formula)), Guarded(formula)) << "guarded again";
    for (char const *like : {"A / ((A) ? (B) : (C) = -1 ? 1 : (A) ? (B) : (C))", "A % ((B) = -1 ? 1 : (B))",
                             "A / ((B) = -1 ? 1 : (C))", "A << ((B) | (C) & 63)"})
        EXPECT_NE(Guarded(like), like);
    EXPECT_EQ(Guarded(Nested("(", "A", ")", 100)), Nested("(", "A", ")", 100));
    for (std::string const &hostile :
         {Nested("(", "A", ")", 100000), Nested("-", "A", "", 60000), Nested("A % (B + ", "A", ")", 100),
          Nested("(", "A % B", ")", 126), Nested("A ** ", "A", "", 10000), Nested("A ? B : ", "A", "", 5000),
          std::string(100000, ' ') + "A"})
        EXPECT_EQ(Guarded(hostile), None);
    std::vector<FormulaPart> parts{{FormulaPart::Kind::Formula, "", Nested("S + ", "S", "", 100), true},
                                   {FormulaPart::Kind::Expression, "S", Nested("A + ", "A", "", 100), true},
                                   {FormulaPart::Kind::Constant, "C", " 0x10 ", true},
                                   {FormulaPart::Kind::Constant, "D", "%", true}};
    GuardParts(parts);
    EXPECT_EQ(parts[0].text, None);
    EXPECT_EQ(parts[1].text, Nested("A + ", "A", "", 100));
    EXPECT_EQ(parts[2].text, " 0x10 ");
    EXPECT_EQ(parts[3].text, None);
}

std::string Described(std::string const &nodes)
{
    return "<RegisterDescription ModelName=\"x\" SchemaMajorVersion=\"1\" SchemaMinorVersion=\"1\" "
           "SchemaSubMinorVersion=\"0\"><Category Name=\"Root\"><pFeature>V</pFeature></Category>" +
           nodes +
           "<IntReg Name=\"A\"><Address>0</Address><Length>8</Length><AccessMode>RW</AccessMode><pPort>Device</pPort>"
           "<Sign>Signed</Sign><Endianess>LittleEndian</Endianess></IntReg><IntReg Name=\"B\"><Address>8</Address>"
           "<Length>8</Length><AccessMode>RW</AccessMode><pPort>Device</pPort><Sign>Signed</Sign>"
           "<Endianess>LittleEndian</Endianess></IntReg><Port Name=\"Device\"/></RegisterDescription>";
}

std::string Knife(std::string const &kind, std::string const &formulas)
{
    return '<' + kind + " Name=\"V\"><pVariable Name=\"A\">A</pVariable><pVariable Name=\"B\">B</pVariable>" +
           formulas + "</" + kind + '>';
}

void Store(MemoryCamera &camera, std::size_t address, std::int64_t value)
{
    for (std::size_t i = 0; i < 8; ++i)
        camera.memory[address + i] = static_cast<std::uint8_t>(static_cast<std::uint64_t>(value) >> 8 * i);
}

// Each of these ends the program by a signal where it is evaluated as it came.
TEST(FormulaGuard, NoValueOfARegisterEndsTheProgram)
{
    constexpr std::int64_t Least = std::numeric_limits<std::int64_t>::min();
    struct Case
    {
        std::string node;
        std::int64_t value; // as an integer, for the smallest number and -1; 0 also for one that fails
    };
    std::string const converter = "<pValue>A</pValue>";
    for (auto const &[node, value] : std::initializer_list<Case>{
             {Knife("IntSwissKnife", "<Formula>A / B</Formula>"), Least},
             {Knife("IntSwissKnife", "<Formula>A % B</Formula>"), 0},
             {Knife("IntSwissKnife", "<Formula>(1 &lt;&lt; 63) / (0 - 1)</Formula>"), Least},
             {Knife("IntSwissKnife", "<Expression Name=\"S\">A % B</Expression><Formula>S + 5</Formula>"), 5},
             {Knife("IntSwissKnife", "<Constant Name=\"C\">%</Constant><Formula>A B C</Formula>"), 0},
             {Knife("IntSwissKnife", "<Constant Name=\"C\">/</Constant><Formula>A + B * (A C)</Formula>"), 0},
             {Knife("IntSwissKnife", "<Formula>A B <![CDATA[%]]></Formula>"), 0},
             {Knife("IntSwissKnife", "<Formula>A<!-- --> %<!-- --> B</Formula>"), 0},
             {Knife("IntSwissKnife", "<Formula>A<Formula>%</Formula> B</Formula>"), 0},
             {Knife("SwissKnife", "<Formula>A % (B - 0.5)</Formula>"), 0},
             {Knife("Converter", "<FormulaTo>A % B</FormulaTo><FormulaFrom>A % B</FormulaFrom>" + converter), 0},
             {Knife("IntConverter", "<FormulaTo>A / B</FormulaTo><FormulaFrom>TO / B</FormulaFrom>" + converter),
              Least},
         }) {
        SCOPED_TRACE(node);
        MemoryCamera camera(Described(node));
        ASSERT_EQ(camera.GetNodes().GetStatus(), TOV_CAM_ERR_OK);
        Store(camera, 0, Least);
        Store(camera, 8, -1);
        FeatureState state;
        ASSERT_EQ(camera.GetNodes().ReadFeature(1, &state), TOV_CAM_ERR_OK);
        EXPECT_EQ(state.value.integer, value);
        EXPECT_EQ(state.value.real, 0);
        if (state.access == TovCam::FeatureAccess::ReadWrite)
            camera.GetNodes().WriteFeature(1, state.value);
    }
}

TEST(FormulaGuard, ALengthThatChangesTakesNoMoreMemory)
{
    for (char const *kind : {"Register", "StringReg"}) {
        MemoryCamera camera(Described(std::string("<") + kind +
                                      " Name=\"V\"><Address>64</Address><pLength>B</pLength><AccessMode>RW</AccessMode>"
                                      "<pPort>Device</pPort></" +
                                      kind + '>'));
        ASSERT_EQ(camera.GetNodes().GetStatus(), TOV_CAM_ERR_OK);
        FeatureState state;
        Store(camera, 8, 16);
        camera.GetNodes().ReadFeature(1, &state);
        EXPECT_EQ(state.length, 16u);
        camera.isUnsteady = true; // 16 and its complement, by turns
        for (int i = 0; i < 4; ++i) {
            camera.GetNodes().ReadFeature(1, &state);
            camera.GetNodes().WriteFeature(1, state.value);
        }
        camera.isUnsteady = false;
        for (std::int64_t const length : {std::int64_t(-1), std::int64_t(1) << 40, std::int64_t(1) << 63}) {
            Store(camera, 8, length);
            ASSERT_EQ(camera.GetNodes().ReadFeature(1, &state), TOV_CAM_ERR_OK);
            EXPECT_EQ(state.valueStatus, TOV_CAM_ERR_GENICAM_TREE) << length;
        }
    }
}

TEST(FormulaGuard, LeavesWhatNeedsNoGuard)
{
    std::string const plain = Described(Knife("IntSwissKnife", "<Formula>  A/1000 </Formula>")) + std::string(3, '\0');
    std::string guarded;
    ASSERT_EQ(GuardFormulas(plain, &guarded), TOV_CAM_ERR_OK);
    EXPECT_EQ(guarded + std::string(3, '\0'), plain);
    for (SimModel const &model : GetSimModels()) {
        ASSERT_EQ(GuardFormulas(model.xml, &guarded), TOV_CAM_ERR_OK);
        EXPECT_EQ(guarded.find("not_a_formula"), std::string::npos);
        EXPECT_EQ(CheckGenicamXml(guarded.data(), guarded.size()), TOV_CAM_ERR_OK);
    }
}

// Aravis adds the lock to what it makes of a description; whoever starts a camera counts on it.
TEST(FormulaGuard, EveryCameraHasTheTransportLock)
{
    MemoryCamera camera(Described(Knife("IntSwissKnife", "<Formula>1</Formula>")));
    EXPECT_EQ(camera.GetNodes().SetIntegerValue("TLParamsLocked", 1), TOV_CAM_ERR_OK);
    EXPECT_EQ(camera.GetNodes().GetIntegerValue("TLParamsLocked", nullptr), 1);
}

TEST(FormulaGuard, RefusesEntitiesAndFormulasWithoutEnd)
{
    std::string const entity = "<!DOCTYPE RegisterDescription [<!ENTITY f \"A % B\">]>" +
                               Described(Knife("IntSwissKnife", "<Formula>&f;</Formula>"));
    std::string guarded;
    EXPECT_EQ(CheckGenicamXml(entity.data(), entity.size()), TOV_CAM_ERR_GENICAM_TREE);
    EXPECT_EQ(GuardFormulas(entity, &guarded), TOV_CAM_ERR_GENICAM_TREE);
    // A few letters become thousands.
    std::string const formula = "<Formula>" + Nested("A / (", "A", ")", 6) + "</Formula>";
    std::string nodes;
    for (int i = 0; i < 20000; ++i)
        nodes += "<IntSwissKnife Name=\"V" + std::to_string(i) + "\">" + formula + "</IntSwissKnife>";
    std::string const growing = Described(nodes);
    ASSERT_EQ(CheckGenicamXml(growing.data(), growing.size()), TOV_CAM_ERR_OK);
    EXPECT_EQ(GuardFormulas(growing, &guarded), TOV_CAM_ERR_GENICAM_TREE);
    std::string const endless =
        Described(Knife("IntSwissKnife", "<Formula>" + Nested("A + ", "A", "", 500000) + "</Formula>"));
    EXPECT_EQ(CheckGenicamXml(endless.data(), endless.size()), TOV_CAM_ERR_GENICAM_TREE);
}

} // namespace
