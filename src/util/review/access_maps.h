/// Maps, groups, lists, policies and config sets of a configuration with the lines that they stand in.
#ifndef ACCESS_MAPS_H
#define ACCESS_MAPS_H

#include "access.h"

/// Adds what a configuration says about access to the side. Both layouts are understood, record by record, so that a
/// merged file that holds some of each is read too. False if it can't be opened.
bool read_access_maps(const char *path, access_side &side);

#endif
