// A program on the libraries: it merges a file into a configuration in memory, and asks what has come of it.
#include <frag_tools.h>
#include <name_index.h>
#include <nsym.h>
#include <nupgrade.h>
#include <upgrade.h>

#include <cstring>

int main() {
    FILE *file = fopen("old.conf", "w");
    if (!file || fputs("version_firewall=5.0\ndef_proxy_tn-px_timeout=9\ndef_proxy_ftp-px_timeout=7\n", file) < 0 ||
        fclose(file) != 0)
        return 1;
    fset(&def_database, "def_proxy_tn-px_timeout", "3");
    conf_merge(&def_database, "old.conf");

    const char *kept = fval(&def_database, "def_proxy_tn-px_timeout");
    const char *merged = fval(&def_database, "def_proxy_ftp-px_timeout");
    if (!kept || strcmp(kept, "3") != 0 || !merged || strcmp(merged, "7") != 0)
        return 2;
    if (name_index(&def_database, "def_proxy").count != 2 || count_frags(def_database) != 2)
        return 3;
    return old_config_type(&def_database) == 50 ? 0 : 4;
}
