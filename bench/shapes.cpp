#include "shapes.h"

#include <algorithm>
#include <cstdarg>
#include <cstring>
#include <string_view>
#include <vector>

namespace {

// Prints assignments that come in the order of the tree as nested JSON objects or XML elements.
struct nested_printer {
    FILE *out;
    bool xml;
    std::vector<std::string> path; // the open objects
    bool first = true;             // nothing stands in the innermost open object yet

    nested_printer(FILE *stream, bool as_xml) : out(stream), xml(as_xml) { fputs(xml ? "<conf>\n" : "{", out); }

    // An XML name can't begin with a digit.
    static std::string tag(const std::string &name) { return name[0] >= '0' && name[0] <= '9' ? "n" + name : name; }

    static std::string escaped(std::string_view text, bool for_xml) {
        std::string result;
        for (char byte : text)
            if (for_xml && byte == '&')
                result += "&amp;";
            else if (for_xml && byte == '<')
                result += "&lt;";
            else if (!for_xml && (byte == '"' || byte == '\\'))
                result += std::string("\\") + byte;
            else
                result += byte;
        return result;
    }

    void begin(const std::string &name) {
        if (xml)
            fprintf(out, "<%s>", tag(name).c_str());
        else
            fprintf(out, "%s\"%s\":", first ? "" : ",", escaped(name, false).c_str());
    }

    void close_to(size_t depth) {
        for (; path.size() > depth; path.pop_back()) {
            if (xml)
                fprintf(out, "</%s>\n", tag(path.back()).c_str());
            else
                fputs("}", out);
            first = false;
        }
    }

    void put(std::string_view line) {
        size_t equals = line.find('=');
        std::vector<std::string> names(1);
        for (char byte : line.substr(0, equals))
            if (byte == '_')
                names.emplace_back();
            else
                names.back() += byte;
        size_t shared = 0;
        while (shared < path.size() && shared + 1 < names.size() && path[shared] == names[shared])
            shared++;
        close_to(shared);
        for (; shared + 1 < names.size(); shared++) {
            begin(names[shared]);
            fputs(xml ? "" : "{", out);
            path.push_back(names[shared]);
            first = true;
        }
        begin(names.back());
        std::string value = escaped(line.substr(equals + 1), xml);
        if (xml)
            fprintf(out, "%s</%s>\n", value.c_str(), tag(names.back()).c_str());
        else
            fprintf(out, "\"%s\"", value.c_str());
        first = false;
    }

    void finish() {
        close_to(0);
        fputs(xml ? "</conf>\n" : "}\n", out);
    }
};

// What a shape is written with.
struct corpus {
    FILE *out;
    long size;
    uint64_t state;
    nested_printer *nested = nullptr;

    void line(const char *format, ...) __attribute__((format(printf, 2, 3)));

