/// The system as a fuzzed run sees it: files in memory, reads of odd sizes, a heap that can fail, an end of the process
/// that comes back to the fuzzer.
#ifndef FAKE_SYSTEM_H
#define FAKE_SYSTEM_H

#include "nsym.h"

#include <cstdint>
#include <functional>
#include <map>
#include <string>

/// The files by name, those that a run wrote included.
extern std::map<std::string, std::string> files;

/// Calls `body` and frees what it left on the heap. Reads come in pieces and in one of four runs an allocation fails,
/// once or from then on, all as `seed` says. The result is the status with which the body ended the process, or -1 if
/// it came to its end; a run with a failing allocation must end with 1 and leave `out` alone.
int run(uint64_t seed, const std::function<void()> &body);

/// A number that depends on all bytes.
uint64_t hash_of(const uint8_t *data, size_t size);
/// Ends the fuzzer with a message if the condition doesn't hold.
void check(bool condition, const char *message);
/// Checks what holds in every tree: ended values, parents that are the owner or null, names.
void check_tree(FragList list);
/// Forgets the databases and all that a run set.
void reset_databases();

#endif
