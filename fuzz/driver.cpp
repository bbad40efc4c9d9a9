// Replays inputs and mutates them: fuzz_x [-n executions] [-s seed] [-m bytes] [-d dictionary] file-or-folder...
//
// The input under test lies in "<program>.<pid>.input", which stays when the process dies of it.
#include "driver.h"

#include "mutator.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <sys/mman.h>
#include <unistd.h>
#include <vector>

namespace fs = std::filesystem;

namespace {

constexpr unsigned Patience = 60; // seconds for one input
constexpr std::size_t PoolLimit = 2000;

// Where the current input can be found after a crash.
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
        // What follows belongs to another input.
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

std::string ReadFile(fs::path const &path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

struct Options
{
    std::uint64_t executions = 0;
    std::uint32_t seed = 1;
    std::size_t longest = 1u << 16;
    std::vector<std::string> words; // of the format
    std::vector<fs::path> files;
};

// The words of a dictionary as libFuzzer has them: a line each, between quotation marks, with \", \\ and \xAB.
std::vector<std::string> ReadWords(fs::path const &path)
{
    std::vector<std::string> words;
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) {
        std::size_t const begin = line.find('"'), end = line.rfind('"');
        if (line.empty() || line[0] == '#' || begin >= end)
            continue;
        std::string &word = words.emplace_back();
        for (std::size_t i = begin + 1; i < end; ++i) {
            if (line[i] != '\\') {
                word += line[i];
            } else if (line[++i] == 'x') {
                word += static_cast<char>(std::stoi(line.substr(i + 1, 2), nullptr, 16));
                i += 2;
            } else {
                word += line[i];
            }
        }
    }
    return words;
}

Options ReadArguments(int argc, char **argv)
{
    Options options;
    for (int i = 1; i < argc; ++i) {
        std::string const argument = argv[i];
        auto const number = [&] {
            return ++i < argc ? std::strtoull(argv[i], nullptr, 10) : 0;
        };
        if (argument == "-n") {
            options.executions = number();
        } else if (argument == "-s") {
            options.seed = static_cast<std::uint32_t>(number());
        } else if (argument == "-m") {
            options.longest = number();
        } else if (argument == "-d") {
            options.words = ReadWords(++i < argc ? argv[i] : "");
        } else if (fs::is_directory(argument)) {
            for (auto const &entry : fs::directory_iterator(argument))
                options.files.push_back(entry.path());
        } else {
            options.files.push_back(argument);
        }
    }
    std::sort(options.files.begin(), options.files.end()); // the same run for the same seed
    return options;
}

// True for an input that was accepted.
bool Run(BlackBox &box, std::string const &input)
{
    box.Keep(input);
    alarm(Patience); // its signal ends the process
    // Of its own size, so that reading beyond it is noticed.
    std::vector<std::uint8_t> const bytes(input.begin(), input.end());
    return LLVMFuzzerTestOneInput(bytes.data(), bytes.size()) == 0;
}

// An accepted input replaces an older one. Returns how many were accepted.
std::uint64_t RunMutations(BlackBox &box, Options const &options, std::vector<std::string> &pool)
{
    std::uint64_t passed = 0;
    Mutator mutator(options.seed, options.words);
    std::size_t const originals = pool.size();
    for (std::uint64_t i = 0; i < options.executions; ++i) {
        std::string input = mutator.Mutate(pool);
        input.resize(std::min(input.size(), options.longest));
        if (!Run(box, input))
            continue;
        ++passed;
        if (pool.size() < PoolLimit)
            pool.push_back(std::move(input));
        else
            pool[originals + passed % (PoolLimit - originals)] = std::move(input);
    }
    return passed;
}

} // namespace

void FuzzFail(char const *what)
{
    std::fprintf(stderr, "%s\n", what);
    std::abort();
}

int main(int argc, char **argv)
{
    Options const options = ReadArguments(argc, argv);
    std::vector<std::string> pool;
    for (fs::path const &file : options.files)
        pool.push_back(ReadFile(file));
    if (pool.empty()) {
        std::fprintf(stderr, "usage: %s [-n executions] [-s seed] [-m bytes] [-d dictionary] file-or-folder...\n",
                     argv[0]);
        return 2;
    }
    std::size_t capacity = options.longest;
    for (std::string const &input : pool)
        capacity = std::max(capacity, input.size());
    BlackBox box(fs::path(argv[0]).filename(), capacity);
    std::uint64_t passed = 0;
    for (std::string const &input : pool)
        passed += Run(box, input);
    std::printf("%zu files, %llu got through\n", pool.size(), static_cast<unsigned long long>(passed));

    auto const begin = std::chrono::steady_clock::now();
    passed = RunMutations(box, options, pool);
    double const seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
    if (options.executions > 0)
        std::printf("%llu mutations, %llu got through, %.0f s\n", static_cast<unsigned long long>(options.executions),
                    static_cast<unsigned long long>(passed), seconds);
    return 0;
}
