// The files of one review.
#include "read/files.h"

#include <filesystem>
#include <fstream>

bool read_bytes(const std::string &path, std::string &bytes) {
    std::error_code failed;
    if (!std::filesystem::is_regular_file(path, failed))
        return false;
    std::ifstream file(path, std::ios::binary);
    std::uintmax_t size = std::filesystem::file_size(path, failed);
    bytes.resize(failed ? 0 : size);
    return !failed && file.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

const std::string *loaded_files::bytes(const std::string &path) {
    auto [known, is_new] = read.try_emplace(path);
    std::string bytes;
    if (is_new && read_bytes(path, bytes))
        known->second.emplace(std::move(bytes));
    return known->second ? known->second->held.get() : nullptr;
}

const configuration *loaded_files::conf(const std::string &path, conf_layout layout) {
    std::unique_ptr<configuration> &made = confs[{path, layout}];
    if (!made && bytes(path))
        made = read_configuration(path, *read[path], layout);
    return made.get();
}

const netperm_table *loaded_files::table(const std::string &path) {
    std::unique_ptr<netperm_table> &made = tables[path];
    if (!made && bytes(path))
        made = read_netperm_table(path, *read[path]);
    return made.get();
}
