#include "formulatext.h"

#include <glib.h>

#include <algorithm>
#include <string_view>
#include <unordered_map>

namespace {

constexpr std::size_t MaxFormula = 16u << 10; // bytes; those of real cameras have some hundred
constexpr std::size_t MaxTokens = 8192;       // of a formula with its expressions
constexpr int MaxDepth = 128; // of parentheses, signs and choices; ArvEvaluator has room for 128 operands
constexpr char const *UndefinedName = "not_a_formula";

struct GuardedText
{
    std::string text;
    std::size_t tokens = 1;         // of `text`
    std::vector<std::string> names; // variables, constants and expressions, each time that they occur
    bool rounds = false;            // uses ROUND
    bool takesRemainder = false;    // uses %
};

enum class Kind { End, Number, Name, Function, Open, Close, Comma, Question, Colon, Sign, Not, Binary, Unknown };

struct Token
{
    Kind kind = Kind::End;
    std::string_view text;
    std::size_t begin = 0;
};

bool IsNameCharacter(char c)
{
    return g_ascii_isalnum(c) || c == '_' || c == '.';
}

bool IsFunction(std::string_view name)
{
    static constexpr std::string_view Functions[] = {"sin",  "cos",  "sgn",   "neg",   "tan",  "abs",
                                                     "exp",  "ln",   "lg",    "atan",  "sqrt", "ceil",
                                                     "asin", "acos", "trunc", "round", "floor"};
    return std::any_of(std::begin(Functions), std::end(Functions), [name](std::string_view one) {
        return one.size() == name.size() && g_ascii_strncasecmp(one.data(), name.data(), one.size()) == 0;
    });
}

// Binary operators by how tight they bind; all but ** from the left to the right.
int BindingOf(std::string_view text)
{
    struct Level
    {
        std::string_view text;
        int binding;
    };
    static constexpr Level Levels[] = {{"||", 1}, {"&&", 2}, {"|", 3},  {"^", 4},  {"&", 5},  {"=", 6},  {"<>", 6},
                                       {"<=", 7}, {">=", 7}, {"<", 7},  {">", 7},  {">>", 8}, {"<<", 8}, {"-", 9},
                                       {"+", 9},  {"%", 10}, {"/", 10}, {"*", 10}, {"**", 11}};
    auto const level =
        std::find_if(std::begin(Levels), std::end(Levels), [text](Level const &one) { return one.text == text; });
    return level == std::end(Levels) ? 0 : level->binding;
}

// Cuts a formula where ArvEvaluator cuts it.
class Lexer
{
public:
    explicit Lexer(std::string_view text) : m_text(text)
    {
    }

    Token Next()
    {
        while (m_at < m_text.size() && g_ascii_isspace(m_text[m_at]))
            ++m_at;
        std::size_t const begin = m_at;
        Token token;
        token.begin = begin;
        if (begin == m_text.size())
            return token;
        char const first = m_text[begin];
        if (g_ascii_isdigit(first)) {
            m_at = NumberEnd(begin);
            token.kind = Kind::Number;
        } else if (IsNameCharacter(first)) {
            while (m_at < m_text.size() && IsNameCharacter(m_text[m_at]))
                ++m_at;
            token.kind = IsFunction(m_text.substr(begin, m_at - begin)) ? Kind::Function : Kind::Name;
        } else {
            token.kind = Symbol();
        }
        token.text = m_text.substr(begin, m_at - begin);
        return token;
    }

private:
    std::size_t Digits(std::size_t at) const
    {
        while (at < m_text.size() && g_ascii_isdigit(m_text[at]))
            ++at;
        return at;
    }

    char At(std::size_t at) const
    {
        return at < m_text.size() ? m_text[at] : '\0';
    }

    std::size_t NumberEnd(std::size_t at) const
    {
        if (At(at) == '0' && (At(at + 1) == 'x' || At(at + 1) == 'X') && g_ascii_isxdigit(At(at + 2))) {
            for (at += 2; g_ascii_isxdigit(At(at));)
                ++at;
            return at;
        }
        at = Digits(at);
        if (At(at) == '.')
            at = Digits(at + 1);
        if (At(at) == 'e' || At(at) == 'E') {
            std::size_t const digits = at + (At(at + 1) == '+' || At(at + 1) == '-' ? 2 : 1);
            if (g_ascii_isdigit(At(digits)))
                at = Digits(digits);
        }
        return at;
    }

    Kind Symbol()
    {
        char const c = m_text[m_at++];
        switch (c) {
        case '(':
            return Kind::Open;
        case ')':
            return Kind::Close;
        case ',':
            return Kind::Comma;
        case '?':
            return Kind::Question;
        case ':':
            return Kind::Colon;
        case '+':
        case '-':
            return Kind::Sign;
        case '~':
            return Kind::Not;
        case '/':
        case '%':
        case '^':
        case '=':
            return Kind::Binary;
        default:
            break;
        }
        char const next = At(m_at);
        bool const isDouble = (c == '*' || c == '&' || c == '|') && next == c;
        bool const isRelation =
            (c == '<' && (next == '>' || next == '<' || next == '=')) || (c == '>' && (next == '>' || next == '='));
        m_at += isDouble || isRelation ? 1 : 0;
        return c == '*' || c == '&' || c == '|' || c == '<' || c == '>' ? Kind::Binary : Kind::Unknown;
    }

