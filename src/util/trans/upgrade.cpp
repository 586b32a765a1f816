// The command line, the old configuration's release, and the order of all passes.
#include "upgrade.h"
#include "frag_tools.h"
#include "nupgrade.h"

#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>
#include <utility>

FILE *repf;

void usage(const char *program) {
    fprintf(stderr, "usage: %s [-Vx] [-n netperm] [-m mergefile] outputfile\n", program);
    exit(1);
}

int old_config_type(FragList conf) {
    if (!ffind(conf, "def_proxy"))
        return 32;
    Frag *version = ffind(conf, "version_firewall");
    if (!version)
        return 40;
    if (!version->value)
        return 0;
    const char *text = version->value;
    while (*text && !is_digit(*text))
        text++;
    if (has_prefix(text, "5.5"))
        return 55;
    if (!*text)
        return 50;
    int type = (*text++ - '0') * 10;
    if (*text == '.')
        text++;
    if (is_digit(*text))
        type += *text - '0';
    return type;
}

namespace {

/// One run: its command line and what the options so far have set.
struct run {
    int argc;
    char **argv;
    int at = 0; // the argument that was handled last
    int config_type = 0;
    int output_version = 1;
    int merge_count = 0;

    int left() const { return argc - 1 - at; }
    const char *next() { return argv[++at]; }
    void need(int arguments) const {
        if (left() < arguments)
            usage(argv[0]);
    }
};

// What the run looks at in the old configuration, and in the initial environment, ahead of merging them.
const char *const oldconf_keys[] = {
    "def_proxy", "version_firewall", "trusted_networks", "untrusted_networks", "netobj_", nullptr,
};
const char *const initconf_keys[] = {"def_proxy_", nullptr};

// Reads the file of the next `-m` from `at` on, for inspection. The result is the argument behind it.
int read_merge_file(const run &r, int at, FragList list, const char *const *keys) {
    while (at < r.argc && strcmp(r.argv[at], "-m") != 0)
        at++;
    if (at + 1 < r.argc)
        inspectffile(r.argv[at + 1], list, keys);
    return at + 2;
}

void take_network_list(const char *key, const char *list_name) {
    if (Frag *networks = fdel(&oldconf, key)) {
        if (networks->value)
            xurl2netobj(cur_database, list_name, networks->value);
        freefrag(networks);
    }
}

// What must be taken from the old configuration ahead of everything else: its network objects.
void take_netobj() {
    if (!ffind(&oldconf, "def_proxy")) {
        take_network_list("trusted_networks", "Trusted$LIST");
        take_network_list("untrusted_networks", "Untrusted$LIST");
        return;
    }
    Frag *netobj = fset(cur_database, "netobj", nullptr);
    freelist(netobj->child);
    netobj->child = nullptr;
    // The lists, and what stands behind them.
    if (Frag *old_netobj = ffind(&oldconf, "netobj")) {
        FragList link = &old_netobj->child;
        while (*link && !is_named(*link, "list"))
            link = &(*link)->next;
        std::swap(netobj->child, *link);
        for (Frag *frag = netobj->child; frag; frag = frag->next)
            frag->parent = netobj;
        freelist(old_netobj->child); // the groups: nothing reads them, and the merge can use their memory
        old_netobj->child = nullptr;
    }
}

void report_option(run &r) {
    r.need(2);
    const char *path = r.next();
    repf = open_file(path, "w");
    if (repf)
        fprintf(repf, "Old config type=%d\n", r.config_type);
    else
        fprintf(stderr, "%s: failed to open report file %s for writing\n", r.argv[0], path);
}

void version_option(run &r, const char *text) {
    r.output_version = decimal(*text ? text : r.next());
    if (r.output_version == 2)
        r.output_version = 99;
}

void merge_option(run &r) {
    r.need(2);
    const char *path = r.next();
    int count = r.merge_count++;
    // A 5.5 configuration is complete: nothing is merged into it.
    if (r.config_type == 55 && count != 0)
        return;
    if (count == 0 && repf)
        fputs("merge: Old config file\n", repf);
    if (count == 1) {
        fremove(cur_database, "def_proxy_sql-px_proxy-exec");
        if (repf)
            fputs("merge: New Initial Environment\n", repf);
    }
    conf_merge(cur_database, path);
}

void netperm_option(run &r) {
    r.need(2);
    netperm_pass(r.next(), r.config_type);
}

void environment_option(run &r) {
    const char *path = r.next();
    if (repf)
        fprintf(repf, "import: %s\n", path);
    importenv(path);
    norm_fragtree(&def_database);
    up41(&def_database);
    fremove(cur_database, "map");
    fremove(cur_database, "def_proxy");
    fremove(cur_database, "policy");
}

// A standard stream that is closed would be given to the first file that is opened, and messages would end up in it.
void hold_standard_streams() {
    int file = open("/dev/null", O_RDWR);
    while (file >= 0 && file <= STDERR_FILENO)
        file = open("/dev/null", O_RDWR);
    if (file >= 0)
        close(file);
}

void last_passes(const run &r) {
    pre_save_cleanup(cur_database);
    fflush(stdout);
    if (r.config_type < 40) {
        fset(cur_database, "version_upgraded", "PRE 4.0");
    } else if (r.config_type != 55) {
        copy_50_stuff(cur_database, &initconf);
        fset(cur_database, "version_upgraded", "POST 4.0");
    }
    if (r.config_type != 55)
        do_55_upgrades(cur_database);
}

} // namespace

int upgrade(int argc, char **argv) {
    hold_standard_streams();
    run r{argc, argv};
    cur_database = &def_database;
    if (argc < 4)
        usage(argc > 0 ? argv[0] : "upgrade");

    int behind_first = read_merge_file(r, 1, &oldconf, oldconf_keys);
    read_merge_file(r, behind_first, &initconf, initconf_keys);
    r.config_type = old_config_type(&oldconf);
    take_netobj();

    // The last argument is the output and never an option, but an option may take it as its own argument.
    while (r.left() > 1) {
        const char *option = r.next();
        if (option[0] != '-')
            continue;
        switch (option[1]) {
        case 'V':
            version_option(r, option + 2);
            break;
        case 'R':
            report_option(r);
            break;
        case 'm':
            merge_option(r);
            break;
        case 'n':
            netperm_option(r);
            break;
        case 'e':
            environment_option(r);
            break;
        default:
            usage(argv[0]);
        }
    }

    last_passes(r);
    exportenv(r.left() > 0 ? r.next() : nullptr, r.output_version);
    return 0;
}
