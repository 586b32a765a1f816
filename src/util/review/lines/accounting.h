/// One accounting of all lines: what its steps hand to each other.
#ifndef REVIEW_ACCOUNTING_H
#define REVIEW_ACCOUNTING_H

#include "lines/lines.h"
#include "lines/place_keys.h"

#include <deque>
#include <map>
#include <unordered_set>

constexpr size_t MOST_TOLD = 100; ///< findings of one name

/// One input. Of a file that is merged and imported, too, the import counts.
struct account_input {
    std::string name;
    size_t step = 0; ///< of the command, its first, counted from 1
    const netperm_table *table = nullptr;
    const configuration *conf = nullptr; ///< null for a table
    std::shared_ptr<place_keys> keys{};  ///< of a configuration
    size_t imported = 0;                 ///< the step that imports it, 0 for none
    bool removed = false;    ///< it is imported, or an import that comes behind it removes proxies, policies and maps
    bool translated = false; ///< a table stands behind it, whose translation merges maps
    bool unread = true;      ///< the upgrade passes it over
};

/// One assignment or line of an input, and what became of it.
struct account_line : line_fate {
    const account_input *input = nullptr;
    long end_line = 0;
    std::string_view text;            ///< the line itself, the first of them
    const conf_line *said = nullptr;  ///< of a configuration; null for a line of a table, and for one that says nothing
    size_t first_rule = 0, rules = 0; ///< of a table
    std::string key;                  ///< of a configuration: where it says what it says
    std::string other_key;            ///< of a count of maps: as a map; of what a filter rule's text says: the rule's
    long bits = 0;
    bool candidate = false;          ///< it has no place of its own in what the upgrade writes
    const Frag *place = nullptr;     ///< in what the upgrade writes
    bool turned = false;             ///< it stands there with another prefix
    const conf_line *lost = nullptr; ///< of what the upgrade writes for it, a line that the installed file lacks
    account_line *by = nullptr;      ///< the line that says the same, or that overrides it
    bool shared = false;             ///< the result is another without it and others, and not without it alone

    struct place at() const {
        return {input->name, line};
    }
    const table_rule &rule(size_t number = 0) const { return input->table->rules[first_rule + number]; }
    /// Whether an import removes what the line says.
    bool is_removed() const {
        return input->removed && (begins(key, "def_proxy_") || begins(key, "policy_") || begins(key, "map_"));
    }
    /// The value of one that says something; of the name of a parameter, which says nothing without it, too.
    std::string_view value() const;
    /// Gives the reason if there is none yet.
    void excuse(std::string why) { reason = reason.empty() ? std::move(why) : reason; }
};

/// The lines of inputs that stand at a node of a result, null for none.
struct node_notes {
    account_line *valued = nullptr, *named = nullptr; ///< the one that gives the node its value, or its name
    account_line *from = nullptr;                     ///< the one that stands at the node, or first below it
};
/// Notes the line if none is noted. False if one is.
inline bool note_line(account_line *&note, account_line &line) {
    bool is_free = !note;
    note = is_free ? &line : note;
    return is_free;
}

/// What the upgrade writes, in which lines are looked for.
struct result_places {
    const configuration &conf;
    place_keys keys;
    std::vector<std::pair<size_t, const Frag *>> index;             ///< by the hashes of place keys
    std::unordered_map<const Frag *, const conf_line *> name_lines; ///< where in the result a node is named
    /// The interfaces whose lists of aliases have such a name.
    std::unordered_map<std::string_view, const Frag *> alias_lists;

    /// Lines whose place in the tree another line took: a parameter can stand twice in a file.
    std::unordered_map<const conf_line *, Frag> doubles;

    /// Only what is below records that inputs speak of can be found by its key: a table makes many more.
    result_places(const configuration &result, const std::unordered_set<std::string> &spoken_of);
    /// What is noted of a node: in a table where it has a line of the result to itself, as most have.
    node_notes &notes(const Frag *frag);
    /// The nodes of that place key.
    std::vector<const Frag *> at(const std::string &key);
    /// Takes note that a line stands there; what is above it has its first line by it.
    void claim(const Frag *frag, account_line &line);
    /// The same for a value that no other line stands for.
    void stand(const Frag *frag, account_line &line);
    /// The same for a line that stands at `frag` in another shape, as its place if it has none yet.
    void reshape(const Frag *frag, account_line &line, std::string reason);

private:
    std::vector<node_notes> by_line;
    std::unordered_map<const Frag *, node_notes> others{};
};

/// A rule of a table as one owner has it: a proxy, or the template of a policy.
struct filed_rule {
    account_line *line = nullptr;     ///< null for what a configuration ahead of the table says
    const table_rule *rule = nullptr; ///< likewise
    bool is_listed = false;           ///< another had its number, so that it stands in a list

    void excuse(const char *why) const {
        if (line)
            line->excuse(why);
    }
};
/// The rules of one owner for an attribute by the numbers under which they stand; one that is alone stands under none
/// in a result, unless it is the first of a list, 0.
using numbered_rules = std::map<long, filed_rule>;
inline bool is_alone(const numbered_rules &rules) {
    return rules.size() == 1 && rules.count(1) != 0 && !rules.at(1).is_listed;
}
/// All of one owner but those for hosts, by the stored names of their attributes.
using filed_attributes = std::map<std::string, numbered_rules>;
struct filed_rules {
    std::map<std::string, filed_attributes> proxies{}; ///< those that the tables leave
    std::map<std::pair<const account_input *, std::string>, filed_attributes> templates{}; ///< by input and name
    std::vector<std::pair<std::string, numbered_rules>> destinations{}; ///< of proxies, each of one table
};

