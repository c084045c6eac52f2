// SPDX-License-Identifier: BSD-3-Clause
// How long it takes to match all rows of one descriptor matrix with all rows of another, beside
// other systems and beside a loop that only counts bits. Everything runs in one process, in turns,
// and the least time of each counts: on a shared machine only ratios from one run can be compared.
#include <malloc.h>
#include <omp.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "end_to_end/matching_agreement.h"
#include "end_to_end/matching_rows.h"
#include "end_to_end/matching_systems.h"
#include "libfeatures/matchers/desc_matcher_dist_frac.h"
#include "libfeatures/matchers/desc_matcher_dist_frac_mutual.h"
#include "libfeatures/matchers/desc_matcher_left_right.h"
#include "support/system.h"
#include "support/thread_count_guard.h"
#include "utilities/machine.h"
#include "utilities/memory.h"
#include "utilities/timing.h"

namespace marlo::bench {
namespace {

constexpr const char* kUsage =
    "usage: matching_bench [QUERY_PHOTOGRAPH TRAIN_PHOTOGRAPH] [options]\n"
    "Matches random rows; or, of two photographs that overlap, the SIFT rows and, as binary\n"
    "rows, the signs of random projections of these.\n"
    "  --rows N,N...     rows a side (default 2000,10000,30000), of photographs at most all\n"
    "  --threads N,N...  threads of every system, in turns (default 1)\n"
    "  --repeats N       turns (default 5)\n"
    "  --seconds S       no further turn for a system after this time on rows (default 15)\n"
    "  --kind K          binary or float (default both)\n"
    "  --widths          binary rows of 8, 32, 64 and 128 columns, too\n"
    "  --alone           this library and the bit-count loops only\n"
    "Instead of the above:\n"
    "  --thread-rule     what it costs that DistFrac takes one thread for few binary rows\n"
    "  --memory N        peak memory and time of DistFrac on one thread and on all, for N x N\n"
    "                    binary rows of 16 columns that all have a match (try 100000)\n";

struct Options {
    std::vector<std::string> photographs;
    std::vector<int> rows{2000, 10000, 30000};
    std::vector<int> threads{1};
    int repeats = 5;
    double seconds = 15.0;
    bool binary = true;
    bool floats = true;
    bool widths = false;
    bool alone = false;
    bool threadRule = false;
    int memoryRows = 0;
};

bool parsePositive(std::string_view text, int& value) {
    const char* const end = text.data() + text.size();
    const auto [next, error] = std::from_chars(text.data(), end, value);
    return error == std::errc{} && next == end && value > 0;
}

bool parseList(std::string_view text, std::vector<int>& values) {
    values.clear();
    while (true) {
        const std::size_t comma = std::min(text.find(','), text.size());
        if (!parsePositive(text.substr(0, comma), values.emplace_back())) return false;
        if (comma == text.size()) return true;
        text.remove_prefix(comma + 1);
    }
}

bool parse(int argc, char** argv, Options& options) {
    for (int i = 1; i < argc; ++i) {
        const std::string_view argument = argv[i];
        const std::string_view value = i + 1 < argc ? argv[i + 1] : "";
        bool good = true;
        if (argument == "--widths") {
            options.widths = true;
        } else if (argument == "--alone") {
            options.alone = true;
        } else if (argument == "--thread-rule") {
            options.threadRule = true;
        } else if (!argument.starts_with("-")) {
            options.photographs.emplace_back(argument);
        } else {
            ++i;
            if (argument == "--rows") {
                good = parseList(value, options.rows);
            } else if (argument == "--threads") {
                good = parseList(value, options.threads);
            } else if (argument == "--repeats") {
                good = parsePositive(value, options.repeats);
            } else if (argument == "--memory") {
                good = parsePositive(value, options.memoryRows);
            } else if (argument == "--seconds") {
                options.seconds = std::atof(std::string(value).c_str());
                good = options.seconds > 0.0;
            } else if (argument == "--kind") {
                options.binary = value == "binary";
                options.floats = value == "float";
                good = options.binary || options.floats;
            } else {
                good = false;
            }
        }
        if (!good) return false;
    }
    return options.photographs.empty() || options.photographs.size() == 2;
}

void setThreads(int threads) {
    omp_set_num_threads(threads);
    setOpenCvThreads(threads);
    setOpenBlasThreads(threads);
}

// ---- one system's turns ----------------------------------------------------------------------

// A system and its least time.
struct Measured {
    MatchingSystem* system = nullptr;
    double seconds = std::numeric_limits<double>::infinity();
    double allSeconds = 0.0;
    int runs = 0;

