/// Host rules of a netperm table with the lines that they stand in.
#ifndef NETPERM_RULES_H
#define NETPERM_RULES_H

#include "access.h"

/// Adds the host rules of the table to the side. Its wildcard lines reach every proxy that it names and every proxy
/// that the side knows already. False if it can't be opened; a read error ends it, without the line that it stands in.
bool read_netperm_rules(const char *path, access_side &side);
/// True for names in a table that stand for no proxy whose hosts are translated: templates, all proxies, and those
/// that the upgrade drops.
bool is_no_proxy(std::string_view name);
/// Adds the rules of a line that sets hosts, one for each host.
void add_line_rules(const table_line &line, size_t source, std::vector<access_rule> &into);
/// Adds the rules that the side's tables hold for the proxy, in the order of their lines.
void add_table_rules(const access_side &side, const std::string &proxy, std::vector<access_rule> &into);

#endif
