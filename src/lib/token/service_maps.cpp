// The services of each platform, and the states that go back to them on saving.
#include "frag_tools.h"
#include "nupgrade.h"

#include <cstring>

// There is no proxy NOT_DEF: such a row only makes its service known, so that the 4.1 upgrade removes the service's
// entry. Of several rows for one service, proxy or type the first counts.
const maprec map_unix[] = {
    {"http-px", "http", "http-px", "80", "./http-px"},
    {"tn-px", "telnet", "tn-px", "23", "./tn-px"},
    {"rlogin-px", "rlogin", "rlogin-px", "login", "./rlogin-px"},
    {"ftp-px", "ftp", "ftp-px", "21", "./ftp-px"},
    {"info-px", "info", "info-px", "8000", "./info-px"},
    {"pop3-px", "pop3", "pop3-px", "110", "./pop3-px"},
    {"lp-px", "lpr", "lp-px", "515", "./lp-px"},
    {"gopher-px", "gopher", "gopher-px", "70", "./http-px"},
    {"snmp-px", "snmp", "snmp-px", "161", ""},
    {"sql-px", "sqlnet", "sql-px", "sqlnet", ""},
    {"ck-px", "circuit", "ck-px", "ckpxport", ""},
    {"ldap-px", "ldap", "plug-px", "ldap", "./plug-px"},
    {"aol-px", "aol", "plug-px", "5190", "./plug-px"},
    {"cserve-px", "cserve", "plug-px", "4144", "./plug-px"},
    {"lnotes-px", "lnotes", "plug-px", "1352", "./plug-px"},
    {"nntp-px", "news", "plug-px", "119", "./plug-px"},
    {"ssl-px", "ssl", "plug-px", "443", "./plug-px"},
    {"nntp-ext", "nntp-ext", "plug-px", "119", "./plug-px"},
    {"NetShow", "netshow", "NetShow", "1755", "./mmp-px"},
    {"RealAudio", "rap", "RealAudio", "7070", "./mmp-px"},
    {"rap", "rap", "RealAudio", "7070", "./mmp-px"},
    {"VDOLive", "vdolive", "mmp-px", "7000", "./mmp-px"},
    {"NOT_DEF", "custom1", "", "", ""},
    {"NOT_DEF", "custom2", "", "", ""},
    {"NOT_DEF", "custom3", "", "", ""},
    {"NOT_DEF", "custom4", "", "", ""},
    {"NOT_DEF", "custom5", "", "", ""},
    {"NOT_DEF", "custom6", "", "", ""},
    {"mssql-px", "mssql", "", "1433", ""},
    {"strmwrks-px", "strmwrks", "", "", ""},
    {"rsh-px", "rsh", "", "", ""},
    {"fingerd", "finger", "", "", ""},
    {"whois", "whois", "", "", ""},
    {"mrly", "mail", "", "", ""},
    {"credsvc", "credsvc", "", "", ""},
    {"cyberpatrol", "cyberpatrol", "", "8999", ""},
    {"syb-px", "sybase", "", "", ""},
    {nullptr, nullptr, nullptr, nullptr, nullptr},
};

const maprec map_nt[] = {
    {"http-px", "http", "http-px", "80", "http-px.exe"},
    {"tn-px", "telnet", "tn-px", "23", "tn-px.exe"},
    {"ftp-px", "ftp", "ftp-px", "21", "ftp-px.exe"},
    {"pop3-px", "pop3", "pop3-px", "110", "pop3-px.exe"},
    {"snmp-px", "snmp", "snmp-px", "snmp", "snmp-px.exe"},
    {"sql-px", "sqlnet", "sql-px", "sqlnet", "sql-px.exe"},
    {"ldap-px", "ldap", "plug-px", "ldap", "plug-px.exe"},
    {"aol-px", "aol", "plug-px", "5190", "plug-px.exe"},
    {"cserve-px", "cserve", "plug-px", "4144", "plug-px.exe"},
    {"lnotes-px", "lnotes", "plug-px", "1352", "plug-px.exe"},
    {"nntp-px", "news", "plug-px", "119", "plug-px.exe"},
    {"nntp_ext", "nntp_ext", "plug-px", "119", "plug-px.exe"},
    {"NetShow", "netshow", "NetShow", "1755", "netshow.exe"},
    {"rap", "rap", "RealAudio", "7070", "RealAudio.exe"},
    {"VDOLive", "vdolive", "VDOlive", "7000", "vdolive.exe"},
    {"NOT_DEF", "custom1", "", "", ""},
    {"NOT_DEF", "custom2", "", "", ""},
    {"NOT_DEF", "custom3", "", "", ""},
    {"NOT_DEF", "custom4", "", "", ""},
    {"NOT_DEF", "custom5", "", "", ""},
    {"NOT_DEF", "custom6", "", "", ""},
    {"mssql-px", "mssql", "", "", ""},
    {"strmwrks-px", "strmwrks", "", "", ""},
    {"rsh-px", "rsh", "", "", ""},
    {"fingerd", "finger", "", "", ""},
    {"whois", "whois", "", "", ""},
    {"mrly", "mail", "", "", ""},
    {"credsvc", "credsvc", "", "", ""},
    {"NOT_DEF", "cyberpatrol", "", "", ""},
    {"NOT_DEF", "sybase", "", "", ""},
    {nullptr, nullptr, nullptr, nullptr, nullptr},
};

const os2maprec_row os2maprec[] = {
    {"NT40", map_nt},  {"BSD40", map_unix}, {"NT", map_nt},    {"BSD", map_unix},
    {"SOL", map_unix}, {"HPUX", map_unix},  {"AIX", map_unix}, {nullptr, nullptr},
};

const maprec *determine_os_maprec(FragList db) {
    if (const char *os_type = fval(db, "OS_Type"))
        for (const os2maprec_row *row = os2maprec; row->os; row++)
            if (has_prefix(os_type, row->os))
                return row->table;
    return map_unix;
}

const maprec *find_maprec(const maprec *table, const char *maprec::*column, const char *text) {
    for (const maprec *row = table; row->proxy; row++)
        if (strcmp(row->*column, text) == 0)
            return row;
    return nullptr;
}

int norm41states(FragList db) {
    Frag *def_proxy = ffind(db, "def_proxy");
    if (!def_proxy)
        return 1;
    Frag *services = fmake(db, "proxy");
    const maprec *table = determine_os_maprec(db);
    if (table == map_unix)
        return 0;
    for (const maprec *row = table; row->proxy; row++)
        if (Frag *state = ffind2(&def_proxy->child, row->proxy, "state"))
            fsetp(&services->child, row->service, state->value ? state->value : "", services);
    return 0;
}