    // Short searches are repeated for a while: the first ones find cold caches and sleeping
    // threads, which says nothing about a system.
    void takeTurn() {
        constexpr double kLeastSeconds = 0.1;
        // Threads of the system before may wait actively for more work; now they fall asleep.
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        double turn = 0.0;
        while (turn < kLeastSeconds) {
            const double run = secondsOf([&] { system->run(); });
            seconds = std::min(seconds, run);
            turn += run;
            ++runs;
        }
        allSeconds += turn;
    }
};

using Systems = std::vector<std::unique_ptr<MatchingSystem>>;

template <typename Matcher>
std::unique_ptr<LibfeaturesMatching> makeOwn(const char* name, const RowPair& rows) {
    return std::make_unique<LibfeaturesMatching>(name, std::make_unique<Matcher>(), rows.query,
                                                 rows.train);
}

Systems makePeers(const RowPair& rows, bool alone) {
    Systems peers;
    const auto add = [&](std::unique_ptr<MatchingSystem> peer) {
        if (peer != nullptr) peers.push_back(std::move(peer));
    };
    add(makeBitCountLoop(rows.query, rows.train, 1));
    add(makeBitCountLoop(rows.query, rows.train, 4));
    if (alone) return peers;
    add(makeOpenBlasProduct(rows.query, rows.train));
    add(makeOpenCvMatching(rows.query, rows.train));
    add(makeFaissMatching(rows.query, rows.train));
    return peers;
}

Systems makeOwnSystems(const RowPair& rows) {
    Systems own;
    own.push_back(makeOwn<DescMatcherDistFrac>("DistFrac", rows));
    own.push_back(makeOwn<DescMatcherDistFracMutual>("DistFracMutual", rows));
    if (rows.query.type() == DescMat::Byte) {
        own.push_back(makeOwn<DescMatcherLeftRight>("LeftRight", rows));
    }
    return own;
}

// ---- tables ----------------------------------------------------------------------------------

double pairsOf(const RowPair& rows) {
    return static_cast<double>(rows.query.rows) * rows.train.rows;
}

// Every system with one number of threads.
struct Round {
    int threads = 1;
    std::vector<Measured> peers;
    std::vector<Measured> own;  // DistFrac first
};

// The rule of DistFrac for binary rows, as its header states it.
constexpr int kBlockRows = 728;

int blocksOf(int queryRows) {
    return std::max(1, queryRows / kBlockRows);
}
bool takesOneThread(const RowPair& rows) {
    return rows.query.type() == DescMat::Byte &&
           system::noLogicalCPUs() >= blocksOf(rows.query.rows);
}

// Peers have long names: their ratios stand under the letters that their lines begin with.
void printLine(char letter, const Measured& line, double pairs, const Round& round,
               const Measured* oneThread) {
    std::printf("%c %-24s%6d%11.2f%11.3f", letter, line.system->name.c_str(), line.runs,
                line.seconds * 1e3, pairs / line.seconds * 1e-9);
    for (const Measured& peer : round.peers) std::printf("%9.2f", peer.seconds / line.seconds);
    std::printf("%12.2f", line.seconds / round.own[0].seconds);
    if (oneThread != nullptr) std::printf("%12.2f", oneThread->seconds / line.seconds);
    std::printf("\n");
}

// `oneThread`: the round to compare threads with, if there is one.
void printTable(const RowPair& rows, const Round& round, const Round* oneThread) {
    const auto letterOf = [](std::size_t i) { return static_cast<char>('A' + i); };
    std::printf(
        "\n%d thread%s; x A: times faster than A; / DistFrac: time in times of DistFrac's\n",
        round.threads, round.threads == 1 ? "" : "s");
    std::printf("  %-24s%6s%11s%11s", "system", "runs", "ms", "G pairs/s");
    for (std::size_t i = 0; i < round.peers.size(); ++i) std::printf("      x %c", letterOf(i));
    std::printf("  / DistFrac%s\n", oneThread != nullptr ? "  x 1 thread" : "");
    const double pairs = pairsOf(rows);
    for (std::size_t i = 0; i < round.peers.size(); ++i) {
        printLine(letterOf(i), round.peers[i], pairs, round,
                  oneThread != nullptr ? &oneThread->peers[i] : nullptr);
    }
    for (std::size_t i = 0; i < round.own.size(); ++i) {
        printLine(' ', round.own[i], pairs, round,
                  oneThread != nullptr ? &oneThread->own[i] : nullptr);
    }
    if (round.threads > 1 && rows.query.type() == DescMat::Byte) {
        std::printf("LeftRight has one thread%s\n",
                    takesOneThread(rows) ? ", and so has DistFrac for so few query rows" : "");
    }
}

// Measures all systems on these rows; false if they do not agree.
bool compareOn(const RowPair& rows, const char* what, const Options& options) {
    Systems peers = makePeers(rows, options.alone);
    Systems own = makeOwnSystems(rows);
    std::vector<Round> rounds;
    for (const int threads : options.threads) {
        Round& round = rounds.emplace_back();
        round.threads = threads;
        for (std::size_t i = 0; i < peers.size(); ++i) round.peers.push_back({peers[i].get()});
        for (const auto& system : own) round.own.push_back({system.get()});
    }

    std::printf("\n==== %s rows of %d %s, %d x %d\n", what, rows.query.cols,
                rows.query.type() == DescMat::Byte ? "bytes" : "floats", rows.query.rows,
                rows.train.rows);
    bool agreed = true;
    for (int turn = 0; turn < options.repeats; ++turn) {
        for (Round& round : rounds) {
            setThreads(round.threads);
            for (auto* systems : {&round.peers, &round.own}) {
                for (Measured& measured : *systems) {
                    if (measured.allSeconds < options.seconds) measured.takeTurn();
                }
            }
        }
        if (turn > 0) continue;
        std::vector<const MatchingSystem*> searches;
        for (const auto& peer : peers) searches.push_back(peer.get());
        agreed = checkAgreement(rows.query, rows.train, searches);
    }

    const auto one = std::find_if(rounds.begin(), rounds.end(),
                                  [](const Round& round) { return round.threads == 1; });
    for (const Round& round : rounds) {
        const bool compareThreads = round.threads != 1 && one != rounds.end();
        printTable(rows, round, compareThreads ? &*one : nullptr);
    }
    for (const auto& peer : peers) {
        if (!peer->remark.empty()) {
            std::printf("%s: %s\n", peer->name.c_str(), peer->remark.c_str());
        }
    }
    std::fflush(stdout);
    return agreed;
}

bool compareAll(const Options& options) {
    std::optional<PhotographRows> photographs;
    if (!options.photographs.empty()) {
        photographs.emplace(options.photographs[0], options.photographs[1]);
    }
    const char* const what = photographs ? "photographs'" : "random";
    std::vector<int> widths{16};
    if (options.widths) widths = {8, 16, 32, 64, 128};

    bool agreed = true;
    for (const int rows : options.rows) {
        for (const int cols : widths) {
            if (!options.binary) break;
            agreed &= compareOn(
                photographs ? photographs->binaryRows(rows, cols) : randomBinaryRows(rows, cols),
                what, options);
        }
        if (!options.floats) continue;
        agreed &= compareOn(photographs ? photographs->floatRows(rows) : randomFloatRows(rows),
                            what, options);
    }
    return agreed;
}

// ---- the rule of threads ---------------------------------------------------------------------

// DistFrac on all threads, whatever its rule says: every thread matches its share of the query
// rows.
class SharedOut : public MatchingSystem {
public:
    SharedOut(const RowPair& rows, int shares) : train_(rows.train) {
        name = "DistFrac in shares";
        for (int i = 0; i < shares; ++i) {
            const auto edge = [&](int share) {
                return static_cast<int>(std::int64_t{rows.query.rows} * share / shares);
            };
            DescMat& share = queries_.emplace_back();
            share.create(edge(i + 1) - edge(i), rows.query.cols, rows.query.type());
            for (int q = 0; q < share.rows; ++q) {
                DescMat to = share.row(q);
                rows.query.row(edge(i) + q).copyTo(to);
            }
        }
    }