    std::string_view const m_text;
    std::size_t m_at = 0;
};

// Whether the parentheses around it belong together.
bool IsWhole(std::string_view text)
{
    int depth = 0;
    for (char const c : text) {
        depth += c == '(' ? 1 : c == ')' ? -1 : 0;
        if (depth < 0)
            return false;
    }
    return depth == 0;
}

// Whether the right side of the operation is what a guard makes of one. `again`: with the same operand twice.
bool IsGuard(std::string_view text, std::string_view begin, std::string_view middle, std::string_view end, bool again)
{
    std::size_t const frame = begin.size() + middle.size() + end.size();
    if (text.size() < frame || !text.starts_with(begin) || !text.ends_with(end))
        return false;
    std::size_t const size = (text.size() - frame) / (again ? 2 : 1);
    std::string_view const operand = text.substr(begin.size(), size);
    std::string_view const rest = text.substr(begin.size() + size, text.size() - begin.size() - size - end.size());
    return IsWhole(operand) && rest == std::string(middle) + (again ? std::string(operand) : "");
}

// Reads a formula and writes it again, operand by operand.
class Writer
{
public:
    Writer(std::string_view formula, GuardedText &result) : m_formula(formula), m_result(result), m_lexer(formula)
    {
        Advance();
    }

    // False where the text is not a formula.
    bool Write()
    {
        std::string const text = Choice();
        if (m_failed || m_token.kind != Kind::End)
            return false;
        m_result.text = m_guarded ? text : std::string(m_formula);
        return true;
    }

private:
    void Advance()
    {
        m_token = m_lexer.Next();
        if (m_token.kind == Kind::Unknown)
            m_failed = true;
    }

    // The token as it stands, and goes to the next one.
    std::string Take()
    {
        std::string text(m_token.text);
        Advance();
        return text;
    }

    bool Deeper()
    {
        m_failed = m_failed || ++m_depth > MaxDepth;
        return !m_failed;
    }

    std::string Fail()
    {
        m_failed = true;
        return {};
    }

    std::string Join(std::string left, std::string_view middle, std::string_view right)
    {
        if (m_failed || left.size() + middle.size() + right.size() > MaxFormula)
            return Fail();
        left += middle;
        left += right;
        return left;
    }

    // A formula, or a part in parentheses. ArvEvaluator groups nested choices in its own way, which stays as it is.
    std::string Choice()
    {
        if (!Deeper())
            return Fail();
        std::string text = Operation(1);
        if (m_token.kind == Kind::Question) {
            Advance();
            text = Join(std::move(text), " ? ", Choice());
            if (m_failed || m_token.kind != Kind::Colon)
                return Fail();
            Advance();
            text = Join(std::move(text), " : ", Choice());
        }
        --m_depth;
        return text;
    }

    std::string Operation(int least)
    {
        std::string left = Operand();
        while (!m_failed && (m_token.kind == Kind::Binary || m_token.kind == Kind::Sign)) {
            int const binding = BindingOf(m_token.text);
            if (binding < least)
                break;
            std::string const operation = Take();
            bool const isNumber = m_token.kind == Kind::Number;
            std::string const number(m_token.text);
            // From right to left, a chain of ** would be as deep as it is long.
            if (operation == "**" && !Deeper())
                return Fail();
            std::string const right = Operation(operation == "**" ? binding : binding + 1);
            m_depth -= operation == "**" ? 1 : 0;
            left = Combine(std::move(left), operation, right, isNumber && right == number);
        }
        return left;
    }

    // A number as it stands is never negative, and so needs no guard as a divisor.
    std::string Combine(std::string left, std::string const &operation, std::string const &right, bool isNumber)
    {
        bool const isDivision = operation == "/", isRemainder = operation == "%";
        bool const isShift = operation == "<<" || operation == ">>";
        m_result.takesRemainder |= isRemainder;
        if (isShift && isNumber)
            isNumber = right.size() <= 2 && std::stoi(right) < 64;
        if (isNumber || !(isDivision || isRemainder || isShift))
            return Join(std::move(left), " " + operation + " ", right);
        // What has been guarded before stays as it is.
        if ((isDivision && IsGuard(right, "((", ") = -1 ? 1 : (", "))", true)) ||
            (isRemainder && IsGuard(right, "(((", ") | 0) = -1 ? 1 : (", "))", true)) ||
            (isShift && IsGuard(right, "((", ") & 63", ")", false)))
            return Join(std::move(left), " " + operation + " ", right);
        m_guarded = true;
        if (isShift)
            return Join(std::move(left), " " + operation + " ((" + right, ") & 63)");
        std::string const operand = "(" + right + ")";
        // The remainder is taken of integers even where the divisor is none.
        std::string const isMinusOne = isRemainder ? "((" + operand + " | 0) = -1" : "(" + operand + " = -1";
        std::string divisor = " " + operation + " " + isMinusOne + " ? 1 : " + operand + ")";
        if (isDivision)
            divisor += " * " + isMinusOne + " ? -1 : 1)";
        return Join(std::move(left), divisor, {});
    }

