/// The files of one review, each read once, whoever asks for it.
#ifndef REVIEW_FILES_H
#define REVIEW_FILES_H

#include "read/configuration.h"
#include "read/netperm_table.h"

#include <map>
#include <optional>

/// All bytes of a regular file; nothing if it can't be read.
std::optional<std::string> read_bytes(const std::string &path);

struct loaded_files {
    /// The file's bytes, or null if it can't be read.
    const std::string *bytes(const std::string &path);
    /// The file as a configuration or as a table; null if it can't be read.
    const configuration *conf(const std::string &path, conf_layout layout = conf_layout::translated);
    const netperm_table *table(const std::string &path);

private:
    std::map<std::string, std::optional<file_bytes>> read;
    std::map<std::pair<std::string, conf_layout>, std::unique_ptr<configuration>> confs;
    std::map<std::string, std::unique_ptr<netperm_table>> tables;
};

#endif