    // splitmix64, so that a seed gives the same numbers everywhere.
    uint64_t random() {
        uint64_t z = state += 0x9E3779B97F4A7C15u;
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9u;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBu;
        return z ^ (z >> 31);
    }
    unsigned below(unsigned limit) { return static_cast<unsigned>(random() % limit); }
    long index_below(long limit) { return static_cast<long>(random() % static_cast<uint64_t>(limit)); }
};

void corpus::line(const char *format, ...) {
    char text[4096];
    va_list arguments;
    va_start(arguments, format);
    int len = vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    std::string_view view(text, std::min(static_cast<size_t>(len), sizeof text - 1));
    if (nested) {
        nested->put(view);
    } else {
        fwrite(view.data(), 1, view.size(), out);
        putc('\n', out);
    }
}

// A one-to-one map of the numbers below 2^24 that leaves no trace of their order.
unsigned scatter(long index) {
    unsigned x = static_cast<unsigned>(index) & 0xFFFFFF;
    x = x * 0x9E3779B1u & 0xFFFFFF;
    x ^= x >> 13;
    return x * 0x85EBCA6Bu & 0xFFFFFF;
}

std::string address(unsigned bits) {
    return "10." + std::to_string(bits >> 16 & 255) + "." + std::to_string(bits >> 8 & 255) + "." +
           std::to_string(bits & 255);
}

const char *const proxies[] = {"http-px", "tn-px", "ftp-px", "rlogin-px", "pop3-px", "sql-px", "nntp-px", "ssl-px"};
const char *const departments[] = {"sales", "lab", "office", "branch", "plant", "depot"};

std::string proxy_name(long number) {
    return number <= 8 ? proxies[number - 1] : "svc-" + std::to_string(number) + "-px";
}

std::string host_name(unsigned number) {
    return "h" + std::to_string(number) + "." + departments[number % 6] + ".example.com";
}

struct parameter {
    const char *numbered; // its name in the numbered layout
    const char *stored;   // its key in the canonical layout
    const char *value;
};
const parameter parameters[] = {
    {"proxy-exec", "proxy-exec", "./generic-px"},
    {"use_name_logs", "use%5Fname%5Flogs", "on"},
    {"permit-hosts_0", "hosts_permit-0", "10.1.*"},
    {"deny-hosts_1", "hosts_deny-1", "*.example.net"},
    {"timeout", "timeout", "3600"},
    {"logging", "logging", "all"},
    {"permit-relay", "permit-relay", "example.com"},
    {"authenticate", "authenticate", "*"},
    {"welcome-msg", "welcome-msg", "/etc/welcome.txt"},
    {"deny-url_0", "url_deny-0", "http://*.example.org/*"},
    {"child-limit", "child-limit", "250"},
    {"directory", "directory", "/var/spool/px"},
};

// The parameters of one proxy or config set in the numbered layout.
void numbered_parameters(corpus &out, const char *family, long number, int count) {
    out.line("%s_proxy_%ld_num_parms=%d", family, number, count);
    for (int m = 1; m <= count; m++) {
        const parameter &parm = parameters[static_cast<size_t>(m - 1 + number % (13 - count))];
        out.line("%s_proxy_%ld_parm_%d_name=%s", family, number, m, parm.numbered);
        out.line("%s_proxy_%ld_parm_%d_value=%s", family, number, m, parm.value);
    }
}

void numbered_proxy(corpus &out, long number, const std::string &name, int count) {
    out.line("def_proxy_%ld_name=%s", number, name.c_str());
    out.line("def_proxy_%ld_realname=%s", number, name.c_str());
    numbered_parameters(out, "def", number, count);
}

void numbered_set(corpus &out, long number, const std::string &owner, int count) {
    out.line("cust_proxy_%ld_name=%s-%ld", number, owner.c_str(), number);
    out.line("cust_proxy_%ld_realname=%s", number, owner.c_str());
    numbered_parameters(out, "cust", number, count);
}

void numbered_policy(corpus &out, long number, const std::vector<std::string> &sets, int parms) {
    out.line("policy_%ld_name=corp-%ld", number, number);
    out.line("policy_%ld_num_proxies=%zu", number, sets.size());
    out.line("policy_%ld_num_parms=%d", number, parms);
    for (size_t m = 0; m < sets.size(); m++)
        out.line("policy_%ld_proxy_%zu_name=%s", number, m + 1, sets[m].c_str());
    for (int m = 1; m <= parms; m++) {
        out.line("policy_%ld_parm_%d_name=%s", number, m, m == 1 ? "desc" : "use_dns_names");
        out.line("policy_%ld_parm_%d_value=rule of %ld", number, m, number);
    }
}

// A location list with interfaces; each interface has an alias list of its own further on.
void numbered_location(corpus &out, long number, const char *name, long interfaces) {
    out.line("netobj_list_%ld_name=%s", number, name);
    out.line("netobj_list_%ld_num_elements=%ld", number, interfaces);
    for (long m = 1; m <= interfaces; m++) {
        out.line("netobj_list_%ld_element_%ld_addr=192.168.%ld.%ld", number, m, m / 250, m % 250 + 1);
        out.line("netobj_list_%ld_element_%ld_netmask=255.255.255.0", number, m);
        out.line("netobj_list_%ld_element_%ld_interface=%s%ld", number, m, name, m);
    }
}

void numbered_aliases(corpus &out, long number, const char *interface, long count) {
    out.line("netobj_list_%ld_name=%s$INTERFACE", number, interface);
    out.line("netobj_list_%ld_num_elements=%ld", number, count);
    for (long m = 1; m <= count; m++) {
        out.line("netobj_list_%ld_element_%ld_addr=%s", number, m, address(scatter(m)).c_str());
        out.line("netobj_list_%ld_element_%ld_netmask=255.255.255.255", number, m);
    }
}

void filter_rule(corpus &out, const char *list, long number) {
    std::string address_text = address(scatter(number));
    out.line("pfedit_%s_rule%ld=permit+eth%u+tcp+%u+%s+255.255.255.0+80+192.168.1.1+255.255.255.255+web", list, number,
             out.below(4), 1024 + out.below(60000), address_text.c_str());
}

// A whole environment of release 4.1 as it stands on disk. A unit is a list, a group, a config set, a policy and a map.
void environment(corpus &out) {
    long units = std::max(1L, out.size * 10 / 535);
    long owners = std::max(8L, units / 16);
    out.line("version_firewall=4.1");
    out.line("OS_Type=BSD40");
    out.line("def_num_proxies=%ld", owners);
    for (long n = 1; n <= owners; n++)
        numbered_proxy(out, n, proxy_name(n), 10);
    out.line("cust_num_proxies=%ld", units);
    std::vector<std::string> sets;
    for (long n = 1; n <= units; n++) {
        std::string owner = proxy_name(1 + out.index_below(owners));
        numbered_set(out, n, owner, 6);
        sets.push_back(owner + "-" + std::to_string(n));
    }
    out.line("policy_num_entries=%ld", units);
    for (long n = 1; n <= units; n++)
        numbered_policy(out, n, {sets[static_cast<size_t>(n - 1)], sets[static_cast<size_t>(out.index_below(units))]},
                        2);
    out.line("netobj_num_list=%ld", units + 8);
    out.line("netobj_num_group=%ld", units);
    for (long n = 1; n <= units; n++) {
        out.line("netobj_list_%ld_name=site-%ld$LIST", n, n);
        out.line("netobj_list_%ld_num_elements=8", n);
        for (int m = 1; m <= 8; m++) {
            unsigned host = out.below(1 << 24);
            out.line("netobj_list_%ld_element_%d_addr=%s", n, m, address(host).c_str());
            out.line("netobj_list_%ld_element_%d_name=%s", n, m, host_name(host).c_str());
        }
    }
    numbered_location(out, units + 1, "Inside", 3);
    numbered_location(out, units + 2, "Outside", 2);
    numbered_location(out, units + 3, "Service", 1);
    long list = units + 4;
    for (const char *interface : {"Inside1", "Inside2", "Inside3", "Outside1", "Outside2"})
        numbered_aliases(out, list++, interface, 4);
    for (long n = 1; n <= units; n++) {
        out.line("netobj_group_%ld_name=site-%ld", n, n);
        out.line("netobj_group_%ld_num_members=1", n);
        out.line("netobj_group_%ld_member_1_type=L", n);
        out.line("netobj_group_%ld_member_1_name=site-%ld$LIST", n, n);
    }
    out.line("map_num_entries=%ld", units);
    for (long n = 1; n <= units; n++) {
        out.line("map_%ld_policy=corp-%ld", n, n);
        out.line("map_%ld_proxy=*", n);
        out.line("map_%ld_pd=P", n);
        out.line("map_%ld_src=$$NETOBJ.site-%ld", n, n);
    }
    out.line("dest_num_entries=%ld", units / 4);
    for (long n = 1; n <= units / 4; n++) {
        out.line("dest_%ld_pd=%c", n, "PD"[out.below(2)]);
        out.line("dest_%ld_dest=%s", n, host_name(out.below(1 << 24)).c_str());
        out.line("dest_%ld_service=tn-px", n);
    }
    for (long n = 1; n <= units / 4; n++) {
        out.line("nat_rule_%ld_from=%s", n, address(out.below(1 << 24)).c_str());
        out.line("nat_rule_%ld_to=%s", n, address(out.below(1 << 24)).c_str());
    }
    for (const char *rules : {"lcl", "fwd"}) {
        out.line("pfedit_%s_numrules=%ld", rules, units / 4);
        for (long n = 1; n <= units / 4; n++)
            filter_rule(out, rules, n);
    }
}

// The same kind of configuration addressed by name.
void canonical(corpus &out) {
    long units = std::max(1L, out.size * 10 / 331);
    long owners = std::max(8L, units / 16);
    std::vector<std::vector<long>> sets(static_cast<size_t>(owners));
    std::vector<std::string> owner_of;
    for (long n = 1; n <= units; n++) {
        long owner = out.index_below(owners);
        sets[static_cast<size_t>(owner)].push_back(n);
        owner_of.push_back(proxy_name(owner + 1));
    }
    out.line("version_firewall=5.0");
    for (long n = 1; n <= owners; n++) {
        std::string name = proxy_name(n);
        for (const parameter &parm : parameters)
            out.line("def_proxy_%s_%s=%s", name.c_str(), parm.stored, parm.value);
        for (long set : sets[static_cast<size_t>(n - 1)])
            for (int m = 0; m < 6; m++)
                out.line("def_proxy_%s_config-sets_%s-%ld_%s=%s", name.c_str(), name.c_str(), set, parameters[m].stored,
                         parameters[m].value);
    }
    for (long n = 1; n <= units; n++) {
        const std::string &owner = owner_of[static_cast<size_t>(n - 1)];
        out.line("policy_corp-%ld_proxy_%s-%ld=%s", n, owner.c_str(), n, owner.c_str());
        out.line("policy_corp-%ld_parm_desc=%s", n, owner.c_str());
        out.line("policy_corp-%ld_parm_use%%5Fdns%%5Fnames=on", n);
    }
    for (long n = 1; n <= units; n++)
        for (int m = 1; m <= 8; m++) {
            unsigned host = out.below(1 << 24);
            out.line("netobj_list_site-%ld$LIST_element_%d_addr=%s", n, m, address(host).c_str());
            out.line("netobj_list_site-%ld$LIST_element_%d_name=%s", n, m, host_name(host).c_str());
        }
    for (long n = 1; n <= units; n++) {
        out.line("netobj_group_site-%ld_member_1_type=L", n);
        out.line("netobj_group_site-%ld_member_1_name=site-%ld$LIST", n, n);
    }
    for (long n = 1; n <= units; n++) {
        out.line("map_%ld_policy=corp-%ld", n, n);
        out.line("map_%ld_proxy=*", n);
        out.line("map_%ld_pd=P", n);
        out.line("map_%ld_src=$$NETOBJ.site-%ld", n, n);
    }
    for (long n = 1; n <= units / 2; n++) {
        out.line("pfedit_lcl_%ld_type=permit", n);
        out.line("pfedit_lcl_%ld_proto=tcp", n);
        out.line("pfedit_lcl_%ld_srcaddr=%s", n, address(out.below(1 << 24)).c_str());
    }
}

// The shapes that are wide in one dimension.

void siblings(corpus &out) {
    for (long n = 1; n <= out.size; n++)
        out.line("site_option_list_item-%06x=%s", scatter(n), host_name(out.below(1 << 24)).c_str());
}

// Siblings whose names all have one hash under a hash without a key whose steps can be inverted: the second word makes
// good whatever the first one did. Against a key by chance they are names like any others.
void collisions(corpus &out) {
    auto step = [](uint64_t hash, uint64_t word) {
        hash = (hash ^ word) * 0x9E3779B97F4A7C15u;
        return hash ^ hash >> 32;
    };
    constexpr size_t name_size = 18;
    constexpr uint64_t meeting = 0x5A5A5A5A5A5A5A5Au; // what every name has behind its second word
    long made = 0;
    for (uint64_t n = 0; made < out.size; n++) {
        char name[name_size + 1];
        snprintf(name, sizeof name, "%08llx", static_cast<unsigned long long>(n));
        uint64_t first = 0;
        for (int at = 0; at < 8; at++)
            first = first << 8 | static_cast<unsigned char>(name[at]);
        uint64_t second = step(name_size, first) ^ meeting;
        bool is_name = true;
        for (int at = 0; at < 8; at++) {
            name[8 + at] = static_cast<char>(second >> (56 - 8 * at));
            is_name = is_name && !strchr("_=\n\r", name[8 + at]); // nor a zero byte
        }
        strcpy(name + 16, "ab");
        if (is_name) {
            out.line("%s=1", name);
            made++;
        }
    }
}

void policies(corpus &out) {
    long units = std::max(1L, out.size / 7);
    out.line("def_num_proxies=8");
    for (long n = 1; n <= 8; n++)
        numbered_proxy(out, n, proxy_name(n), 2);
    out.line("cust_num_proxies=%ld", units);
    for (long n = 1; n <= units; n++)
        numbered_set(out, n, proxy_name(1 + n % 8), 0);
    out.line("policy_num_entries=%ld", units);
    for (long n = 1; n <= units; n++) {
        long set = 1 + scatter(n) % units;
        numbered_policy(out, n, {proxy_name(1 + set % 8) + "-" + std::to_string(set)}, 0);
    }
}

void canonical_policies(corpus &out) {
    long units = std::max(1L, out.size / 3);
    for (long n = 1; n <= units; n++) {
        const char *owner = proxies[n * 8 / (units + 1)];
        out.line("def_proxy_%s_config-sets_%s-%ld_timeout=%u", owner, owner, n, out.below(9999));
    }
    for (long n = 1; n <= units; n++) {
        const char *owner = proxies[n * 8 / (units + 1)];
        out.line("policy_corp-%ld_proxy_%s-%ld=%s", n, owner, n, owner);
        out.line("policy_corp-%ld_parm_desc=%s", n, owner);
    }
}

// Maps with a source each. The second file shares half of them with the first.
void source_maps(corpus &out, bool second) {
    long count = std::max(1L, out.size / 4);
    for (long n = 1; n <= count; n++) {
        long source = scatter(n) % count + (second ? count / 2 : 0);
        out.line("map_%ld_policy=corp-%ld", n, source);
        out.line("map_%ld_proxy=*", n);
        out.line("map_%ld_pd=P", n);
        out.line("map_%ld_src=$$NETOBJ.site-%ld", n, source);
    }
}
void maps_a(corpus &out) { source_maps(out, false); }
void maps_b(corpus &out) { source_maps(out, true); }

// Maps of one source that only their policies tell apart. The second file has the policies of both, and half of its
// own list the same config sets as one of the first.
void policy_maps(corpus &out, bool second) {
    long count = std::max(1L, out.size / (second ? 8 : 4));
    const char *prefix = second ? "new" : "old";
    if (second)
        for (long n = 1; n <= count; n++) {
            out.line("policy_old-%ld_proxy_tn-px-%ld=tn-px", n, n);
            out.line("policy_old-%ld_proxy_ftp-px-%ld=ftp-px", n, n);
            out.line("policy_new-%ld_proxy_tn-px-%ld=tn-px", n, n);
            out.line("policy_new-%ld_proxy_ftp-px-%ld=ftp-px", n, n % 2 ? n : n + count);
        }
    for (long n = 1; n <= count; n++) {
        out.line("map_%ld_policy=%s-%ld", n, prefix, n);
        out.line("map_%ld_proxy=*", n);
        out.line("map_%ld_pd=P", n);
        out.line("map_%ld_src=$$NETOBJ.everybody", n);
    }
}
void policy_maps_a(corpus &out) { policy_maps(out, false); }
void policy_maps_b(corpus &out) { policy_maps(out, true); }

void many_proxies(corpus &out) {
    long count = std::max(1L, out.size / 4);
    for (long n = 1; n <= count; n++) {
        std::string name = "svc-" + std::to_string(scatter(n)) + "-px";
        out.line("def_proxy_%s_proxy-type=%s", name.c_str(), n % 3 ? "plug-px" : "http-px");
        out.line("def_proxy_%s_proxy-exec=./plug-px", name.c_str());
        out.line("def_proxy_%s_bind-port=%u", name.c_str(), out.below(65536));
        out.line("def_proxy_%s_authenticate=*", name.c_str());
    }
}

// Canonical proxies: with a step of 2, every second one of those with a step of 1 and as many others.
void merged_proxies(corpus &out, long step) {
    long count = std::max(1L, out.size / 4);
    for (long n = 1; n <= count; n++) {
        unsigned id = scatter(n * step);
        out.line("def_proxy_svc-%u-px_proxy-type=plug-px", id);
        out.line("def_proxy_svc-%u-px_proxy-exec=./plug-px", id);
        out.line("def_proxy_svc-%u-px_bind-port=%u", id, out.below(65536));
        out.line("def_proxy_svc-%u-px_authenticate=*", id);
    }
}

void merge_a(corpus &out) { merged_proxies(out, 1); }

void merge_b(corpus &out) { merged_proxies(out, 2); }

void network_lists(corpus &out) {
    long count = std::max(1L, out.size / 6);
    out.line("netobj_num_list=%ld", count);
    for (long n = 1; n <= count; n++) {
        out.line("netobj_list_%ld_name=site-%u$LIST", n, scatter(n));
        out.line("netobj_list_%ld_num_elements=1", n);
        out.line("netobj_list_%ld_element_1_addr=%s", n, address(scatter(n)).c_str());
    }
    for (long n = 1; n <= count; n++) {
        out.line("netobj_group_%ld_name=site-%u", n, scatter(n));
        out.line("netobj_group_%ld_member_1_type=L", n);
        out.line("netobj_group_%ld_member_1_name=site-%u$LIST", n, scatter(n));
    }
}

// Lists of one host by name, of which a table of exact hosts finds some again.
void named_lists(corpus &out) {
    for (long n = 1; n <= out.size; n++)
        out.line("netobj_list_site-%ld$LIST_element_1_addr=%s", n, address(scatter(n * 2)).c_str());
}

// One list that also has to be searched for the address of the management station.
void elements(corpus &out) {
    long count = std::max(1L, out.size / 2);
    out.line("gui_client=172.16.0.1");
    out.line("netobj_list_1_name=fw-admin$LIST");
    for (long n = 1; n <= count; n++) {
        out.line("netobj_list_1_element_%ld_addr=%s", n, address(scatter(n)).c_str());
        out.line("netobj_list_1_element_%ld_name=%s", n, host_name(scatter(n)).c_str());
    }
    out.line("netobj_group_1_name=fw-admin");
    out.line("def_num_proxies=0");
    out.line("def_proxy_1_realname=tn-px");
}

// Interfaces in all three locations, each with two aliases and an entry in the list of all interfaces.
void interfaces(corpus &out) {
    long count = std::max(1L, out.size / 30);
    const char *const locations[] = {"Inside", "Outside", "Service"};
    for (long n = 0; n < 3; n++)
        numbered_location(out, n + 1, locations[n], count);
    out.line("netobj_list_4_name=all_interfaces");
    for (long n = 0; n < 3 * count; n++) {
        out.line("netobj_list_4_element_%ld_interface=%s%ld", n + 1, locations[n % 3], n / 3 + 1);
        out.line("netobj_list_4_element_%ld_location=%s", n + 1, locations[n % 3]);
    }
    for (long n = 0; n < 3 * count; n++) {
        std::string interface = locations[n / count] + std::to_string(n % count + 1);
        out.line("netobj_list_%ld_name=%s$INTERFACE", n + 5, interface.c_str());
        for (int m = 1; m <= 2; m++) {
            out.line("netobj_list_%ld_element_%d_addr=%s", n + 5, m, address(scatter(2 * n + m)).c_str());
            out.line("netobj_list_%ld_element_%d_name=%s", n + 5, m, host_name(scatter(n)).c_str());
        }
    }
}

void aliases(corpus &out) {
    numbered_location(out, 1, "Inside", 1);
    numbered_aliases(out, 2, "Inside1", std::max(1L, out.size / 2));
}

// A proxy whose list parameter has many entries, one with many list parameters and one with many old-style addresses.
void list_parameters(corpus &out) {
    long count = std::max(1L, out.size / 6);
    out.line("def_num_proxies=3");
    out.line("def_proxy_1_realname=http-px");
    for (long n = 1; n <= count; n++) {
        out.line("def_proxy_1_parm_%ld_name=permit-hosts_%ld", n, n);
        out.line("def_proxy_1_parm_%ld_value=%s", n, address(scatter(n)).c_str());
    }
    out.line("def_proxy_2_realname=ftp-px");
    for (long n = 1; n <= count; n++) {
        out.line("def_proxy_2_parm_%ld_name=deny-x%u_0", n, scatter(n));
        out.line("def_proxy_2_parm_%ld_value=%s", n, address(scatter(n)).c_str());
    }
    out.line("def_proxy_3_realname=ahttp-px");
    for (long n = 1; n <= count; n++) {
        out.line("def_proxy_3_cyberurl_%ld_access=permit", n);
        out.line("def_proxy_3_cyberurl_%ld_url=http://%s/", n, host_name(scatter(n)).c_str());
    }
}

void canonical_parameters(corpus &out) {
    long count = std::max(1L, out.size / 2);
    for (long n = 1; n <= count; n++)
        out.line("def_proxy_http-px_hosts_permit-%ld=%s", n, address(scatter(n)).c_str());
    for (long n = 1; n <= count; n++)
        out.line("def_proxy_ftp-px_x%u_deny-0=%s", scatter(n), address(scatter(n)).c_str());
}

void filters(corpus &out) {
    for (const char *rules : {"lcl", "fwd"})
        for (long n = 1; n <= out.size / 2; n++)
            filter_rule(out, rules, n);
}

void plugs(corpus &out) {
    long count = std::max(1L, out.size / 7);
    out.line("def_num_proxies=1");
    numbered_proxy(out, 1, "plug-px", 2);
    out.line("cust_num_proxies=%ld", count);
    for (long n = 1; n <= count; n++) {
        out.line("cust_proxy_%ld_name=plug-%u", n, scatter(n));
        out.line("cust_proxy_%ld_realname=plug-px", n);
        out.line("cust_proxy_%ld_num_parms=2", n);
        out.line("cust_proxy_%ld_parm_1_name=port", n);
        out.line("cust_proxy_%ld_parm_1_value=%u", n, out.below(65536));
        out.line("cust_proxy_%ld_parm_2_name=host", n);
        out.line("cust_proxy_%ld_parm_2_value=%s", n, host_name(scatter(n)).c_str());
    }
}

void carried(corpus &out) {
    long count = std::max(1L, out.size / 6);
    for (const char *family : {"sroute", "dest", "nat_rule", "menu_meta", "link", "key"})
        for (long n = 1; n <= count; n++)
            out.line("%s_%ld_addr=%s", family, static_cast<long>(scatter(n)), address(scatter(n)).c_str());
}

// The networks of a release before 4.0, all in one value.
void networks(corpus &out) {
    fputs("trusted_networks=", out.out);
    for (long n = 1; n <= out.size; n++)
        fprintf(out.out, "%s%%0A", address(scatter(n)).c_str());
    putc('\n', out.out);
}

// Netperm tables.

std::string random_host(corpus &out) {
    unsigned bits = out.below(1 << 22);
    switch (out.below(10)) {
    case 0:
        return std::string("*.") + departments[bits % 6] + std::to_string(bits % 4000) + ".example.com";
    case 1:
    case 2:
        return "10." + std::to_string(bits >> 8 & 255) + "." + std::to_string(bits & 255) + ".*";
    case 3:
    case 4:
    case 5:
        return host_name(bits);
    default:
        return address(bits);
    }
}

void rule_table(corpus &out) {
    out.line("# access rules");
    out.line("*: use_name_logs on");
    out.line("policy-office: password /etc/password");
    out.line("policy-office: authenticate *");
    out.line("policy-office: deny-url *.example.org");
    out.line("policy-lab: permit-destination *.lab.example.com");
    const char *const tails[] = {
        "", " -log", " -policy office", " -auth -log", " -policy lab -log", " -exec ./wrap -x"};
    for (long n = 1; n <= out.size; n++) {
        std::string hosts;
        for (unsigned left = 1 + out.below(5); left > 0; left--)
            hosts += " " + random_host(out);
        out.line("%s: %s-hosts%s%s", proxies[out.below(8)], out.below(4) ? "permit" : "deny", hosts.c_str(),
                 tails[out.below(6)]);
    }
}

void site_table(corpus &out) {
    for (long n = 1; n <= out.size; n++) {
        unsigned bits = scatter(n), kind = out.below(20);
        std::string host = address(bits);
        if (kind == 0)
            host = "*." + host_name(bits);
        else if (kind <= 3)
            host = "10." + std::to_string(bits >> 14 & 255) + "." + std::to_string(bits >> 6 & 255) + ".*";
        out.line("px%u: %s-hosts %s%s", 1 + out.below(12), out.below(4) ? "permit" : "deny", host.c_str(),
                 out.below(3) ? "" : " -log");
    }
}

void exact_hosts(corpus &out) {
    for (long n = 1; n <= out.size; n++)
        out.line("tn-px: %s-hosts %s%s", n % 5 ? "permit" : "deny", address(scatter(n)).c_str(), n % 2 ? " -log" : "");
}

void star_hosts(corpus &out) {
    for (long n = 1; n <= out.size; n++) {
        unsigned net = scatter(n);
        std::string host = "net" + std::to_string(net) + (n % 3 ? ".*" : ".lab.*");
        out.line("tn-px: permit-hosts %s%s", host.c_str(), n % 2 ? " -log" : "");
    }
}

void one_group(corpus &out) {
    for (long n = 1; n <= out.size; n++)
        out.line("tn-px: permit-hosts %s -log", address(scatter(n)).c_str());
}

// Proxies of three rules: a host that ten of them share, one of their own, and everybody.
void small_proxies(corpus &out) {
    for (long n = 1; n <= out.size / 3; n++) {
        out.line("svc-%ld-px: permit-hosts %s -log", n, address(scatter(n / 10)).c_str());
        out.line("svc-%ld-px: deny-hosts %s", n, host_name(scatter(n)).c_str());
        out.line("svc-%ld-px: permit-hosts *", n);
    }
}

void destinations(corpus &out) {
    for (long n = 1; n <= out.size; n++)
        out.line("tn-px: %s-destination %s", n % 4 ? "permit" : "deny", host_name(scatter(n)).c_str());
}

// A policy template for each rule.
void templates(corpus &out) {
    for (long n = 1; n <= out.size / 3; n++) {
        out.line("policy-p%u: authenticate *", scatter(n));
        out.line("policy-p%u: timeout %u", scatter(n), out.below(9999));
    }
    for (long n = 1; n <= out.size / 3; n++)
        out.line("tn-px: permit-hosts %s -policy p%u", address(scatter(n)).c_str(), scatter(n));
}

// Rules that name a policy, and one in forty that is for all proxies and so goes into the policy's template too.
void wide_templates(corpus &out) {
    out.line("policy-staff: authenticate *");
    out.line("policy-staff: timeout 60");
    for (long n = 1; n <= out.size; n++)
        if (n % 40 == 0)
            out.line("*: permit-hosts %s", address(scatter(n)).c_str());
        else
            out.line("px%ld: permit-hosts %s%s", 1 + n % 12, host_name(scatter(n)).c_str(),
                     n % 3 ? "" : " -policy staff");
}

const struct {
    const char *name;
    void (*write)(corpus &);
    bool nested; // can be printed as JSON and XML
    const char *help;
} shapes[] = {
    {"environment", environment, true, "a whole numbered environment"},
    {"canonical", canonical, false, "a whole canonical configuration"},
    {"siblings", siblings, true, "one list of siblings"},
    {"collisions", collisions, false, "siblings whose names were made to collide"},
    {"policies", policies, false, "policies and as many config sets, numbered"},
    {"canonpolicies", canonical_policies, false, "policies and as many config sets, canonical"},
    {"maps-a", maps_a, false, "maps with a source each"},
    {"maps-b", maps_b, false, "the same to be merged in, half of them known"},
    {"policymaps-a", policy_maps_a, false, "maps of one source with a policy each"},
    {"policymaps-b", policy_maps_b, false, "the same to be merged in with all policies"},
    {"manyproxies", many_proxies, false, "canonical proxies of four parameters"},
    {"merge-a", merge_a, false, "canonical proxies"},
    {"merge-b", merge_b, false, "the same to be merged in, every second one known"},
    {"netlists", network_lists, false, "numbered network lists and groups of one element"},
    {"namedlists", named_lists, false, "canonical network lists of one element"},
    {"elements", elements, false, "one list of elements"},
    {"interfaces", interfaces, false, "interfaces in three locations, with aliases"},
    {"aliases", aliases, false, "the aliases of one interface"},
    {"listparms", list_parameters, false, "list parameters of three proxies, numbered"},
    {"canonparms", canonical_parameters, false, "list parameters of two proxies, canonical"},
    {"filters", filters, false, "filter rules"},
    {"plugs", plugs, false, "a plug proxy of many config sets"},
    {"carried", carried, false, "the families that are only renumbered"},
    {"networks", networks, false, "trusted networks in one value"},
    {"table", rule_table, false, "rules over 8 proxies, one to five hosts a rule"},
    {"site", site_table, false, "rules over 12 proxies: exact hosts, and one in five with a star at an end"},
    {"exact", exact_hosts, false, "one proxy, rules with exact hosts"},
    {"stars", star_hosts, false, "one proxy, rules with trailing-star patterns"},
    {"onegroup", one_group, false, "one proxy, rules that make one group"},
    {"smallproxies", small_proxies, false, "proxies of three rules"},
    {"destinations", destinations, false, "one proxy, destination rules"},
    {"templates", templates, false, "policy templates and a rule for each"},
    {"widetemplates", wide_templates, false, "rules that name a policy, and rules for all proxies and templates"},
};

} // namespace

bool write_corpus(FILE *out, const std::string &shape, long size, uint64_t seed, const std::string &format) {
    bool lines = format == "lines";
    if (!lines && format != "json" && format != "xml")
        return false;
    for (const auto &known : shapes)
        if (shape == known.name && (lines || known.nested)) {
            corpus writer{out, size, seed};
            if (lines) {
                known.write(writer);
                return true;
            }
            nested_printer nested(out, format == "xml");
            writer.nested = &nested;
            known.write(writer);
            nested.finish();
            return true;
        }
    return false;
}

std::string shape_help() {
    std::string text = "shapes:\n";
    for (const auto &known : shapes)
        text += "  " + std::string(known.name) + std::string(15 - std::string_view(known.name).size(), ' ') +
                known.help + "\n";
    return text;
}
