/// A hash of texts for every table whose keys come from a file. Nobody can write a file whose keys collide, since the
/// hash is keyed by chance in each process. So nothing that is written may depend on it or on the order of such a
/// table.
#ifndef TEXT_HASH_H
#define TEXT_HASH_H

#include <cstddef>
#include <cstdint>
#include <string_view>

/// SipHash-1-3 of the text under that key of two words.
uint64_t sip_hash(uint64_t key0, uint64_t key1, std::string_view text);

/// The hash under this process's key, for the standard containers too.
struct text_hash {
    size_t operator()(std::string_view text) const;
};

#endif