/// One line of what the upgrade writes: where it comes from, and where it stands in the installed file.
struct written_line {
    origin from = origin::nowhere;
    account_line *of = nullptr;       ///< of an input
    const conf_line *there = nullptr; ///< null if the file lacks it
    bool turned = false;              ///< it stands there with another prefix
};

struct accounting {
    const account_inputs &in;
    review_data &data;
    std::vector<account_input> inputs{};
    std::deque<account_line> lines{};          ///< which stay where they are
    std::unordered_set<std::string> records{}; ///< place keys of those that the lines of configurations speak of
    size_t last_import = 0;                    ///< behind the last -e; 0 without one
    size_t init_step = 0;                      ///< of the initial environment, counted from 1; 0 without one
    bool has_tables = false;                   ///< tables decide
    /// The numbers of what merges by these, in order, by the paths of records' families and of lists.
    std::map<std::string, std::vector<long>> numbers{};
    account_line *login = nullptr; ///< the one that decides about network login; null for none
    bool logs_in = false;          ///< which switches it on
    std::unordered_map<const netperm_table *, std::vector<account_line *>> rule_lines{}; ///< the line of each rule
    filed_rules filed{};
    /// The elements of each interface but for aliases, by its name in lower case, in the location list of what the
    /// upgrade writes that counts for it.
    std::map<std::string, std::vector<const Frag *>> located{};

    std::vector<written_line> written{};  ///< for each line of what the upgrade writes
    std::map<std::string, size_t> told{}; ///< findings by their names

    /// Appends a finding, unless there are `MOST_TOLD` of its name; those are only counted.
    void tell_some(const char *id, std::string text, const place &at, const place &by = {}, const place &result = {});
    /// The same of a line of an input, whose text stands in front of what is told.
    void tell_of(const account_line &line, const char *id, const std::string &what, const place &by = {},
                 const place &result = {});
    place in_result(long line) const { return {in.result.name, line}; }
    /// Where a node of what the upgrade writes begins.
    place in_result(const Frag *frag) const { return in_result(in.own.line_of(frag)); }
    /// Tells a loss, unless an import takes the line away.
    void tell_lost(const account_line &line, std::string text);
    /// The input that a step of the command names, null if there is none yet.
    account_input *input_of(const upgrade_step &step);
    /// What the files that are merged say of an entry's field, whichever of them does first.
    std::string merged_value(const Frag *entry, const char *field) const;
    /// Whether a numbered save drops the element of a list, since it is the firewall's own and has no interface.
    bool is_dropped(const Frag *element) const;
    /// The path of an input's node in a result: a numbered save closes up the numbers. One that it drops leads nowhere.
    std::string saved_path(const Frag *node) const;
    /// Whether the initial environment forces the value of the line's key.
    bool is_forced(const account_line &line) const;
};

/// What is told of a line that the installed file lacks.
constexpr char LACKING[] = "the upgrade writes it, and the result lacks it";
/// A line as it stands in its file; in the section form with what stands in front of it.
std::string text_of_line(const configuration &conf, const conf_line &line);
/// What is told of a line that stands with another prefix at a node.
std::string turned_text(const Frag *at);

/// A key below which names stand, apart from those where values do.
inline std::string name_key(std::string key) { return key += '\1'; }

// The steps, in their order.

/// Looks for the place of every line in what the upgrade writes; those without one are candidates.
void place_conf_lines(accounting &all, result_places &result);
void place_table_lines(accounting &all, result_places &result);
/// A config set that rules for hosts lead into.
struct made_set {
    std::string proxy, path;
    account_line &line; ///< of the first such rule
    rule_options options;
};
/// Places the rules for hosts among these. The result are the config sets in their order, there or not.
std::vector<made_set> place_host_rules(accounting &all, result_places &result, const access_side &side);
/// Files the rules of all tables under their proxies.
void file_rules(accounting &all);
/// Why a line of a table has no place, empty if no reason is known.
std::string table_reason(const accounting &all, const account_line &line);
/// Whether a line is about an entry of numbered records.
inline bool is_numbered(const account_line &line) { return line.key.find('#') != std::string::npos; }
/// A count is a map to a merge, too, and one without a decision.
inline bool is_map_line(const account_line &line) { return begins(line.key, "map_#") || begins(line.key, "map_num"); }
/// The reason of the lines of an element of the firewall's own addresses that a numbered save drops.
constexpr const char *NO_INTERFACE = "an element without an interface is not saved";
/// The program that the release sets for a type of proxy, in any case; null if none.
const char *program_of(const std::string &type);
/// Whether a proxy has a use for what one of the bits stands for, by the table of their needs.
bool has_need(std::string_view proxy, int bits);
/// True for attributes whose rules are numbered from the first on.
inline bool is_list_attribute(std::string_view stored) { return stored == "url" || stored == "sid"; }
/// Gives each candidate the line that overrides it or the reason why it has no place, as far as one is known.
void find_reasons(accounting &all, result_places &own);
/// Tells what stands in the result though the release takes it away.
void check_standing(accounting &all, result_places &result);
/// Tells records and policies that stand though a file ahead keeps them out, and numbered records in another order.
void check_records(accounting &all, result_places &result);
/// The text with some of its lines blank, by their numbers; a table's lines keep theirs.
std::string blanked(const std::string &text, const std::vector<bool> &blank);
/// Runs the upgrade without the candidates, and says of each what came of it.
void prove_candidates(accounting &all);
/// Finds where each line of what the upgrade writes comes from, and tells what the release sets and is not there.
void find_origins(accounting &all, result_places &result);
/// Looks for each line of what the upgrade writes in the installed file, which may have been changed. Fills
/// `data.origins` for each line of that file, and tells of those that come from nowhere.
void match_installed(accounting &all);

#endif
