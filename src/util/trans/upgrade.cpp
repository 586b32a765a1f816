// The old configuration's release, and the order of all passes.
#include "upgrade.h"
#include "command_line.h"
#include "frag_tools.h"
#include "nupgrade.h"

#include <fcntl.h>
#include <unistd.h>
#include <utility>

FILE *repf;

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

/// What the options so far, and the look at the old configuration, have set.
struct run {
    const char *program;
    int config_type = 0;
    int output_version = 1;
    int merge_count = 0;
};

// What the run looks at in the old configuration ahead of merging it. A key that ends in `_` stands for all below it.
const char *const oldconf_keys[] = {
    "def_proxy",          // without it the configuration is from before 4.0
    "version_firewall",   // tells any other release
    "trusted_networks",   // from before 4.0: becomes a network list
    "untrusted_networks", // likewise
    "netobj_",            // of any other release: its network lists are taken over
    nullptr,
};

// The same for the initial environment: `copy_50_stuff` takes settings of its proxies.
const char *const initconf_keys[] = {"def_proxy_", nullptr};

// Makes a network list of the text of an old configuration from before 4.0.
void take_network_list(const char *key, const char *list_name) {
    if (Frag *networks = fdel(&oldconf, key)) {
        if (networks->value)
            xurl2netobj(cur_database, list_name, networks->value);
        freefrag(networks);
    }
}

// Takes the network objects of the old configuration over, ahead of the options: rules of a table then use the list
// that has their hosts, and a file that is merged changes none.
void take_netobj() {
    if (!ffind(&oldconf, "def_proxy")) {
        take_network_list("trusted_networks", "Trusted$LIST");
        take_network_list("untrusted_networks", "Untrusted$LIST");
        return;
    }
    Frag *netobj = fset(cur_database, "netobj", nullptr);
    freelist(netobj->child);
    netobj->child = nullptr;
    // The node `list` and the siblings behind it; what stands in front of it is left out.
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

void open_report(const run &r, const char *path) {
    repf = open_file(path, "w");
    if (repf)
        fprintf(repf, "Old config type=%d\n", r.config_type);
    else
        fprintf(stderr, "%s: failed to open report file %s for writing\n", r.program, path);
}

void merge_file(run &r, const char *path) {
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

void import_environment(const char *path) {
    if (repf)
        fprintf(repf, "import: %s\n", path);
    importenv(path);
    norm_fragtree(&def_database);
    up41(&def_database);
    fremove(cur_database, "map");
    fremove(cur_database, "def_proxy");
    fremove(cur_database, "policy");
}

// Opens those of the standard streams that the caller has closed. Else a file that the run opens would become one of
// them, and messages would be written into it.
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
    cur_database = &def_database;
    command_line line(argc, argv);

    int at = 1;
    if (const char *old_file = line.find_merge_file(&at))
        inspectffile(old_file, &oldconf, oldconf_keys);
    if (const char *init_file = line.find_merge_file(&at))
        inspectffile(init_file, &initconf, initconf_keys);
    run r{line.program(), old_config_type(&oldconf)};
    take_netobj();

    for (command_option option; line.next_option(option);)
        switch (option.letter) {
        case 'V':
            r.output_version = decimal(option.argument);
            if (r.output_version == 2)
                r.output_version = 99;
            break;
        case 'R':
            open_report(r, option.argument);
            break;
        case 'm':
            merge_file(r, option.argument);
            break;
        case 'n':
            netperm_pass(option.argument, r.config_type);
            break;
        case 'e':
            import_environment(option.argument);
            break;
        }

    last_passes(r);
    exportenv(line.output(), r.output_version);
    return 0;
}
