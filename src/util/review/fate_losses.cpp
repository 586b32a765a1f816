// What goes with a netperm table's pass, with a layout, or with a release, by key.
#include "fate_losses.h"
#include "frag_tools.h"
#include "name_index.h"
#include "nupgrade.h"
#include "upgrade.h"

#include <cstring>

namespace {

/// A key as its components.
std::vector<std::string> split_key(const std::string &key) {
    std::vector<std::string> parts;
    for (size_t at = 0;;) {
        size_t end = key.find('_', at);
        parts.push_back(key.substr(at, end == std::string::npos ? end : end - at));
        if (end == std::string::npos || parts.size() > 8)
            return parts;
        at = end + 1;
    }
}

bool is_digit(char byte) { return byte >= '0' && byte <= '9'; }

bool is_one_of(const std::string &word, std::initializer_list<const char *> words) {
    for (const char *other : words)
        if (word == other)
            return true;
    return false;
}

// Where only the number of entries stands.
bool is_count(const std::vector<std::string> &parts) {
    size_t n = parts.size();
    if (n == 3 && parts[1] == "num")
        return (is_one_of(parts[0], {"map", "sroute", "dest", "policy"}) && parts[2] == "entries") ||
               (is_one_of(parts[0], {"def", "cust"}) && parts[2] == "proxies") || parts[0] == "netobj";
    if (n == 3 && parts[0] == "pfedit")
        return parts[2] == "numrules";
    if (n == 2)
        return parts[1] == "numrules" && (parts[0] == "nat" || parts[0] == "map");
    if (n < 4 || parts[n - 2] != "num")
        return false;
    return (n == 5 && is_one_of(parts[4], {"elements", "members", "parms"})) ||
           (n == 4 && is_one_of(parts[3], {"parms", "proxies"}));
}

// A value of a proxy's, config set's or policy's node whose children are a list: the list takes its place.
bool is_list_value(const std::vector<std::string> &parts, const std::string &key, FragList result,
                   list_indexes &indexes) {
    size_t n = parts.size();
    bool parameter = (n == 4 && parts[1] == "proxy") || (n == 6 && parts[3] == "config-sets") ||
                     (n == 4 && parts[0] == "policy" && parts[2] == "parm");
    Frag *frag = parameter ? indexes.find_key(result, key.c_str()) : nullptr;
    Frag *child = frag ? frag->child : nullptr;
    while (child && child->next) // the file's first stands last
        child = child->next;
    return child && is_digit(child->name[0]);
}

loss lost_in_numbering(const std::string &key, FragList result, list_indexes &indexes) {
    std::vector<std::string> parts = split_key(key);
    size_t n = parts.size();
    if (is_count(parts))
        return {fate::overridden, "a count, which is made anew on saving"};
    if (n >= 5 && parts[0] == "netobj" && parts[1] == "list" && parts[3] == "element") {
        std::string element = "netobj_list_" + parts[2] + "_element_" + parts[4];
        Frag *frag = indexes.find_key(result, element.c_str());
        if (is_one_of(parts[2], {"Inside", "Outside", "Service"})) {
            if (frag && is_blanks(fval(&frag->child, "interface")))
                return {fate::without_effect,
                        "an element of " + parts[2] + " without `interface` has no place in the numbered layout"};
            if (n == 6 && parts[5] == "alias")
                return {fate::reshaped, "puts its element into the alias list of its interface"};
        }
        if (parts[2] == "all%5Finterfaces")
            return {fate::reshaped, "the list of all interfaces, which is made anew on saving"};
    }
    if ((n == 4 && parts[0] == "netobj" && parts[3] == "name") ||
        (n == 3 && parts[0] == "policy" && parts[2] == "name") ||
        (n == 4 && parts[0] == "cust" && is_one_of(parts[3], {"name", "realname"})) ||
        (n == 5 && parts[0] == "policy" && parts[2] == "proxy" && parts[4] == "name"))
        return {fate::overridden, "on saving, a name becomes that of its key"};
    if (n == 4 && parts[0] == "policy" && parts[2] == "proxy")
        return {fate::reshaped, "the policy " + parts[1] + " lists the config set " + parts[3]};
    if (n == 4 && parts[0] == "def" && parts[3] == "config-sets")
        return {fate::overridden, "config sets have a list of their own, which takes no value"};
    if (is_list_value(parts, key, result, indexes))
        return {fate::overridden, "a value of a list's own is lost on saving"};
    if (n == 3 && parts[0] == "pfedit" && !has_prefix(parts[2].c_str(), "rule"))
        return {fate::overridden, "a filter rule's text is made of its fields"};
    Frag *os = ffind(result, "OS_Type");
    if (n == 2 && parts[0] == "proxy" && os && os->value && determine_os_maprec(result) == map_nt)
        if (const maprec *row = find_maprec(map_nt, &maprec::service, parts[1].c_str()))
            if (ffind(result, (std::string("def_proxy_") + row->proxy + "_state").c_str()))
                return {fate::overridden, std::string("overridden by the state of ") + row->proxy};
    return {};
}

} // namespace

