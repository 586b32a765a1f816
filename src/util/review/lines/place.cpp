// Where each line of a configuration stands in a result.
#include "frag_tools.h"
#include "lines/accounting.h"
#include "nupgrade.h"

#include <algorithm>
#include <fmt/format.h>

namespace {

/// Where a line stands, and whether with another prefix.
struct spot {
    const Frag *frag = nullptr;
    bool is_turned = false;
};

/// The words of a text of networks: what stands behind a `%` is decoded, a `#` begins a comment at the start of a line,
/// and a word counts once a blank or a line end stands behind it. One that doesn't is added to `missing`.
std::vector<std::string> network_words(std::string_view text, std::vector<std::string> &missing) {
    std::vector<std::string> words;
    std::string plain;
    auto digit = [&](size_t at) {
        return at < text.size() ? std::string_view("0123456789ABCDEF").find(text[at]) : text.npos;
    };
    for (size_t i = 0; i < text.size(); i++) {
        if (text[i] != '%') {
            plain += text[i];
        } else if (size_t high = digit(i + 1), low = digit(i + 2); high != text.npos) {
            plain += static_cast<char>(high * 16 + (low != text.npos ? low : 0));
            i += low != text.npos ? 2 : 1;
        }
    }
    bool at_start = true;
    for (size_t at = 0; at < plain.size();) {
        bool is_comment = at_start && plain[at] == '#';
        size_t begin = is_comment ? at : plain.find_first_not_of(" \t\r\n", at);
        size_t end = plain.find_first_of(is_comment ? "\n" : " \t\r\n", begin);
        std::string word = is_comment || begin == plain.npos ? "" : plain.substr(begin, end - begin);
        if (!word.empty() && end != plain.npos)
            words.push_back(word);
        else if (!word.empty() && std::count(words.begin(), words.end(), word) == 0) // nor in front
            missing.push_back(word);
        at = std::min(end, plain.size() - 1) + 1;
        at_start = !is_blank(plain[at - 1]);
    }
    return words;
}

// Whether a later line of the file names the same record otherwise.
bool is_renamed(const conf_line &said) {
    bool is_alias_list = said.node->parent && is_named(said.node->parent, "element"); // of an interface's own
    return said.role == line_role::name && !said.node->value && encoded_name(said.value) != said.node->name &&
           !is_named(said.node, "global") && !is_alias_list;
}

/// Places a line by the key of what it says.
struct line_placer {
    accounting &all;
    result_places &result;
    /// The addresses of an input's list of elements, once they are asked for.
    std::unordered_map<const Frag *, std::unordered_set<std::string>> addresses{};

    /// Whether another line stands there; of a filter rule, one of its fields.
    bool is_taken(const Frag *frag) const {
        return result.notes(frag).valued || (is_filter_rule(frag) && result.notes(frag).from);
    }

    // Where another line stands already, this one says the same again.
    bool place_at(account_line &line, const Frag *frag, bool is_turned) {
        line.place = frag;
        line.turned = is_turned;
        node_notes &notes = result.notes(frag);
        bool is_name = line.said->role == line_role::name;
        account_line *&standing = is_name ? notes.named : notes.valued;
        bool is_theirs = is_name && notes.from && line.is_removed(); // what goes names nothing that others bring
        account_line *first = is_theirs ? notes.from : standing;
        bool is_free = !is_theirs && note_line(standing, line);
        if (is_free && (!notes.from || !line.is_removed())) // what goes takes no record from those that stay
            result.claim(frag, line);
        // What the result's own line says otherwise, or not at all, is in another shape.
        const conf_line *there = result.conf.origin(frag);
        bool is_same = there && (is_name || there->value == line.said->value);
        line.became = is_turned || !is_same ? fate::reshaped : fate::kept;
        line.reason = is_turned ? "with another prefix" : is_same ? "" : "in another shape";
        if (!is_free && !is_turned) {
            line.by = first;
            line.candidate = true;
        }
        return true;
    }

    // Whether a node has the line's value. A numbered save cuts the comment of a long filter rule.
    bool says(const Frag *frag, const account_line &line) const {
        bool is_cut = result.conf.numbered && begins(line.key, "pfedit_") && is_named(frag, "comment") &&
                      is_filter_rule(frag->parent) && record_text(frag->parent).size() > RULE_LIMIT;
        return text_of(frag) == line.value() || (is_cut && begins(line.value(), text_of(frag)));
    }

    // Whether the file of a line of an element has the address that the number leads to in another element of the list.
    bool is_of_another(const account_line &line, const Frag *frag) {
        const Frag *element = at_depth(line.said->node, 4);
        std::string address = configuration::value(element, "addr"),
                    there = configuration::value(at_depth(frag, 4), "addr");
        if (address.empty() || address == there)
            return false;
        auto [known, is_new] = addresses.try_emplace(element->parent);
        for (const Frag *each = is_new ? element->parent->child : nullptr; each; each = each->next)
            known->second.insert(configuration::value(each, "addr"));
        return known->second.count(there) != 0;
    }

