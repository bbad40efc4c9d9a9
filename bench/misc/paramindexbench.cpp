// What it costs to find a parameter by its key, as the storage does it and in a sorted vector: each behind an atomic
// pointer, as readers that take no lock need it, with the keys of the grabber (11) and of the renderer (26).
#include "paramindex.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <utility>

namespace {

constexpr char const *GrabberKeys[] = {
    "FramesAcquired", "FramesDroppedHW", "FramesDroppedSW", "QueueFilled", "QueueSize", "Timestamp",
    "FrameID",        "FramesIncomp",    "FpsAvg",          "FpsInst",     "Speed"};
constexpr char const *RendererKeys[] = {"display.zoom.in",
                                        "display.zoom.out",
                                        "display.atcenter",
                                        "display.fit",
                                        "display.dump.on",
                                        "display.dump.off",
                                        "display.init.fit",
                                        "display.init.at.x",
                                        "display.init.at.y",
                                        "display.at.x",
                                        "display.at.y",
                                        "display.view.scale",
                                        "dump.x",
                                        "dump.y",
                                        "dump.w",
                                        "dump.h",
                                        "filter.id",
                                        "filter.name",
                                        "filter.channels",
                                        "filter.channel.0",
                                        "filter.state",
                                        "filter.add",
                                        "filter.del",
                                        "jpeg.quality",
                                        "movie.compressor",
                                        "movie.options"};

class StorageIndex
{
public:
    explicit StorageIndex(std::vector<ParamEntry *> const &entries)
    {
        for (ParamEntry *const entry : entries)
            m_index = std::make_unique<ParamIndex>(m_index ? *m_index : ParamIndex(), entry);
    }
    ParamEntry *Find(char const *key) const
    {
        return m_index->Find(key);
    }

private:
    std::unique_ptr<ParamIndex> m_index;
};

class SortedVector
{
public:
    explicit SortedVector(std::vector<ParamEntry *> const &entries)
    {
        for (ParamEntry *const entry : entries)
            m_vector.emplace_back(entry->record.name, entry);
        std::sort(m_vector.begin(), m_vector.end());
    }
    ParamEntry *Find(char const *key) const
    {
        std::string_view const wanted(key);
        auto const found = std::lower_bound(m_vector.begin(), m_vector.end(), wanted,
                                            [](auto const &item, std::string_view name) { return item.first < name; });
        return found != m_vector.end() && found->first == wanted ? found->second : nullptr;
    }

private:
    std::vector<std::pair<std::string_view, ParamEntry *>> m_vector;
};

// As an engine does frame by frame, in the order of registration, or in one that no branch predictor learns.
enum class Order { Fixed, Random };

template<class Index, std::size_t Count>
void Find(benchmark::State &state, char const *const (&keys)[Count], Order order)
{
    std::vector<std::unique_ptr<ParamEntry>> entries;
    std::vector<ParamEntry *> pointers;
    for (char const *const key : keys) {
        entries.push_back(std::make_unique<ParamEntry>());
        std::strcpy(entries.back()->record.name, key);
        pointers.push_back(entries.back().get());
    }
    auto const index = std::make_unique<Index>(pointers);
    std::atomic<Index *> published{index.get()};
    std::array<char const *, Count * 256> wanted;
    std::mt19937 random(1);
    for (std::size_t i = 0; i < wanted.size(); ++i)
        wanted[i] = keys[order == Order::Fixed ? i % Count : random() % Count];
    std::size_t at = 0;
    for (auto _ : state) {
        char const *key = wanted[at];
        at = at + 1 < wanted.size() ? at + 1 : 0;
        benchmark::DoNotOptimize(key);
        benchmark::DoNotOptimize(published.load(std::memory_order_acquire)->Find(key));
    }
}

template<class Index>
void Register(std::string const &name)
{
    for (Order const order : {Order::Fixed, Order::Random}) {
        std::string const tail = order == Order::Fixed ? "InOrder/" : "AtRandom/";
        benchmark::RegisterBenchmark(("Grabber" + tail + name).c_str(),
                                     [order](benchmark::State &state) { Find<Index>(state, GrabberKeys, order); });
        benchmark::RegisterBenchmark(("Renderer" + tail + name).c_str(),
                                     [order](benchmark::State &state) { Find<Index>(state, RendererKeys, order); });
    }
}

} // namespace

int main(int argc, char **argv)
{
    Register<StorageIndex>("storage");
    Register<SortedVector>("sorted_vector");
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
}
