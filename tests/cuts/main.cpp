// Power cuts, simulated:  cuts [--states N] [--seed S] [--seeds COUNT]
//
// The real recorder records short scenarios; the cards that a cut can make of what it wrote are judged, one by one:
// each page old, new or torn while the rest is old, and new; then drawn ones; then some that are recorded on and cut
// again.
// --seeds: so many seeds one after the other, `states` each, in one table.
#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>

#include "Judge.h"
#include "Scenarios.h"
#include "libRecordFile.h"

namespace cuts {
namespace {

constexpr size_t kRepairEvery = 50;      // states
constexpr size_t kSecondCutEvery = 500;  // states are recorded on
constexpr size_t kSecondCuts = 100;      // states of each of these
constexpr size_t kToldMax = 20;          // faults, each with its card in words

struct Options {
    size_t states = 10000;
    size_t seed = 1;
    size_t seeds = 1;
};

struct Tally {
    size_t states = 0;
    uint32_t lost = 0;     // frames at most, in cards with this one row
    uint32_t claimed = 0;  // the same
    std::set<std::string> errors;
};

// One recorded tape and its cards.
struct Take {
    Take(Medium& medium, Recorder& recorder, const Script& script, const std::set<Row>& rows_before = {})
        : tape(medium), judge(medium, recorder, tape, recorder.Record(script, &tape), rows_before) {}

    Tape tape;
    Judge judge;
};

class Simulation {
  public:
    explicit Simulation(const Options& options) : options_(options) {}

    bool Run() {
        for (size_t left = options_.seeds; left > 0; --left, ++options_.seed) {
            for (const Scenario& scenario : Scenarios()) RunScenario(scenario);
        }
        Print();
        return faults_ == 0;
    }

  private:
    void RunScenario(const Scenario& scenario) {
        Medium medium(scenario.files);
        Recorder recorder(medium);
        recorder.Restart(options_.seed, {});
        for (Frame& frame : recorder.Record(scenario.before, nullptr)) frame.handed_over = 0;
        Take take(medium, recorder, scenario.taped);

        const size_t states = options_.states / Scenarios().size();
        const size_t all = take.tape.Listed();
        const size_t listed = std::min(all, states / 2);
        for (size_t i = 0; i < states; ++i) {
            const size_t state = i < listed ? i * all / listed : all + i - listed;
            const Cut cut = take.tape.Card(state, options_.seed);
            if (take.tape.Show(cut)) JudgeState(take, cut, scenario.name);
            if (i % kSecondCutEvery == kSecondCutEvery / 2) RunSecond(medium, recorder, take, cut, scenario.name);
        }
    }

    // The cut card is recorded on by a new process, and cut again.
    void RunSecond(Medium& medium, Recorder& recorder, Take& first, const Cut& cut, const char* scenario) {
        const Kept kept(medium);
        const std::set<Row> rows = first.judge.Of(cut).rows;
        recorder.Restart(options_.seed + 1, first.judge.Carried(cut));
        Take take(medium, recorder, SecondRun(), rows);
        for (size_t i = 0; i < kSecondCuts; ++i) {
            const Cut again = take.tape.Card(take.tape.Listed() + i, options_.seed);
            if (!take.tape.Show(again)) continue;
            JudgeState(take, again, scenario, true);
            ++second_;
        }
    }

    void JudgeState(Take& take, const Cut& cut, const char* scenario, bool is_second = false) {
        const Verdict verdict = take.judge.Of(cut);
        for (const Row row : verdict.rows) {
            Tally& tally = rows_[static_cast<size_t>(row)];
            ++tally.states;
            const bool is_alone = verdict.rows.size() - verdict.rows.count(Row::kBoth) <= (row == Row::kBoth ? 0 : 1);
            if (is_second || !is_alone) continue;
            tally.lost = std::max(tally.lost, verdict.lost);
            tally.claimed = std::max(tally.claimed, verdict.claimed);
            tally.errors.insert(verdict.errors.begin(), verdict.errors.end());
        }
        const auto report = [&](const std::string& fault) {
            if (fault.empty() || ++faults_ > kToldMax) return;
            std::printf("%s\nseed %zu, \"%s\"%s, ", fault.c_str(), options_.seed, scenario,
                        is_second ? " recorded on" : "");
            take.judge.Describe(cut);
        };
        report(verdict.fault);
        if (judged_++ % kRepairEvery == 0) {
            ++repaired_;
            report(take.judge.AfterRepair(cut));
        }
    }

    // The table of docs/card-format.md.
    void Print() const {
        std::printf(
            "| not on the card, or in part | cards | frames lost | claimed and not there | `check` says "
            "|\n|---|---|---|---|---|\n");
        for (size_t row = 0; row < kRows; ++row) {
            std::string errors;
            for (const std::string& error : rows_[row].errors) errors += (errors.empty() ? "" : ", ") + error;
            std::printf("| %s | %zu | %u | %u | %s |\n", RuleOf(static_cast<Row>(row)).name, rows_[row].states,
                        rows_[row].lost, rows_[row].claimed, errors.empty() ? "in order" : errors.c_str());
        }
        std::printf("%zu cards, %zu of them cut a second time, %zu repaired; seeds %zu to %zu; %zu faults\n", judged_,
                    second_, repaired_, options_.seed - options_.seeds, options_.seed - 1, faults_);
    }

    Options options_;
    std::array<Tally, kRows> rows_;
    size_t judged_ = 0, second_ = 0, repaired_ = 0, faults_ = 0;
};

Options Parse(int argc, char** argv) {
    Options options;
    for (int i = 1; i + 1 < argc; i += 2) {
        const std::string name = argv[i];
        if (name == "--states") options.states = std::strtoull(argv[i + 1], nullptr, 10);
        if (name == "--seed") options.seed = std::strtoull(argv[i + 1], nullptr, 10);
        if (name == "--seeds") options.seeds = std::strtoull(argv[i + 1], nullptr, 10);
    }
    return options;
}

}  // namespace
}  // namespace cuts

int main(int argc, char** argv) {
    const cuts::Options options = cuts::Parse(argc, argv);
    dup2(open("/dev/null", O_WRONLY | O_CLOEXEC), STDERR_FILENO);  // the recorder's log
    return cuts::Simulation(options).Run() ? 0 : 1;
}