bool is_taken_late(const std::string &key) {
    for (const char *top : {"version_", "network_loginok", "pki_", "def_proxy_oracle-px"})
        if (has_prefix(key.c_str(), top))
            return true;
    return false;
}

loss taken_by_table(const std::string &key, const std::string &table) {
    std::vector<std::string> parts = split_key(key);
    if (parts[0] == "map" || parts[0] == "policy")
        return {fate::reshaped, "maps and policies are folded and numbered together with those of " + table};
    if (is_one_of(key, {"trusted_networks", "untrusted_networks"}))
        return {fate::overridden, "the pass of " + table + " takes its value"};
    if (parts.size() < 3 || parts[0] != "def" || parts[1] != "proxy")
        return {fate::overridden, "overridden by " + table};
    const std::string &proxy = parts[2], attribute = parts.size() > 3 ? parts[3] : "";
    if (is_one_of(proxy, {"netconfig", "authenIP", "getvers", "login-ts", "radm", "global", "gui"}))
        return {fate::without_effect, "its proxy " + proxy + " goes in the pass of " + table};
    if (has_prefix(proxy.c_str(), "policy-"))
        return {fate::reshaped, "a policy's template goes in the pass of " + table};
    if (proxy == "alerts")
        return {fate::without_effect, "of alerts nothing but `enable` is kept in the pass of " + table};
    if (attribute == "hosts")
        return {fate::reshaped, "host rules became maps in the pass of " + table};
    if (attribute == "destination")
        return {fate::reshaped, "a record of `dest`, made in the pass of " + table};
    if (attribute == "port")
        return {fate::without_effect, "ports come from the initial environment; this one goes in the pass of " + table};
    if (is_one_of(attribute, {"authenticate", "authserver", "xforwarder"}))
        return {fate::without_effect, "the proxy " + proxy + " has no use for " + attribute};
    return {fate::overridden, "overridden by " + table};
}

bool is_too_deep(const std::string &key) {
    size_t last = key.rfind('_');
    size_t before = last == std::string::npos || last == 0 ? std::string::npos : key.rfind('_', last - 1);
    return before != std::string::npos && before + 1 >= 180;
}

loss lost_on_saving(const std::string &key, FragList result, int version, list_indexes &indexes) {
    if (version == 1 || version == 41)
        return lost_in_numbering(key, result, indexes);
    if (version == 99 && key.find('_') == std::string::npos)
        return {fate::overridden,
                "its element stands in the XML, which has no place for the value of a key of one name"};
    return {};
}

std::string why_other_value(const std::string &key, std::string_view value) {
    static const char exec[] = "_proxy-exec";
    if (has_prefix(key.c_str(), "version_"))
        return "overridden: the upgrade tells its own release and version";
    if (value.empty())
        return "its key was there without a value and keeps none";
    if (key.size() > strlen(exec) && key.compare(key.size() - strlen(exec), strlen(exec), exec) == 0)
        return "overridden: release 5.5 has its own program for this type of proxy";
    return "overridden by the upgrade with another value";
}
