// A feature whose value comes with each frame, in its chunk data. What the description says of the way from the chunks
// to the value is taken out of it once, so that frames need neither the camera nor the device's lock.
#pragma once

#include "chunkregister.h"

#include <array>
#include <bit>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

class ChunkValue
{
public:
    // Null for a feature whose value takes anything else than chunks, constants of the description and registers that
    // nobody can write, or that takes too many of them. With the device's lock held; such registers are read now.
    static std::unique_ptr<ChunkValue> Make(ArvGcNode *feature);

    // Not a number where the chunks do not have it or make none of it. `order` as FindChunk's. Any thread.
    double Read(std::span<std::uint8_t const> chunks, std::endian order) const;

private:
    class Maker;
    static constexpr std::size_t MostRegisters = 8, MostFormulas = 8;
    using Registers = std::array<ChunkNumber, MostRegisters>;
    // Of the registers first, then of the formulas.
    using Numbers = std::array<ChunkNumber, MostRegisters + MostFormulas>;

    struct Variable
    {
        std::string name;
        std::size_t place = 0; // in Numbers
        bool isInteger = false;
    };
    struct Formula
    {
        struct Unref
        {
            void operator()(ArvEvaluator *evaluator) const
            {
                g_object_unref(evaluator);
            }
        };
        std::unique_ptr<ArvEvaluator, Unref> evaluator;
        std::vector<Variable> variables;
        bool isInteger = false;
        bool Evaluate(Numbers &numbers, ChunkNumber &result) const;
    };

    ChunkValue() = default;
    double Evaluate(Numbers &numbers) const;

    // Set by Make.
    std::vector<ChunkRegister> m_registers;
    std::vector<Formula> m_formulas; // each behind those whose values it takes; evaluated under the lock
    std::size_t m_place = 0;         // of the value

    mutable std::mutex m_mutex; // guards the next ones and the evaluators; alone
    mutable Registers m_last{}; // what the registers were
    mutable double m_lastValue = 0;
    mutable bool m_hasLast = false;
};
