// What has no place is left out, all of it together, and the upgrade must write the same bytes.
#include "lines/accounting.h"

#include <algorithm>
#include <map>

namespace {

/// Bytes that all runs together may read and write, so that the same inputs always get the same answer; and the most
/// runs that small inputs get.
constexpr size_t MOST_WORK = size_t{24} << 20;
constexpr size_t MOST_RUNS = 400;

// What was not proved: it has its place after all, or the result is another without it, or nobody knows.
void say(const std::vector<account_line *> &asked, proof how) {
    for (account_line *line : asked) {
        bool stands = line->place && line->by;
        line->how = stands ? proof::placed : how;
        if (stands)
            line->reason.clear();
        else
            line->became = fate::reshaped;
    }
}

/// The candidates under test.
struct prover {
    accounting &all;
    size_t runs_left = 0;
    std::vector<account_line *> proved{}, refuted{};
    bool failed = false;

    bool same_without(const std::vector<account_line *> &left_out) {
        std::map<std::string, std::vector<bool>> blank;
        for (const account_line *line : left_out) {
            std::vector<bool> &of_file = blank[line->input->name];
            of_file.resize(std::max(of_file.size(), static_cast<size_t>(line->end_line) + 1));
            for (long at = line->line; at <= line->end_line; at++)
                of_file[static_cast<size_t>(at)] = true;
        }
        replaced_files instead;
        for (const auto &[name, of_file] : blank)
            instead[name] = blanked(*all.in.files.bytes(name), of_file);
        runs_left--;
        upgrade_result run = run_upgrade(all.in.command, instead, true);
        failed = failed || !run.good();
        return run.good() && run.output == all.in.own.bytes;
    }

    // Adds those of `asked` that can be left out together with what is proved so far.
    void prove(const std::vector<account_line *> &asked) {
        if (runs_left == 0 || failed)
            return say(asked, proof::not_tried);
        std::vector<account_line *> together = proved;
        together.insert(together.end(), asked.begin(), asked.end());
        if (same_without(together)) {
            proved = std::move(together);
            return;
        }
        if (asked.size() == 1) {
            refuted.push_back(asked[0]);
            return say(asked, proof::run);
        }
        auto middle = asked.begin() + static_cast<std::ptrdiff_t>(asked.size() / 2);
        prove({asked.begin(), middle});
        prove({middle, asked.end()});
    }
};

} // namespace

std::string blanked(const std::string &text, const std::vector<bool> &blank) {
    std::string without;
    without.reserve(text.size());
    size_t line = 1;
    for (size_t at = 0; at < text.size(); line++) {
        size_t end = std::min(text.find('\n', at), text.size() - 1) + 1;
        if (line >= blank.size() || !blank[line])
            without.append(text, at, end - at);
        else if (text[end - 1] == '\n')
            without += '\n';
        at = end;
    }
    return without;
}

void prove_candidates(accounting &all) {
    std::map<std::string, std::vector<account_line *>> groups;
    std::vector<account_line *> candidates;
    size_t work = all.in.own.bytes.size() + 1;
    for (const account_input &input : all.inputs)
        work += input.table ? input.table->bytes.size() : input.conf->bytes.size();
    for (account_line &line : all.lines) {
        if (!line.candidate)
            continue;
        candidates.push_back(&line);
        std::string group = line.by ? "\1" + std::to_string(line.by->input - all.inputs.data()) : line.reason;
        groups[group.empty() ? "\xff" : group].push_back(&line); // those without a reason come last
    }
    if (candidates.empty())
        return;
    prover under_test{all, std::clamp<size_t>(MOST_WORK / work, 1, MOST_RUNS)};
    if (under_test.same_without(candidates))
        under_test.proved = candidates;
    else
        for (const auto &[reason, lines] : groups)
            under_test.prove(lines);
    for (account_line *line : under_test.refuted)
        if (line->how == proof::run && under_test.runs_left > 0)
            line->shared = under_test.same_without({line});
    for (account_line *each : under_test.proved) {
        account_line &line = *each;
        line.how = proof::run;
        // A rule of a table that has no place itself takes no place away.
        if (line.by && !line.place && !line.by->said && line.by->candidate && !line.by->place)
            line.by = nullptr;
        line.became = !line.by && line.reason.empty() ? fate::unexplained
                      : line.by && !line.place        ? fate::overridden
                                                      : fate::without_effect;
    }
    if (under_test.failed)
        tell(all.data, "trouble", "a run of the upgrade failed, so that not every line could be tried");
}
