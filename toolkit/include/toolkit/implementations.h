// implementations.h: the primitives that have more than one implementation.
//
// Each has a table with the fastest first and one that works anywhere last. The public functions
// take the first row that this processor can run and that is meant for so long a run; tests take
// each.
#ifndef TOOLKIT_IMPLEMENTATIONS_H
#define TOOLKIT_IMPLEMENTATIONS_H

#include <toolkit/des.h>
#include <toolkit/rc2.h>

namespace toolkit {

// What a block goes through in DES, triple DES or DESX, one direction: 8 bytes are added (exclusive
// or) before and after the passes.
struct DesPasses {
    int count;
    struct {
        const DesKey *key;
        bool decrypt;
    } pass[3];
    const uint8_t *before, *after;
};

struct DesDecryption {
    const char *name;
    bool (*available)();
    std::size_t least_blocks; // shorter runs are faster in a later row
    void (*cbc_decrypt)(const DesPasses &passes, uint8_t iv[8], const uint8_t *in, uint8_t *out,
                        std::size_t blocks);
};

extern const DesDecryption des_decryptions[];
extern const std::size_t des_decryption_count;

struct Rc2Decryption {
    const char *name;
    bool (*available)();
    std::size_t least_blocks;
    void (*cbc_decrypt)(const Rc2Key &key, uint8_t iv[8], const uint8_t *in, uint8_t *out,
                        std::size_t blocks);
};

extern const Rc2Decryption rc2_decryptions[];
extern const std::size_t rc2_decryption_count;

// The inner loops of base 64 on whole groups; see toolkit/recode_groups.h. Each returns how much of
// the input it read.
struct RecodeGroups {
    const char *name;
    bool (*available)();
    std::size_t (*encode)(uint8_t *out, const uint8_t *in, std::size_t size);
    std::size_t (*decode)(uint8_t *out, const uint8_t *in, std::size_t size);
};

extern const RecodeGroups recode_groups[];
extern const std::size_t recode_groups_count;

} // namespace toolkit

#endif
