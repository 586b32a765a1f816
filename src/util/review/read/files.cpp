// The files of one review.
#include "read/files.h"

#include <filesystem>
#include <fstream>

std::optional<std::string> read_bytes(const std::string &path) {
    std::error_code failed;
    std::uintmax_t size = std::filesystem::file_size(path, failed); // fails for all but a regular file
    std::string bytes(failed ? 0 : size, 0);
    if (failed || !std::ifstream(path, std::ios::binary).read(bytes.data(), static_cast<std::streamsize>(bytes.size())))
        return {};
    return bytes;
}

const std::string *loaded_files::bytes(const std::string &path) {
    auto [known, is_new] = read.try_emplace(path);
    if (is_new)
        known->second = read_bytes(path);
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
