#include "chunkvalue.h"

#include "chunkdata.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace {

constexpr double NoNumber = std::numeric_limits<double>::quiet_NaN();

double AsReal(ChunkNumber const &number)
{
    return std::visit([](auto value) { return static_cast<double>(value); }, number);
}

// False for what has no integer.
bool SetVariable(ArvEvaluator *evaluator, char const *name, bool isInteger, ChunkNumber const &number)
{
    constexpr double Limit = 9223372036854775808.0;
    std::int64_t const *const integer = std::get_if<std::int64_t>(&number);
    double const real = AsReal(number);
    if (!isInteger)
        arv_evaluator_set_double_variable(evaluator, name, real);
    else if (integer || (real >= -Limit && real < Limit))
        arv_evaluator_set_int64_variable(evaluator, name, integer ? *integer : static_cast<std::int64_t>(real));
    else
        return false;
    return true;
}

} // namespace

// ---- The way from the feature to its registers -------------------------------------------------------------------

class ChunkValue::Maker
{
public:
    explicit Maker(ChunkValue &value) : m_value(value)
    {
    }
    // Where the value of a node is: among the numbers, or here.
    struct Source
    {
        std::optional<ChunkNumber> constant;
        std::size_t place = 0;
    };
    std::optional<Source> Follow(ArvGcNode *node, int depth = 0);

private:
    static constexpr int MostNodes = 64, LongestWay = 16;

    std::optional<Source> AddRegister(ArvGcNode *node);
    std::optional<Source> AddFormula(ArvGcNode *node, int depth);
    bool AddVariable(Formula &formula, char const *name, ArvGcNode *node, int depth);

    ChunkValue &m_value;
    int m_nodes = 0;
};

std::optional<ChunkValue::Maker::Source> ChunkValue::Maker::Follow(ArvGcNode *node, int depth)
{
    if (!node || depth > LongestWay || ++m_nodes > MostNodes)
        return std::nullopt;
    if (ARV_IS_GC_REGISTER(node))
        return AddRegister(node);
    if (ARV_IS_GC_CONVERTER(node) || ARV_IS_GC_SWISS_KNIFE(node))
        return AddFormula(node, depth);
    if (!ARV_IS_GC_INTEGER_NODE(node) && !ARV_IS_GC_FLOAT_NODE(node))
        return std::nullopt;
    if (PropertyOf(node, ARV_GC_PROPERTY_NODE_TYPE_P_VALUE))
        return Follow(LinkOf(node, ARV_GC_PROPERTY_NODE_TYPE_P_VALUE), depth + 1);
    ArvGcPropertyNode *const value = PropertyOf(node, ARV_GC_PROPERTY_NODE_TYPE_VALUE);
    if (!value)
        return std::nullopt;
    if (ARV_IS_GC_INTEGER_NODE(node))
        return Source{arv_gc_property_node_get_int64(value, nullptr)};
    return Source{arv_gc_property_node_get_double(value, nullptr)};
}

std::optional<ChunkValue::Maker::Source> ChunkValue::Maker::AddRegister(ArvGcNode *node)
{
    if (IsInChunk(node)) {
        std::optional<ChunkRegister> const number = DescribeChunkRegister(node);
        if (!number || m_value.m_registers.size() == MostRegisters)
            return std::nullopt;
        m_value.m_registers.push_back(*number);
        return Source{std::nullopt, m_value.m_registers.size() - 1};
    }
    // What can be written would be another one for later frames.
    ArvGcPropertyNode *const access = PropertyOf(node, ARV_GC_PROPERTY_NODE_TYPE_ACCESS_MODE);
    if (!access || ContentOf(access) != "RO")
        return std::nullopt;
    ErrorSlot error;
    std::optional<Source> source;
    if (ARV_IS_GC_INTEGER(node))
        source = Source{arv_gc_integer_get_value(ARV_GC_INTEGER(node), error)};
    else if (ARV_IS_GC_FLOAT(node))
        source = Source{arv_gc_float_get_value(ARV_GC_FLOAT(node), error)};
    return error.Status() == TOV_CAM_ERR_OK ? source : std::nullopt;
}

