// A node's formula, with an expression and a constant: guarded, it never ends the program and gives what the original
// gives wherever that has a value. A line each: formula, expression S, constant C.
#include "driver.h"

#include "genicam/formulatext.h"

#include <arv.h>

#include <cmath>
#include <csetjmp>
#include <csignal>
#include <cstring>
#include <limits>
#include <memory>
#include <string>

namespace {

struct Unref
{
    void operator()(ArvEvaluator *evaluator) const
    {
        g_object_unref(evaluator);
    }
};
using Evaluator = std::unique_ptr<ArvEvaluator, Unref>;

struct Result
{
    bool trapped = false;
    bool failed = false;
    std::int64_t integer = 0;
    double real = 0;

    bool operator==(Result const &other) const
    {
        return failed == other.failed && integer == other.integer &&
               (real == other.real || (std::isnan(real) && std::isnan(other.real)));
    }
};

sigjmp_buf s_trap;

void OnTrap(int)
{
    siglongjmp(s_trap, 1);
}

// Only the original may divide what the processor cannot.
Result Evaluate(ArvEvaluator *evaluator, bool asInteger, bool mayTrap)
{
    Result result;
    struct sigaction action = {}, before = {};
    action.sa_handler = OnTrap;
    if (mayTrap)
        sigaction(SIGFPE, &action, &before);
    if (sigsetjmp(s_trap, 1) == 0) {
        GError *error = nullptr;
        if (asInteger)
            result.integer = arv_evaluator_evaluate_as_int64(evaluator, &error);
        else
            result.real = arv_evaluator_evaluate_as_double(evaluator, &error);
        result.failed = error != nullptr;
        g_clear_error(&error);
    } else {
        result.trapped = true;
    }
    if (mayTrap)
        sigaction(SIGFPE, &before, nullptr);
    return result;
}

Evaluator Make(std::vector<FormulaPart> const &parts)
{
    Evaluator evaluator(arv_evaluator_new(parts[0].text.c_str()));
    arv_evaluator_set_sub_expression(evaluator.get(), "S", parts[1].text.c_str());
    arv_evaluator_set_constant(evaluator.get(), "C", parts[2].text.c_str());
    return evaluator;
}

std::vector<FormulaPart> Cut(std::string const &input)
{
    std::vector<FormulaPart> parts{{FormulaPart::Kind::Formula, "", "", true},
                                   {FormulaPart::Kind::Expression, "S", "", true},
                                   {FormulaPart::Kind::Constant, "C", "", true}};
    std::size_t begin = 0;
    for (FormulaPart &part : parts) {
        std::size_t const end = std::min(input.find('\n', begin), input.size());
        part.text = input.substr(begin, end - begin);
        begin = std::min(end + 1, input.size());
    }
    return parts;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const *data, std::size_t size)
{
    if (size == 0 || size > 4096 || std::memchr(data, 0, size))
        return FuzzRefused;
    std::vector<FormulaPart> const parts = Cut(std::string(reinterpret_cast<char const *>(data), size));
    std::vector<FormulaPart> guarded = parts;
    GuardParts(guarded);
    bool isChanged = false;
    for (std::size_t i = 0; i < parts.size(); ++i) {
        if (!guarded[i].usable)
            return FuzzRefused;
        isChanged |= guarded[i].text != parts[i].text;
    }
    std::vector<FormulaPart> again = guarded;
    GuardParts(again);
    for (std::size_t i = 0; i < parts.size(); ++i) {
        if (again[i].text != guarded[i].text)
            FuzzFail("a guarded formula that changes when it is guarded again");
    }
    Evaluator const before = Make(parts), after = Make(guarded);
    struct Values
    {
        std::int64_t a, b;
        double x;
    };
    constexpr std::int64_t Least = std::numeric_limits<std::int64_t>::min();
    constexpr Values Sets[] = {{7, 3, 2.5},
                               {-1000, -1, -1.0},
                               {Least, -1, -1.5},
                               {-1, Least, std::numeric_limits<double>::quiet_NaN()},
                               {0, 64, std::numeric_limits<double>::infinity()},
                               {1LL << 40, -70, 1e300}};
    for (Values const &set : Sets) {
        for (Evaluator const *evaluator : {&before, &after}) {
            for (char const *name : {"A", "FROM"})
                arv_evaluator_set_int64_variable(evaluator->get(), name, set.a);
            for (char const *name : {"B", "TO"})
                arv_evaluator_set_int64_variable(evaluator->get(), name, set.b);
            arv_evaluator_set_double_variable(evaluator->get(), "X", set.x);
        }
        for (bool const asInteger : {false, true}) {
            Result const is = Evaluate(after.get(), asInteger, false);
            Result const was = isChanged ? Evaluate(before.get(), asInteger, true) : is;
            if (!was.trapped && !(is == was))
                FuzzFail("the guarded formula gives something else");
        }
    }
    return 0;
}