    // An entry whose fields come of several files has no identity that one file knows: its number leads to it, if it is
    // still the same.
    bool place_by_number(account_line &line) {
        std::string path = place_keys::path(line.said->node);
        size_t numbered = line.key.find('#');
        if (numbered == std::string::npos || begins(line.key, "map_") ||
            path.compare(0, numbered, line.key, 0, numbered) != 0)
            return false;
        const Frag *frag = result.conf.find(all.saved_path(line.said->node).c_str());
        if (!frag || !frag->value || !says(frag, line) || is_of_another(line, frag))
            return false;
        if (all.has_tables && begins(configuration::value(at_depth(frag, 1), "desc"), "def_proxy_"))
            return false; // a table's destination
        return place_at(line, frag, !same_prefix(line.bits, result.keys.find(frag).bits));
    }

    // The fields of a filter rule's text in a record that nobody else has, where a file that is merged adds others.
    bool place_fields(account_line &line) {
        const Frag *rule = line.said->node;
        if (!is_filter_rule(rule) || !rule->child)
            return false;
        auto has_fields = [&](const Frag *record) {
            const Frag *field = rule->child;
            while (field && configuration::value(record, field->name) == text_of(field))
                field = field->next;
            return !field;
        };
        // Its number can be another now, since numbers close up where some are left out.
        const Frag *family = result.conf.find(place_keys::path(rule->parent).c_str());
        const Frag *record = family ? family->child : nullptr;
        while (record && (is_taken(record) || !has_fields(record)))
            record = record->next;
        if (!record)
            return false;
        for (const Frag *field = record->child; field; field = field->next)
            if (find_named(rule->child, field->name))
                result.stand(field, line);
        line.place = record;
        line.became = fate::reshaped;
        line.reason = "with fields of another file";
        result.claim(record, line);
        return true;
    }

    static const Frag *element_with(const Frag *elements, const std::string &address) {
        const Frag *element = elements ? elements->child : nullptr;
        while (element && configuration::value(element, "addr") != address)
            element = element->next;
        return element;
    }

    // Each word of an old list of networks must be an element, the last one too, which is lost without a line end.
    bool place_words(account_line &line, const std::string &list) {
        std::vector<std::string> missing, words = network_words(line.said->value, missing);
        std::multimap<std::string, const Frag *> elements;
        for (const Frag *element : result.conf.children(("netobj_list_" + list + "_element").c_str()))
            elements.emplace(configuration::value(element, "addr"), element);
        for (const std::string &word : words) {
            // A byte of zero ends a word, and what stands behind it is lost.
            if (size_t end = word.find('\0'); end != word.npos && end + 1 < word.size())
                missing.push_back(word.c_str() + end + 1);
            auto found = elements.find(word.c_str());
            if (found == elements.end()) {
                missing.push_back(word);
                continue;
            }
            line.place = elements.extract(found).mapped();
            if (!find_named(line.place->child, "name"))
                missing.push_back(word);
            for (const Frag *field = line.place->child; field; field = field->next)
                if (text_of(field) == word.c_str())
                    result.stand(field, line);
        }
        if (const Frag *made = result.conf.record("netobj_list", list)) // without words, too
            result.claim(made, line);
        if (words.empty() && missing.empty() && !all.has_tables)
            return false;
        line.became = fate::reshaped;
        line.reason = "elements of the list " + list;
        // A table takes the value, and the key stays.
        if (const Frag *key = all.has_tables ? result.conf.find(line.key.c_str()) : nullptr; key && key->vlen == 0) {
            line.place = line.place ? line.place : key;
            result.stand(key, line);
        }
        for (const std::string &word : missing)
            all.tell_some("lost", fmt::format("{} of {} is no element of {}", word, line.said->key, list), line.at());
        return true;
    }

    // The field of a location list's element that an address key of an imported file became.
    const Frag *address_field(const account_line &line) const {
        auto [row, field] = find_address_key(line.key);
        if (!row)
            return nullptr;
        std::string address = line.input->conf->value((std::string("ip_") + row->address).c_str());
        const Frag *element =
            is_placeholder(address) ? nullptr : element_with(result.conf.find(row->elements), address);
        const Frag *there = element ? find_named(element->child, field) : nullptr;
        return there && text_of(there) == line.said->value ? there : nullptr;
    }

    // In the canonical layout a name stands in the keys of what it names. The list of an interface's aliases is read as
    // part of the list that the interface stands in, if any, which can be made by the upgrade.
    bool place_name(account_line &line) {
        if (line.said->role != line_role::name)
            return false;
        const Frag *frag = nullptr;
        if (!result.conf.numbered)
            frag = result.conf.find(place_keys::path(line.said->node).c_str());
        else if (auto list = result.alias_lists.find(line.said->value); list != result.alias_lists.end())
            frag = list->second;
        if (!frag || (frag->value && text_of(frag) != line.value()))
            return false;
        place_at(line, frag, false);
        line.became = result.conf.numbered ? line.became : fate::reshaped;
        return true;
    }

