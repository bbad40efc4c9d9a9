// The formulas of one node of a camera's description, as text.
#pragma once

#include <string>
#include <vector>

struct FormulaPart
{
    enum class Kind { Formula, Expression, Constant };
    Kind kind = Kind::Formula;
    std::string name; // of an expression or a constant
    std::string text;
    bool usable = true; // false: `text` has become one that fails
};

// Rewrites what a node computes with into what ArvEvaluator can evaluate without ending the program, whatever the
// values of the variables. It gives the same as the original wherever that has a value: an integer divided by -1, which
// the processor refuses for the smallest one, is divided by 1 and negated; a shift takes the low six bits of its right
// side, as the processor does. A text that needs no guard stays as it is.
//
// What is not a formula by GenICam's grammar becomes one that fails when it is evaluated: ArvEvaluator reduces whatever
// stands on its stack, so that a missing or surplus operand would move the guards away from what they guard. So does
// one that nests too deep or is too long, and a constant that is not one number.
void GuardParts(std::vector<FormulaPart> &parts);
