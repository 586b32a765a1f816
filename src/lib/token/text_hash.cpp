// SipHash-1-3 (Aumasson, Bernstein): one round for each word of the text, three at the end.
#include "text_hash.h"

#include <chrono>
#include <exception>
#include <random>

namespace {

uint64_t rotate(uint64_t word, int bits) { return word << bits | word >> (64 - bits); }

struct sip_state {
    uint64_t v0, v1, v2, v3;

    void round() {
        v0 += v1;
        v2 += v3;
        v1 = rotate(v1, 13) ^ v0;
        v3 = rotate(v3, 16) ^ v2;
        v0 = rotate(v0, 32) + v3;
        v2 += v1;
        v1 = rotate(v1, 17) ^ v2;
        v3 = rotate(v3, 21) ^ v0;
        v2 = rotate(v2, 32);
    }
    void take(uint64_t word) {
        v3 ^= word;
        round();
        v0 ^= word;
    }
};

// Up to eight bytes as a number, the first byte lowest.
uint64_t word_of(const char *bytes, size_t count) {
    uint64_t word = 0;
    for (size_t at = 0; at < count; at++)
        word |= uint64_t{static_cast<unsigned char>(bytes[at])} << 8 * at;
    return word;
}

struct sip_key {
    uint64_t first, second;
};

sip_key random_key() {
    try {
        std::random_device source;
        auto word = [&] { return uint64_t{source()} << 32 | source(); };
        return {word(), word()};
    } catch (const std::exception &) {
        // A system without a source of chance: the time, and where it has put the program.
        static const char place = 0;
        return {static_cast<uint64_t>(std::chrono::steady_clock::now().time_since_epoch().count()),
                reinterpret_cast<uintptr_t>(&place)};
    }
}

} // namespace

uint64_t sip_hash(uint64_t key0, uint64_t key1, std::string_view text) {
    sip_state state{key0 ^ 0x736f6d6570736575u, key1 ^ 0x646f72616e646f6du, key0 ^ 0x6c7967656e657261u,
                    key1 ^ 0x7465646279746573u};
    const char *at = text.data();
    size_t left = text.size();
    for (; left >= 8; at += 8, left -= 8)
        state.take(word_of(at, 8));
    state.take(word_of(at, left) | uint64_t{text.size()} << 56);
    state.v2 ^= 0xff;
    for (int rounds = 0; rounds < 3; rounds++)
        state.round();
    return state.v0 ^ state.v1 ^ state.v2 ^ state.v3;
}

size_t text_hash::operator()(std::string_view text) const {
    static const sip_key key = random_key();
    return static_cast<size_t>(sip_hash(key.first, key.second, text));
}
