// Replays inputs and mutates them: fuzz_x [-n executions] [-s seed] [-m bytes] file-or-folder...
//
// The input under test lies in "<program>.<pid>.input", which stays when the process dies of it.
#include "driver.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <sys/mman.h>
#include <unistd.h>
#include <vector>

namespace fs = std::filesystem;

namespace {

constexpr unsigned Patience = 60; // seconds for one input
constexpr std::size_t PoolLimit = 2000;

// Where the present input can be found by whoever looks after a crash.
class BlackBox
{
public:
    BlackBox(std::string const &program, std::size_t capacity)
        : m_path(program + '.' + std::to_string(getpid()) + ".input"),
          m_capacity(capacity)
    {
        m_file = open(m_path.c_str(), O_RDWR | O_CREAT | O_TRUNC, 0644);
        void *memory = MAP_FAILED;
        if (m_file >= 0 && ftruncate(m_file, static_cast<off_t>(capacity)) == 0)
            memory = mmap(nullptr, capacity, PROT_READ | PROT_WRITE, MAP_SHARED, m_file, 0);
        if (memory == MAP_FAILED) {
            std::perror(m_path.c_str());
            std::exit(2);
        }
        m_memory = static_cast<char *>(memory);
    }
    ~BlackBox()
    {
        munmap(m_memory, m_capacity);
        close(m_file);
        unlink(m_path.c_str());
    }
    void Keep(std::string const &input)
    {
        std::memcpy(m_memory, input.data(), input.size());
        // What is behind it was another input's.
        if (m_used > input.size())
            std::memset(m_memory + input.size(), 0, m_used - input.size());
        m_used = input.size();
    }

private:
    std::string const m_path;
    std::size_t const m_capacity;
    int m_file;
    char *m_memory;
    std::size_t m_used = 0;
};

class Mutator
{
public:
    explicit Mutator(std::uint32_t seed) : m_random(seed)
    {
        for (char const *const *word = FuzzWords; *word; ++word)
            m_words.push_back(*word);
    }

    std::string Mutate(std::vector<std::string> const &pool)
    {
        std::string input = pool[Below(pool.size())];
        for (std::size_t times = 1 + Below(6); times > 0; --times)
            Change(input, pool);
        return input;
    }

private:
    std::size_t Below(std::size_t limit)
    {
        return limit == 0 ? 0 : m_random() % limit;
    }

