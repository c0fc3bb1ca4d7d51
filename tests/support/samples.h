// samples.h: repeatable random input.
#ifndef TESTS_SUPPORT_SAMPLES_H
#define TESTS_SUPPORT_SAMPLES_H

#include "support/files.h"

#include <random>
#include <vector>

class Samples {
public:
    std::size_t below(std::size_t bound) { return generator_() % bound; }

    Bytes bytes(std::size_t size) {
        Bytes bytes(size);
        for (uint8_t &byte : bytes)
            byte = static_cast<uint8_t>(generator_() >> 24);
        return bytes;
    }

    // Pieces that add up to size: now and then an empty one, often small ones.
    std::vector<std::size_t> pieces(std::size_t size) {
        std::vector<std::size_t> pieces;
        while (size != 0) {
            const std::size_t limit = below(3) == 0 ? size : size < 70 ? size : 70;
            pieces.push_back(below(limit + 1));
            size -= pieces.back();
        }
        return pieces;
    }

private:
    std::mt19937 generator_{1};
};

// Lengths that put both sides of each block boundary to the test, then a few large ones.
inline std::vector<std::size_t> sample_lengths() {
    std::vector<std::size_t> lengths;
    for (std::size_t i = 0; i <= 300; ++i)
        lengths.push_back(i);
    lengths.insert(lengths.end(), {1023, 1024, 4095, 4097, 32771, 65536, 100003});
    return lengths;
}

#endif
