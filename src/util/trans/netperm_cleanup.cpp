// What the translation does not touch: attributes without use, and destinations.
#include "frag_tools.h"
#include "netperm.h"
#include "translation.h"

#include <cstring>
#include <utility>
#include <vector>

// The next destination record's number, for the whole process.
static int next_record = 1;

namespace {

// Frees every child of every proxy that `unwanted` tells; the others keep their order.
template <class Unwanted> void remove_children(FragList db, Unwanted unwanted) {
    Frag *def_proxy = ffind(db, "def_proxy");
    for (Frag *proxy = def_proxy ? def_proxy->child : nullptr; proxy; proxy = proxy->next)
        for (FragList link = &proxy->child; *link;) {
            Frag *child = *link;
            if (unwanted(proxy, child)) {
                *link = child->next;
                freefrag(child);
            } else {
                link = &child->next;
            }
        }
}

} // namespace

const needed_attr_rec needed_attr_tab[] = {
    {"authserver", NEEDS_AUTH},
    {"authenticate", NEEDS_AUTH},
    {"xforwarder", NEEDS_X},
    {nullptr, 0},
};

void clean_auth_etc(FragList db) {
    remove_children(db, [](const Frag *proxy, const Frag *child) {
        for (const needed_attr_rec *rec = needed_attr_tab; rec->attribute; rec++)
            if (strcmp(child->name, rec->attribute) == 0)
                return !proxy_needs(proxy->name, rec->need);
        return false;
    });
}

// The initial environment says where a proxy listens.
const char *const del_plug_attrs[] = {"port", nullptr};

void conv_plugdata(FragList db) {
    remove_children(db, [](const Frag *, const Frag *child) {
        for (const char *const *attribute = del_plug_attrs; *attribute; attribute++)
            if (strcmp(child->name, *attribute) == 0)
                return true;
        return false;
    });
}

namespace {

/// Makes `dest` records. Records that are there already, from a merged file, keep their numbers.
struct dest_maker {
    FragList db;
    name_index records;

    explicit dest_maker(FragList database) : db(database), records(db, "dest") {}

    void make_record(Frag *rule) {
        Frag *dest = fset(db, "dest", nullptr);
        while (records.find(numbertext(next_record)))
            next_record++;
        Frag *record = records.set_key(&dest->child, numbertext(next_record++).c_str(), nullptr, dest);
        const char *text = rule->value ? rule->value : "";
        std::string_view marker = rule_marker(text);
        bool deny = marker.empty() ? (rule->attr & ATTR_DENY) != 0 : marker == DENY_MARKER;
        fsetp(&record->child, "pd", deny ? "D" : "P", record);
        fsetp(&record->child, "dest", text + marker.size(), record);
        fsetp(&record->child, "pg", "P", record);
        fsetp(&record->child, "service", fragname(rule->parent), record);
        fsetp(&record->child, "desc", fragkeyname(rule), record);
    }

    // A rule with children is a list of rules: they make the records, at any depth.
    void make_records(Frag *rule) {
        std::vector<Frag *> pending{rule};
        while (!pending.empty()) {
            Frag *frag = pending.back();
            pending.pop_back();
            if (!frag->child)
                make_record(frag);
            size_t first = pending.size();
            for (Frag *child = frag->child; child; child = child->next)
                pending.push_back(child);
            for (size_t last = pending.size(); first + 1 < last; first++, last--)
                std::swap(pending[first], pending[last - 1]);
        }
    }

    void take_destination(Frag *holder) {
        if (Frag *destination = ffind(&holder->child, "destination")) {
            make_records(destination);
            fremove(&holder->child, "destination");
        }
    }
};

} // namespace

void new_dest(FragList db, Frag *rule) { dest_maker(db).make_records(rule); }

void conv_dests(FragList db) {
    Frag *def_proxy = ffind(db, "def_proxy");
    dest_maker maker(db);
    for (Frag *proxy = def_proxy ? def_proxy->child : nullptr; proxy; proxy = proxy->next) {
        maker.take_destination(proxy);
        Frag *config_sets = ffind(&proxy->child, "config-sets");
        for (Frag *set = config_sets ? config_sets->child : nullptr; set; set = set->next)
            maker.take_destination(set);
    }
}