    std::string Operand()
    {
        if (m_failed)
            return {};
        switch (m_token.kind) {
        case Kind::Name:
        case Kind::Number:
            return Take();
        case Kind::Open:
            return Parenthesis(false);
        case Kind::Sign:
        case Kind::Not: {
            if (!Deeper())
                return Fail();
            std::string const prefix = Take();
            std::string text = Join(prefix, {}, Operand());
            --m_depth;
            return text;
        }
        case Kind::Function:
            return Call();
        default:
            return Fail();
        }
    }

    // ArvEvaluator applies a function to what is on its stack already where another one, or a sign, follows.
    std::string Call()
    {
        bool const isRound = g_ascii_strncasecmp(m_token.text.data(), "round", m_token.text.size()) == 0;
        m_result.rounds |= isRound;
        std::string const name = Take();
        if (m_token.kind == Kind::Open)
            return Join(name, {}, Parenthesis(isRound));
        if (m_token.kind != Kind::Name && m_token.kind != Kind::Number)
            return Fail();
        return Join(name, " ", Operand());
    }

    std::string Parenthesis(bool isList)
    {
        Advance();
        std::string text = Join("(", {}, Choice());
        while (isList && !m_failed && m_token.kind == Kind::Comma) {
            Advance();
            text = Join(std::move(text), ", ", Choice());
        }
        if (m_failed || m_token.kind != Kind::Close)
            return Fail();
        Advance();
        return Join(std::move(text), ")", {});
    }

    std::string_view const m_formula;
    GuardedText &m_result;
    Lexer m_lexer;
    Token m_token;
    int m_depth = 0;
    bool m_guarded = false;
    bool m_failed = false;
};

// What ArvEvaluator will work through, guards included.
void Count(GuardedText &guarded)
{
    Lexer lexer(guarded.text);
    guarded.tokens = 0;
    for (Token token = lexer.Next(); token.kind != Kind::End; token = lexer.Next()) {
        ++guarded.tokens;
        if (token.kind == Kind::Name)
            guarded.names.emplace_back(token.text);
    }
}

GuardedText GuardFormula(std::string const &formula)
{
    GuardedText result;
    // Guards nest, too: what they make is held to the same limits.
    GuardedText again;
    if (formula.size() > MaxFormula || !Writer(formula, result).Write() ||
        (result.text != formula && !Writer(result.text, again).Write()))
        return {UndefinedName, 1, {}, false, false};
    Count(result);
    return result;
}

GuardedText GuardConstant(std::string const &constant)
{
    Lexer lexer(constant);
    bool const isNumber = lexer.Next().kind == Kind::Number && lexer.Next().kind == Kind::End;
    return {isNumber && constant.size() <= MaxFormula ? constant : UndefinedName, 1, {}, false, false};
}

} // namespace

void GuardParts(std::vector<FormulaPart> &parts)
{
    std::vector<GuardedText> guarded;
    std::unordered_map<std::string, std::size_t> expressions; // their tokens
    bool rounds = false, takesRemainder = false;
    for (FormulaPart const &part : parts) {
        bool const isConstant = part.kind == FormulaPart::Kind::Constant;
        guarded.push_back(isConstant ? GuardConstant(part.text) : GuardFormula(part.text));
        rounds |= guarded.back().rounds;
        takesRemainder |= guarded.back().takesRemainder;
        if (part.kind == FormulaPart::Kind::Expression)
            expressions[part.name] = std::max(expressions[part.name], guarded.back().tokens);
    }
    for (std::size_t i = 0; i < parts.size(); ++i) {
        std::size_t tokens = guarded[i].tokens;
        for (std::string const &name : guarded[i].names) {
            auto const expression = expressions.find(name);
            tokens += expression == expressions.end() ? 0 : expression->second;
        }
        // ArvEvaluator counts what ROUND takes by the depth of parentheses and may take the operand of a remainder,
        // so a guard would be in the wrong place. No camera is known to have both.
        bool const isMisled = rounds && takesRemainder && parts[i].kind != FormulaPart::Kind::Constant;
        parts[i].usable = tokens <= MaxTokens && !isMisled && guarded[i].text != UndefinedName;
        parts[i].text = parts[i].usable ? std::move(guarded[i].text) : UndefinedName;
    }
}