std::optional<ChunkValue::Maker::Source> ChunkValue::Maker::AddFormula(ArvGcNode *node, int depth)
{
    bool const isConverter = ARV_IS_GC_CONVERTER(node);
    ArvGcPropertyNode *const text =
        PropertyOf(node, isConverter ? ARV_GC_PROPERTY_NODE_TYPE_FORMULA_FROM : ARV_GC_PROPERTY_NODE_TYPE_FORMULA);
    if (!text)
        return std::nullopt;
    Formula formula;
    formula.evaluator.reset(arv_evaluator_new(ContentOf(text).c_str()));
    formula.isInteger = ARV_IS_GC_INTEGER(node);
    bool isWhole =
        !isConverter || AddVariable(formula, "TO", LinkOf(node, ARV_GC_PROPERTY_NODE_TYPE_P_VALUE), depth + 1);
    ForProperties(ARV_DOM_NODE(node), [&](ArvGcPropertyNode *property, ArvGcPropertyNodeType type) {
        char const *const name = arv_gc_property_node_get_name(property);
        if (!name || !isWhole)
            return;
        if (type == ARV_GC_PROPERTY_NODE_TYPE_EXPRESSION)
            arv_evaluator_set_sub_expression(formula.evaluator.get(), name, ContentOf(property).c_str());
        else if (type == ARV_GC_PROPERTY_NODE_TYPE_CONSTANT)
            arv_evaluator_set_constant(formula.evaluator.get(), name, ContentOf(property).c_str());
        else if (type == ARV_GC_PROPERTY_NODE_TYPE_P_VARIABLE)
            isWhole = AddVariable(formula, name, arv_gc_property_node_get_linked_node(property), depth + 1);
    });
    if (!isWhole || m_value.m_formulas.size() == MostFormulas)
        return std::nullopt;
    m_value.m_formulas.push_back(std::move(formula));
    return Source{std::nullopt, MostRegisters + m_value.m_formulas.size() - 1};
}

bool ChunkValue::Maker::AddVariable(Formula &formula, char const *name, ArvGcNode *node, int depth)
{
    std::optional<Source> const source = Follow(node, depth);
    if (!source)
        return false;
    bool const isInteger = ARV_IS_GC_INTEGER(node);
    if (source->constant)
        return SetVariable(formula.evaluator.get(), name, isInteger, *source->constant);
    formula.variables.push_back({name, source->place, isInteger});
    return true;
}

std::unique_ptr<ChunkValue> ChunkValue::Make(ArvGcNode *feature)
{
    std::unique_ptr<ChunkValue> value(new ChunkValue);
    std::optional<Maker::Source> const source = Maker(*value).Follow(feature);
    if (!source || source->constant || value->m_registers.empty())
        return nullptr;
    value->m_place = source->place;
    return value;
}

// ---- The value of a frame ----------------------------------------------------------------------------------------

bool ChunkValue::Formula::Evaluate(Numbers &numbers, ChunkNumber &result) const
{
    for (Variable const &variable : variables) {
        if (!SetVariable(evaluator.get(), variable.name.c_str(), variable.isInteger, numbers[variable.place]))
            return false;
    }
    ErrorSlot error;
    if (isInteger)
        result = arv_evaluator_evaluate_as_int64(evaluator.get(), error);
    else
        result = arv_evaluator_evaluate_as_double(evaluator.get(), error);
    return error.Status() == TOV_CAM_ERR_OK;
}

double ChunkValue::Evaluate(Numbers &numbers) const
{
    for (std::size_t i = 0; i < m_formulas.size(); ++i) {
        if (!m_formulas[i].Evaluate(numbers, numbers[MostRegisters + i]))
            return NoNumber;
    }
    return AsReal(numbers[m_place]);
}

double ChunkValue::Read(std::span<std::uint8_t const> chunks, std::endian order) const
{
    Numbers numbers{};
    for (std::size_t i = 0; i < m_registers.size(); ++i) {
        auto const chunk = FindChunk(chunks, m_registers[i].chunk, order);
        auto const number = chunk ? m_registers[i].Read(*chunk) : std::nullopt;
        if (!number)
            return NoNumber;
        numbers[i] = *number;
    }
    double value;
    if (m_formulas.empty()) {
        value = AsReal(numbers[m_place]);
    } else {
        // Exposure and gain of a frame are mostly those of the one before, and an evaluation takes memory.
        std::lock_guard const lock(m_mutex);
        if (!m_hasLast || !std::equal(m_last.begin(), m_last.end(), numbers.begin())) {
            std::copy_n(numbers.begin(), MostRegisters, m_last.begin());
            m_lastValue = Evaluate(numbers);
            m_hasLast = true;
        }
        value = m_lastValue;
    }
    return std::isfinite(value) ? value : NoNumber;
}