    void run() override {
        const int shares = static_cast<int>(queries_.size());
#pragma omp parallel for num_threads(shares) schedule(static, 1)
        for (int i = 0; i < shares; ++i) {
            const ThreadCountGuard guard;
            const DescMatcherDistFrac matcher;
            static_cast<void>(matcher.match(queries_[static_cast<std::size_t>(i)], train_));
        }
    }

private:
    const DescMat& train_;
    std::vector<DescMat> queries_;
};

void compareThreadRule(const Options& options) {
    const int processors = system::noLogicalCPUs();
    setThreads(processors);
    std::printf(
        "\nDistFrac takes one thread for binary rows where there are at least as many processors "
        "(here %d) as blocks of %d query rows.\nRandom rows of 16 bytes, as many query as train "
        "rows, milliseconds:\n",
        processors, kBlockRows);
    std::printf("%8s%8s%10s%10s%20s%16s%12s\n", "rows", "blocks", "threads", "DistFrac",
                "in shares, all", "DistFracMutual", "rule costs");
    for (const int rows : {500, 1000, 2000, 4000, 10000, 30000}) {
        const RowPair pair = randomBinaryRows(rows, 16);
        const auto ruled = makeOwn<DescMatcherDistFrac>("DistFrac", pair);
        const auto mutual = makeOwn<DescMatcherDistFracMutual>("DistFracMutual", pair);
        SharedOut shared(pair, processors);
        Measured measured[] = {{ruled.get()}, {&shared}, {mutual.get()}};
        for (int turn = 0; turn < options.repeats; ++turn) {
            for (Measured& one : measured) {
                if (one.allSeconds < options.seconds) one.takeTurn();
            }
        }
        std::printf("%8d%8d%10d%10.2f%20.2f%16.2f%11.2fx\n", rows, blocksOf(rows),
                    takesOneThread(pair) ? 1 : processors, measured[0].seconds * 1e3,
                    measured[1].seconds * 1e3, measured[2].seconds * 1e3,
                    measured[0].seconds / measured[1].seconds);
        std::fflush(stdout);
    }
}

// ---- memory ----------------------------------------------------------------------------------

void measureMemory(int rows) {
    const RowPair pair = noisyCopies(rows);
    const double rowBytes = 2.0 * rows * static_cast<double>(pair.query.step);
    std::printf("\nDistFrac, %d x %d rows of 16 bytes (%.1f MiB)\n", rows, rows,
                rowBytes / 1048576.0);
    std::printf("%8s%10s%12s%12s%16s%16s%18s\n", "threads", "seconds", "G pairs/s", "matches",
                "peak more, MiB", "matches, MiB", "process, MiB");
    std::vector<int> threadCounts{1};
    if (system::noLogicalCPUs() > 1) threadCounts.push_back(system::noLogicalCPUs());
    for (const int threads : threadCounts) {
        omp_set_num_threads(threads);
        LibfeaturesMatching system("DistFrac", std::make_unique<DescMatcherDistFrac>(), pair.query,
                                   pair.train);
        malloc_trim(0);  // or the second search would find the memory of the first
        resetPeak();
        const double before = residentBytes();
        const double seconds = secondsOf([&] { system.run(); });
        const double matchBytes = static_cast<double>(system.matches().capacity() * sizeof(DMatch));
        std::printf("%8d%10.2f%12.3f%12zu%16.1f%16.1f%18.1f\n", threads, seconds,
                    pairsOf(pair) / seconds * 1e-9, system.matches().size(),
                    (peakBytes() - before) / 1048576.0, matchBytes / 1048576.0,
                    peakBytes() / 1048576.0);
        std::fflush(stdout);
    }
}

// ---- conditions ------------------------------------------------------------------------------

std::string instructionSets() {
    std::string names;
#if defined(__x86_64__)
    const auto add = [&](const char* name, int isSupported) {
        names += std::string(names.empty() ? "" : ", ") + (isSupported != 0 ? "" : "no ") + name;
    };
    add("POPCNT", __builtin_cpu_supports("popcnt"));
    add("AVX2", __builtin_cpu_supports("avx2"));
    add("FMA", __builtin_cpu_supports("fma"));
    add("AVX-512F", __builtin_cpu_supports("avx512f"));
    add("BITALG", __builtin_cpu_supports("avx512bitalg"));
    add("VPOPCNTDQ", __builtin_cpu_supports("avx512vpopcntdq"));
#endif
    return names;
}

void printConditions(const Options& options) {
    const auto list = [](const std::vector<int>& values) {
        std::string text;
        for (const int value : values) text += (text.empty() ? "" : ", ") + std::to_string(value);
        return text;
    };
    const auto version = [](const std::string& text) {
        return text.empty() ? std::string("not built in") : text;
    };
    const MachineLimits machine = measureMachineLimits(1);
    std::printf("processor   %s, %.2f GHz, %d of them\n", processorName().c_str(),
                machine.cyclesPerSecond * 1e-9, system::noLogicalCPUs());
    std::printf("has         %s\n", instructionSets().c_str());
    std::printf("compiler    %s %s\n", compilerName().c_str(), compilerFlags().c_str());
    std::printf("arithmetic  %.1f GFLOP/s on one thread: at most %.3f G products of 128 floats/s\n",
                machine.flopsPerSecond() * 1e-9, machine.flopsPerSecond() * 1e-9 / 256.0);
    std::printf("OpenCV      %s\n", version(openCvVersion()).c_str());
    std::printf("FAISS       %s\n", version(faissVersion()).c_str());
    std::printf("OpenBLAS    %s\n", version(openBlasVersion()).c_str());
    std::printf("threads     %s\n", list(options.threads).c_str());
    std::printf("repeats     %d\n", options.repeats);
    std::fflush(stdout);
}

int run(const Options& options) {
    printConditions(options);
    if (options.memoryRows > 0) {
        measureMemory(options.memoryRows);
        return 0;
    }
    if (options.threadRule) {
        compareThreadRule(options);
        return 0;
    }
    return compareAll(options) ? 0 : 1;
}

}  // namespace
}  // namespace marlo::bench

int main(int argc, char** argv) {
    marlo::bench::Options options;
    if (!marlo::bench::parse(argc, argv, options)) {
        std::fputs(marlo::bench::kUsage, stderr);
        return 2;
    }
    try {
        return marlo::bench::run(options);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
}
