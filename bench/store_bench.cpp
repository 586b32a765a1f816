// Single operations at growing sizes: the reader, the sort, host patterns and lookups by name.
#include "frag_tools.h"
#include "name_index.h"
#include "shapes.h"
#include "upgrade.h"

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

// One file of a corpus in the scratch folder, removed at the end.
struct corpus_file {
    std::string path = std::filesystem::temp_directory_path() / "store_bench.XXXXXX";

    corpus_file(const char *shape, long size) {
        int file = mkstemp(path.data());
        FILE *out = file < 0 ? nullptr : fdopen(file, "w");
        if (!out || !write_corpus(out, shape, size, 1) || fclose(out) != 0)
            abort();
    }
    ~corpus_file() { unlink(path.c_str()); }
    corpus_file(const corpus_file &) = delete;
    corpus_file &operator=(const corpus_file &) = delete;
};

void read_file(benchmark::State &state, const char *shape) {
    corpus_file file(shape, state.range(0));
    for (auto _ : state) {
        Frag *list = nullptr;
        importffile(file.path.c_str(), &list, 0);
        state.PauseTiming();
        freelist(list);
        state.ResumeTiming();
    }
    state.SetComplexityN(state.range(0));
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK_CAPTURE(read_file, environment, "environment")->RangeMultiplier(10)->Range(1000, 100000)->Complexity();
BENCHMARK_CAPTURE(read_file, siblings, "siblings")->RangeMultiplier(10)->Range(1000, 100000)->Complexity();

// A sibling list of numbers from 1 up in the order that `place` gives them.
template <class Place> Frag *numbered_list(long size, Place place) {
    Frag *list = nullptr;
    for (long n = size; n > 0; n--)
        pushfrag(&list, newsymfrag(std::to_string(place(n)).c_str(), std::to_string(place(n)).size()), nullptr);
    return list;
}

void relink(const std::vector<Frag *> &order) {
    for (size_t i = 0; i < order.size(); i++)
        order[i]->next = i + 1 < order.size() ? order[i + 1] : nullptr;
}

template <class Place> void sort_list(benchmark::State &state, Place place) {
    Frag *list = numbered_list(state.range(0), place);
    std::vector<Frag *> order;
    for (Frag *frag = list; frag; frag = frag->next)
        order.push_back(frag);
    for (auto _ : state) {
        state.PauseTiming();
        relink(order);
        list = order.front();
        state.ResumeTiming();
        sort_frags(&list);
    }
    freelist(list);
    state.SetComplexityN(state.range(0));
}
void sort_in_order(benchmark::State &state) {
    sort_list(state, [](long n) { return n; });
}
void sort_descending(benchmark::State &state) {
    sort_list(state, [](long n) { return 10000000 - n; });
}
void sort_scattered(benchmark::State &state) {
    sort_list(state, [](long n) { return n * 7368787 % 15485863; });
}
BENCHMARK(sort_in_order)->RangeMultiplier(10)->Range(1000, 100000)->Complexity();
BENCHMARK(sort_descending)->RangeMultiplier(10)->Range(1000, 100000)->Complexity();
BENCHMARK(sort_scattered)->RangeMultiplier(10)->Range(1000, 100000)->Complexity();

void match_host(benchmark::State &state, const char *pattern, const char *subject) {
    for (auto _ : state)
        benchmark::DoNotOptimize(wildmatch(pattern, subject));
}
BENCHMARK_CAPTURE(match_host, exact, "h17.lab.example.com", "h17.lab.example.com -log");
BENCHMARK_CAPTURE(match_host, trailing_star, "10.1.*", "10.1.2.3 -log");
BENCHMARK_CAPTURE(match_host, leading_star, "*.example.com", "h17.lab.example.com");
BENCHMARK_CAPTURE(match_host, no_match, "10.1.*", "h17.lab.example.com");

// A pattern of many stars against a long word that it only fails on at the end.
void match_stars(benchmark::State &state) {
    std::string pattern, subject(static_cast<size_t>(state.range(0)), 'a');
    for (long n = 0; n < state.range(0) / 8; n++)
        pattern += "*aab";
    pattern += "*c";
    for (size_t i = 2; i < subject.size(); i += 3)
        subject[i] = 'b';
    for (auto _ : state)
        benchmark::DoNotOptimize(wildmatch(pattern.c_str(), subject.c_str()));
    state.SetComplexityN(state.range(0));
}
BENCHMARK(match_stars)->RangeMultiplier(8)->Range(64, 32768)->Complexity();

// Looks every name of the list up once, in no order.
template <class Find> void look_up(benchmark::State &state, Find find) {
    std::vector<std::string> names;
    for (long n = 1; n <= state.range(0); n++)
        names.push_back(std::to_string(n * 7368787 % 15485863));
    for (auto _ : state)
        for (const std::string &name : names)
            benchmark::DoNotOptimize(find(name));
    state.SetComplexityN(state.range(0));
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
void look_up_walking(benchmark::State &state) {
    Frag *list = numbered_list(state.range(0), [](long n) { return n * 7368787 % 15485863; });
    look_up(state, [&](const std::string &name) { return ffind(&list, name.c_str()); });
    freelist(list);
}
void look_up_indexed(benchmark::State &state) {
    Frag *list = numbered_list(state.range(0), [](long n) { return n * 7368787 % 15485863; });
    name_index index(&list);
    look_up(state, [&](const std::string &name) { return index.find(name); });
    freelist(list);
}
void build_index(benchmark::State &state) {
    Frag *list = numbered_list(state.range(0), [](long n) { return n * 7368787 % 15485863; });
    for (auto _ : state) {
        name_index index(&list);
        benchmark::DoNotOptimize(index.find("1"));
    }
    freelist(list);
    state.SetComplexityN(state.range(0));
}
BENCHMARK(look_up_walking)->Arg(8)->Arg(16)->Arg(64)->Arg(1000);
BENCHMARK(look_up_indexed)->Arg(8)->Arg(16)->Arg(64)->Arg(1000)->Arg(100000);
BENCHMARK(build_index)->RangeMultiplier(10)->Range(1000, 100000)->Complexity();

} // namespace

BENCHMARK_MAIN();
