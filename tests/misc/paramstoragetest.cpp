#include "tovmisc.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <cstring>
#include <functional>
#include <string>
#include <thread>
#include <vector>

namespace {

int s_changes = 0;
std::string s_lastChange; // component and key

unsigned int CountChange(unsigned int component, _TovStParam *param)
{
    ++s_changes;
    s_lastChange = std::to_string(component) + " " + param->name;
    return 0;
}

struct Listener : TovParamListener
{
    std::vector<std::string> heard;
    TovParamStorage *setsInStore = nullptr;
    void ParamChanged(_TovStParam param) override
    {
        heard.emplace_back(param.name);
        if (setsInStore)
            setsInStore->SetParamString("text", "heard", true); // which takes the store's lock
    }
};

class ParamStorage : public testing::Test
{
protected:
    ParamStorage()
    {
        Add(TOV_PARAM_INT, "number", [this](auto &param) { param.i = {5, -10, 100, 0, &number}; });
        Add(TOV_PARAM_BOOL, "flag", [this](auto &param) { param.b = {0, 0, &flag}; });
        Add(TOV_PARAM_FLOAT, "rate", [this](auto &param) { param.f = {0, -1, 1e6, 0, &rate}; });
        Add(TOV_PARAM_STRING, "text", [this](auto &param) { param.s = {"", text, sizeof text}; });
        Add(TOV_PARAM_ARRAY, "block",
            [this](auto &param) { param.a = {{0, 0}, nullptr, sizeof block, block, sizeof block}; });
        Add(TOV_PARAM_COMMAND, "go", [](auto &param) { param.c = {[](void *) { return 1u; }, nullptr}; });
        s_changes = 0;
    }

    TovStatus Add(TovParamType type, std::string const &key, std::function<void(_TovStParam &)> const &fill)
    {
        _TovStParam param;
        std::memset(&param, 0, sizeof param);
        param.type = type;
        param.flags = 3;
        key.copy(param.name, sizeof param.name);
        param.onChange = CountChange;
        fill(param);
        return store.AddParam(&param);
    }

    std::string AsString(char const *key, char const *format = nullptr)
    {
        char buffer[256];
        unsigned int capacity = sizeof buffer;
        TovStatus const status = store.GetParamAsString(key, buffer, &capacity, format);
        return status == TOV_PARAM_OK ? buffer : "!" + std::to_string(status & 0xFFFF);
    }