    // What the upgrade moves to another key, value and all.
    bool place_moved(account_line &line) {
        const std::string &key = line.key;
        const Frag *element = nullptr;
        bool has_group = result.conf.find("netobj_group_fw-admin"); // else the client stays
        if (line.input->removed && (key != "gui_client" || has_group))
            element = key == "gui_client" ? element_with(result.conf.find("netobj_list_fw-admin$LIST_element"),
                                                         std::string(line.said->value))
                                          : address_field(line);
        if (!element || (key == "gui_client" && configuration::value(element, "name") != key)) // one of the list's own
            return false;
        result.reshape(element, line, "as " + place_keys::path(element));
        for (const Frag *child = element->child; child; child = child->next)
            if (text_of(child) == line.said->value || text_of(child) == key)
                result.stand(child, line);
        return true;
    }

    // The node of that key that says what the line does; rather one with its prefix, and one that no other line took.
    spot find(const account_line &line, const std::string &key) const {
        // The owner of a config set that a policy lists is not saved with it.
        bool is_entry = begins(line.key, "policy_") && is_named(line.said->node->parent, "proxy");
        bool is_rule = begins(key, "pfedit_") && key == line.other_key; // its fields are the key
        bool has_value = line.said->node->value && !(is_entry && result.conf.numbered) && !is_rule;
        const Frag *same = nullptr, *turned = nullptr;
        for (const Frag *frag : result.at(key)) {
            if (has_value && !says(frag, line))
                continue;
            bool fits = !has_value || same_prefix(line.bits, result.keys.find(frag).bits);
            const Frag *&into = fits ? same : turned;
            if (!into || is_taken(into))
                into = frag;
        }
        return {same ? same : turned, !same};
    }

    // The same; the entries of a result that say the same as one of the file's can be of several files.
    spot find_free(const account_line &line) const {
        constexpr int MOST_TWINS = 8;
        spot best = find(line, line.key);
        for (int later = 1; is_numbered(line) && later < MOST_TWINS && (!best.frag || is_taken(best.frag)); later++) {
            spot twin = find(line, line.input->keys->find(line.said->node, later).key);
            if (twin.frag && (!best.frag || !is_taken(twin.frag)))
                best = twin;
        }
        return best.frag || line.other_key.empty() ? best : find(line, line.other_key);
    }

    void place(account_line &line) {
        if (!line.said || !line.said->node || is_renamed(*line.said))
            return void(line.candidate = true);
        const account_input &input = *line.input;
        bool counts = input.conf->origin(line.said->node) == line.said; // of the lines of its key
        auto is_last = [&](const configuration &scanned) {
            return scanned.line_of(scanned.find(line.key.c_str())) == line.line;
        };
        bool is_words = (line.key == "trusted_networks" || line.key == "untrusted_networks") &&
                        input.name == all.in.command.old_conf && !input.conf->find("def_proxy") &&
                        is_last(*all.in.files.conf(input.name, conf_layout::as_written));
        bool is_forced = input.name == all.in.command.init_conf && all.is_forced(line); // by the last of its key
        bool is_late =
            !counts && !input.imported && !is_forced && !is_numbered(line) && line.value() != text_of(line.said->node);
        // A table takes the value away, and what stands is not said by a line behind the one that counts.
        spot best = (is_words && all.has_tables) || is_late ? spot() : find_free(line);
        // What an import removed, or a policy that stood already, is not turned by another that says the like.
        const Frag *policy = best.is_turned && begins(line.key, "policy_") ? at_depth(best.frag, 1) : nullptr;
        const account_line *first = policy ? result.notes(policy).from : nullptr;
        if (best.is_turned && (line.is_removed() || (first && first->input != line.input)))
            best = spot();
        // Elements and members have a better identity.
        bool by_number = !input.imported && !begins(line.key, "netobj_") &&
                         all.numbers.count(line.key.substr(0, line.key.find("_#"))) != 0;
        bool found = place_moved(line) || (by_number && place_by_number(line)) ||
                     (best.frag ? place_at(line, best.frag, best.is_turned) : place_by_number(line)) ||
                     place_name(line) || place_fields(line);
        if (is_words && place_words(line, line.key[0] == 't' ? "Trusted$LIST" : "Untrusted$LIST"))
            return void(line.candidate = false);
        // A key below which others came first has no value but an empty one.
        const Frag *bare = found ? nullptr : result.conf.find(place_keys::path(line.said->node).c_str());
        if (bare && bare->value && bare->vlen == 0 && bare->child)
            result.stand(bare, line);
        line.candidate = !found || line.candidate;
    }
};

} // namespace

void place_conf_lines(accounting &all, result_places &result) {
    line_placer placer{all, result};
    for (bool removed : {false, true}) // what goes has the place that others leave
        for (account_line &line : all.lines) {
            const account_input &input = *line.input;
            if (input.conf && !input.unread && line.is_removed() == removed)
                placer.place(line);
            line.candidate = line.candidate || input.unread;
        }
}
