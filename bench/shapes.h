/// Inputs for measuring: configurations and netperm tables of any size, the same for the same seed everywhere.
#ifndef SHAPES_H
#define SHAPES_H

#include <cstdint>
#include <cstdio>
#include <string>

/// Writes one file of the shape to the stream: about `size` lines, or `size` rules of a netperm table. The format is
/// "lines" (what the upgrader reads), or "json" or "xml" for the same tree of a configuration in that notation.
/// False if there is no such shape, or none in that format.
bool write_corpus(FILE *out, const std::string &shape, long size, uint64_t seed, const std::string &format = "lines");
/// The names of all shapes, each with a line that says what it holds.
std::string shape_help();

#endif