    std::int64_t number = 5;
    bool flag = false;
    double rate = 0.5;
    char text[8] = "abc";
    std::uint8_t block[3] = {1, 0xAB, 0xFF};
    TovParamStorage store{7};
};

// Sets every value by text; "!" before the expected text means that it is refused and the value stays.
TEST_F(ParamStorage, TakesTextAndRefusesWhatIsNoValue)
{
    std::tuple<char const *, char const *, char const *> const rows[] = {
        {"number", "42", "42"},    {"number", " -3\n", "-3"},
        {"number", "101", "100"},  {"number", "99999999999999999999999", "100"},
        {"number", "+-5", "!"},    {"number", "4x", "!"},
        {"flag", "yes", "!"},      {"rate", "1e3", "1000"},
        {"rate", "-1e999", "-1"},  {"rate", "nan", "!"},
        {"rate", "1,5", "!"},      {"text", "1234567", "1234567"},
        {"text", "12345678", "!"}, {"block", "00ff10", "00ff10"},
        {"block", "00ff1000", "!"}};
    for (auto const &[key, typed, expected] : rows) {
        SCOPED_TRACE(std::string(key) + " = '" + typed + "'");
        std::string const before = AsString(key);
        s_changes = 0;
        TovStatus const status = store.SetParamAsString(key, typed, true);
        bool const refused = expected[0] == '!';
        EXPECT_EQ(TovSucceeded(status), !refused);
        EXPECT_EQ(s_changes, refused ? 0 : 1);
        EXPECT_EQ(AsString(key), refused ? before : expected);
    }
}

TEST_F(ParamStorage, PrintsByAFormatThatFitsAndRefusesOthers)
{
    number = -42;
    rate = 1234.5678;
    std::tuple<char const *, char const *, char const *> const rows[] = {
        {"number", "%ld", "-42"},     {"number", "<%6lli> 100%%", "<   -42> 100%"},
        {"number", "%s", "!4"},       {"number", "%n", "!4"},
        {"number", "%*d", "!4"},      {"number", "%d %d", "!4"},
        {"number", "%", "!4"},        {"number", "%500d", "!6"},
        {"rate", "%.2f", "1234.57"},  {"rate", "%d", "!4"},
        {"text", "[%5s]", "[  abc]"}, {"block", "%s", "01abff"},
        {"go", nullptr, "!2"},        {"absent", nullptr, "!1"}};
    for (auto const &[key, format, expected] : rows)
        EXPECT_EQ(AsString(key, format), expected) << key << " " << (format ? format : "null");
    rate = 0.1 + 0.2;
    double const before = rate;
    ASSERT_EQ(store.SetParamAsString("rate", AsString("rate").c_str(), false), TOV_PARAM_OK);
    EXPECT_EQ(rate, before);
}

TEST_F(ParamStorage, ClampsRefusesAndNotifies)
{
    EXPECT_EQ(store.SetParamInt("number", 1000, true), TOV_PARAM_OK);
    EXPECT_EQ(number, 100);
    EXPECT_EQ(s_lastChange, "7 number");
    EXPECT_EQ(s_changes, 1);
    EXPECT_EQ(store.SetParamInt("number", 1, false), TOV_PARAM_OK);
    EXPECT_EQ(number, 1);
    EXPECT_EQ(store.SetParamBool("flag", true, false), TOV_PARAM_OK);
    EXPECT_EQ(store.SetParamFloat("rate", 1, false), TOV_PARAM_OK);
    EXPECT_EQ(store.SetParamString("text", "x", false), TOV_PARAM_OK);

    EXPECT_EQ(store.SetParamFloat("rate", std::nan(""), true), TOV_PARAM_ERR_VALUE);
    EXPECT_EQ(store.SetParamInt("rate", 1, true), TOV_PARAM_ERR_TYPE);
    EXPECT_EQ(store.SetParamString("text", nullptr, true), TOV_PARAM_ERR_ARGUMENT);
    EXPECT_EQ(store.SetParamArray("block", "ab", 2, true), TOV_PARAM_ERR_VALUE);
    EXPECT_EQ(store.SetParamBool("absent", true, true), TOV_PARAM_ERR_UNKNOWN_KEY);
    EXPECT_EQ(s_changes, 1);
    EXPECT_EQ(store.RunCommand("go"), 1u);
    EXPECT_EQ(store.RunCommand("number"), TOV_PARAM_ERR_TYPE);
}

TEST_F(ParamStorage, SaysTheSizeThatATooSmallBufferNeeds)
{
    char buffer[4];
    unsigned int size = 3;
    EXPECT_EQ(store.GetParamString("text", buffer, &size), TOV_PARAM_ERR_BUFFER);
    EXPECT_EQ(size, 4u);
    EXPECT_EQ(store.GetParamString("text", buffer, &size), TOV_PARAM_OK);
    EXPECT_STREQ(buffer, "abc");
    size = 2;
    EXPECT_EQ(store.GetParamArray("block", buffer, &size), TOV_PARAM_ERR_BUFFER);
    EXPECT_EQ(size, 3u);
    EXPECT_EQ(store.GetParamArray("block", buffer, &size), TOV_PARAM_OK);
    EXPECT_EQ(static_cast<std::uint8_t>(buffer[1]), 0xAB);
    std::memset(text, 'x', sizeof text); // the owner forgot the terminator
    EXPECT_EQ(AsString("text"), "xxxxxxxx");
}

TEST_F(ParamStorage, ListenersHearTheirKeyAndMaySetInTheStore)
{
    Listener listener;
    listener.setsInStore = &store;
    ASSERT_EQ(store.AddParamChangedListener("number", &listener), TOV_PARAM_OK);
    EXPECT_EQ(store.AddParamChangedListener("absent", &listener), TOV_PARAM_ERR_UNKNOWN_KEY);
    store.SetParamInt("number", 1, true);
    store.SetParamInt("number", 2, false);
    store.SetParamFloat("rate", 2, true);
    EXPECT_EQ(listener.heard, std::vector<std::string>{"number"});
    EXPECT_STREQ(text, "heard");
    EXPECT_EQ(store.RemoveParamChangedListener("number", &listener), TOV_PARAM_OK);
    store.SetParamInt("number", 3, true);
    EXPECT_EQ(listener.heard.size(), 1u);
}

// Readers and writers of the values, while one thread registers more keys than the first table holds.
TEST_F(ParamStorage, IsSafeFromManyThreads)
{
    std::vector<std::int64_t> variables(200);
    store.SetParamString("text", "aaaaaaa", false);
    std::atomic<bool> done{false};
    std::vector<std::thread> threads;
    for (int t = 0; t < 3; ++t) {
        threads.emplace_back([&, t] {
            while (!done) {
                store.SetParamInt("number", t, false);
                store.SetParamString("text", t ? "aaaaaaa" : "bbbbbbb", false);
                char buffer[16];
                unsigned int capacity = sizeof buffer;
                ASSERT_EQ(store.GetParamString("text", buffer, &capacity), TOV_PARAM_OK);
                EXPECT_EQ(std::string(buffer), std::string(std::strlen(buffer), buffer[0]));
                long value = 0;
                store.GetParamInt("key199", &value);
                EXPECT_TRUE(value == 0 || value == 9);
            }
        });
    }
    for (std::size_t i = 0; i < variables.size(); ++i) {
        std::string const key = "key" + std::to_string(i);
        Add(TOV_PARAM_INT, key, [&](auto &param) { param.i = {0, 0, 10, 0, &variables[i]}; });
        EXPECT_EQ(store.SetParamInt(key.c_str(), static_cast<long>(i % 10), false), TOV_PARAM_OK);
    }
    done = true;
    for (auto &thread : threads)
        thread.join();
    for (std::size_t i = 0; i < variables.size(); ++i)
        EXPECT_EQ(AsString(("key" + std::to_string(i)).c_str()), std::to_string(i % 10));
    EXPECT_EQ(store.GetParamCount(), 206u);
}

} // namespace
