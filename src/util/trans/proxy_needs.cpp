// Which proxy has a use for which attributes.
#include "netperm.h"

#include <cstring>

const proxy_attr_rec proxy_attr_tab[] = {
    {"alerts", 0},
    {"ssl-px", 0},
    {"radm", UNREAD_4},
    {"info-px", 0},
    {"gui", UNREAD_4 | UNREAD_8},
    {"tn-px", NEEDS_AUTH | NEEDS_X},
    {"login-sh", NEEDS_AUTH},
    {"credsvc", NEEDS_AUTH},
    {"ahttp-px", NEEDS_AUTH | UNREAD_4},
    {"http-px", NEEDS_AUTH},
    {"rlogin-px", NEEDS_AUTH | NEEDS_X},
    {"mrlyd", 0},
    {"mrly", 0},
    {"pop3-px", NEEDS_AUTH},
    {"whois", 0},
    {"fingerd", 0},
    {"svcgrd-fingerd", 0},
    {"svcgrd-ftpd", 0},
    {"svcgrd-rlogind", 0},
    {"svcgrd-telnetd", 0},
    {"ldap-px", 0},
    {"VDOLive", 0},
    {"NetShow", 0},
    {nullptr, 0},
};

bool proxy_needs(const char *proxy, int bits) {
    for (const proxy_attr_rec *rec = proxy_attr_tab; rec->proxy; rec++)
        if (strcmp(proxy, rec->proxy) == 0)
            return (rec->bits & bits) != 0;
    return true;
}

int needsauth(const char *proxy) { return proxy_needs(proxy, NEEDS_AUTH); }

int needsx(const char *proxy) { return proxy_needs(proxy, NEEDS_X); }
