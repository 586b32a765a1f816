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

loaded_files::file &loaded_files::load(const std::string &path) {
    auto [found, added] = known.try_emplace(path);
    std::string bytes;
    if (added && read_bytes(path, bytes))
        found->second.bytes.emplace(std::move(bytes));
    return found->second;
}

const std::string *loaded_files::bytes(const std::string &path) {
    file &loaded = load(path);
    return loaded.bytes ? loaded.bytes->held.get() : nullptr;
}

const configuration *loaded_files::conf(const std::string &path, conf_layout layout) {
    file &loaded = load(path);
    auto &made = layout == conf_layout::translated   ? loaded.translated
                 : layout == conf_layout::as_written ? loaded.as_written
                                                     : loaded.merged;
    if (loaded.bytes && !made)
        made = read_configuration(path, *loaded.bytes, layout);
    return made.get();
}

const netperm_table *loaded_files::table(const std::string &path) {
    file &loaded = load(path);
    if (loaded.bytes && !loaded.table)
        loaded.table = read_netperm_table(path, *loaded.bytes);
    return loaded.table.get();
}
