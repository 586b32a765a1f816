/// The upgrade driver and the last passes before saving; with the two headers that it includes, all of the upgrade.
#ifndef UPGRADE_H
#define UPGRADE_H

#include "merging.h"
#include "netperm.h"

// The driver.

/// The report stream, null when there is none.
extern FILE *repf;
/// The whole run of the program, with main()'s arguments. The result is its exit status; a usage error and a netperm
/// table that can't be opened exit with status 1. Afterwards `oldconf` and `initconf` hold only what the run looks at
/// in their files, without what it has taken over.
int upgrade(int argc, char **argv);
/// Prints the usage line on standard error and exits with status 1.
[[noreturn]] void usage(const char *program);
/// The release that wrote the configuration, as two digits; 0 if its version key has no value. 32 if it has no
/// `def_proxy`, 40 if it has no version key.
int old_config_type(FragList conf);

// The last passes before saving.

/// Turns the global login setting into the states of three proxies.
void pre_save_cleanup(FragList db);
/// Takes over from the new initial environment `init` what must come from there. Always 0.
int copy_50_stuff(FragList db, FragList init);
/// Applies the changes of release 5.5 and stamps the database. Always 0.
int do_55_upgrades(FragList db);

// Their tables. Each ends with a null.

/// The proxies that `pre_save_cleanup` switches on.
extern const char *const login_services[];
/// The proxies that `copy_50_stuff` removes.
extern const char *const del_50_proxies[];
/// The proxy keys that `copy_50_stuff` takes from the initial environment.
extern const char *const force_list[];
/// The proxies that `do_55_upgrades` removes.
extern const char *const del_55_proxies[];
/// The keys that `do_55_upgrades` removes.
extern const char *const del_55_keys[];
/// The program that `do_55_upgrades` gives to a proxy of that type.
struct program_rec {
    const char *type; ///< value of `proxy-type`, in any case
    const char *exec; ///< becomes the value of `proxy-exec`
};
extern const program_rec program_tab[];

#endif