    // A run of letters, digits and the like, or of digits alone.
    std::pair<std::size_t, std::size_t> FindWord(std::string const &text, bool number)
    {
        auto const belongs = [number](char c) {
            return (c >= '0' && c <= '9') ||
                   (!number && (c == '_' || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z')));
        };
        std::size_t begin = Below(text.size() + 1);
        while (begin < text.size() && !belongs(text[begin]))
            ++begin;
        while (begin > 0 && begin < text.size() && belongs(text[begin - 1]))
            --begin;
        std::size_t end = begin;
        while (end < text.size() && belongs(text[end]))
            ++end;
        return {begin, end - begin};
    }

    void Change(std::string &input, std::vector<std::string> const &pool)
    {
        static constexpr char const *Numbers[] = {"0",
                                                  "-1",
                                                  "1",
                                                  "255",
                                                  "65536",
                                                  "2147483647",
                                                  "4294967295",
                                                  "-2147483648",
                                                  "9223372036854775807",
                                                  "-9223372036854775808",
                                                  "99999999999999999999",
                                                  "0x7fffffffffffffff",
                                                  "1e308",
                                                  "nan",
                                                  "0.5"};
        std::size_t const at = Below(input.size() + 1);
        std::size_t const length = Below(std::min<std::size_t>(input.size() - at, 1u << Below(9)) + 1);
        switch (Below(11)) {
        case 0:
            if (at < input.size())
                input[at] = static_cast<char>(input[at] ^ (1 << Below(8)));
            break;
        case 1:
            input.insert(at, 1 + Below(4), static_cast<char>(Below(256)));
            break;
        case 2:
            input.erase(at, length);
            break;
        case 3: {
            std::string const part = input.substr(at, length);
            input.insert(Below(input.size() + 1), part);
            break;
        }
        case 4: {
            std::string const &other = pool[Below(pool.size())];
            std::size_t const from = Below(other.size() + 1);
            input.insert(at, other.substr(from, Below(300)));
            break;
        }
        case 5: {
            auto const [begin, size] = FindWord(input, true);
            input.replace(begin, size, Numbers[Below(std::size(Numbers))]);
            break;
        }
        case 6: // a name stands where another one stood
        case 7: {
            auto const [from, fromSize] = FindWord(input, false);
            std::string const word = input.substr(from, fromSize);
            auto const [begin, size] = FindWord(input, false);
            input.replace(begin, size, word);
            break;
        }
        case 8:
            if (!m_words.empty()) {
                auto const [begin, size] = FindWord(input, false);
                input.replace(begin, size, m_words[Below(m_words.size())]);
            }
            break;
        case 9: { // a line moves
            std::size_t const begin = input.rfind('\n', at) + 1;
            std::size_t const end = std::min(input.find('\n', at), input.size() - 1) + 1;
            if (begin < end && end <= input.size()) {
                std::string const line = input.substr(begin, end - begin);
                if (Below(2))
                    input.erase(begin, end - begin);
                std::size_t const place = input.find('\n', Below(input.size() + 1));
                input.insert(place == std::string::npos ? input.size() : place + 1, line);
            }
            break;
        }
        default:
            if (Below(20) == 0)
                input.resize(at);
            break;
        }
    }

    std::minstd_rand m_random;
    std::vector<std::string> m_words;
};

std::string ReadFile(fs::path const &path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

} // namespace

void FuzzFail(char const *what)
{
    std::fprintf(stderr, "%s\n", what);
    std::abort();
}

int main(int argc, char **argv)
{
    std::uint64_t executions = 0;
    std::uint32_t seed = 1;
    std::size_t longest = 1u << 16;
    std::vector<fs::path> files;
    for (int i = 1; i < argc; ++i) {
        std::string const argument = argv[i];
        auto const number = [&] {
            return ++i < argc ? std::strtoull(argv[i], nullptr, 10) : 0;
        };
        if (argument == "-n") {
            executions = number();
        } else if (argument == "-s") {
            seed = static_cast<std::uint32_t>(number());
        } else if (argument == "-m") {
            longest = number();
        } else if (fs::is_directory(argument)) {
            for (auto const &entry : fs::directory_iterator(argument))
                files.push_back(entry.path());
        } else {
            files.push_back(argument);
        }
    }
    std::sort(files.begin(), files.end()); // the same run for the same seed
    std::vector<std::string> pool;
    for (fs::path const &file : files)
        pool.push_back(ReadFile(file));
    if (pool.empty()) {
        std::fprintf(stderr, "usage: %s [-n executions] [-s seed] [-m bytes] file-or-folder...\n", argv[0]);
        return 2;
    }

    std::size_t capacity = longest;
    for (std::string const &input : pool)
        capacity = std::max(capacity, input.size());
    BlackBox box(fs::path(argv[0]).filename(), capacity);
    auto const run = [&box](std::string const &input) {
        box.Keep(input);
        alarm(Patience); // its signal ends the process
        // Of its own size, so that reading beyond it is noticed.
        std::vector<std::uint8_t> const bytes(input.begin(), input.end());
        return LLVMFuzzerTestOneInput(bytes.data(), bytes.size()) == 0;
    };
    std::uint64_t passed = 0;
    for (std::string const &input : pool)
        passed += run(input);
    std::printf("%zu files, %llu got through\n", pool.size(), static_cast<unsigned long long>(passed));
    passed = 0;
    Mutator mutator(seed);
    std::size_t const originals = pool.size();
    auto const begin = std::chrono::steady_clock::now();
    for (std::uint64_t i = 0; i < executions; ++i) {
        std::string input = mutator.Mutate(pool);
        input.resize(std::min(input.size(), longest));
        if (!run(input))
            continue;
        ++passed;
        // What gets through takes the place of an older one.
        if (pool.size() < PoolLimit)
            pool.push_back(std::move(input));
        else
            pool[originals + passed % (PoolLimit - originals)] = std::move(input);
    }
    double const seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
    if (executions > 0)
        std::printf("%llu mutations, %llu got through, %.0f s\n", static_cast<unsigned long long>(executions),
                    static_cast<unsigned long long>(passed), seconds);
    return 0;
}
