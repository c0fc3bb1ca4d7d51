// Diffie-Hellman with a 512-bit prime: one key pair and one agreement.
#include "bench.h"

#include <openssl/bn.h>
#include <openssl/dh.h>
#include <openssl/evp.h>

#include <toolkit/dh.h>
#include <toolkit/random.h>

namespace {

Bytes bytes_of(const BIGNUM *number) {
    Bytes bytes(static_cast<std::size_t>(BN_num_bytes(number)));
    BN_bn2bin(number, bytes.data());
    return bytes;
}

void agreement(int bits) {
    const std::string name = "dh/" + std::to_string(bits) + "/";
    BIGNUM *prime = BN_new(), *base = BN_new();
    require(BN_generate_prime_ex(prime, bits, 1, nullptr, nullptr, nullptr) == 1, "DH prime");
    BN_set_word(base, 2);
    Bytes prime_bytes = bytes_of(prime), base_bytes = bytes_of(base);

    toolkit::DhGroup *group = nullptr;
    const toolkit::ITEM p = {prime_bytes.data(), static_cast<uint32_t>(prime_bytes.size())};
    const toolkit::ITEM g = {base_bytes.data(), static_cast<uint32_t>(base_bytes.size())};
    require(toolkit::dh_group_new(&group, p, g, 0) == 0, "DH group");
    const uint32_t size = toolkit::dh_group_size(group);
    Bytes peer(size), peer_private(toolkit::dh_private_size(group));
    require(toolkit::dh_generate(group, peer_private.data(), peer.data(),
                                 toolkit::system_random()) == 0,
            "DH peer");
    row(name + "qel", 0, [group, size, peer]() {
        Bytes secret_value(toolkit::dh_private_size(group)), value(size), shared(size);
        require(toolkit::dh_generate(group, secret_value.data(), value.data(),
                                     toolkit::system_random()) == 0,
                "DH generate");
        require(toolkit::dh_agree(group, secret_value.data(), peer.data(), size, shared.data()) ==
                    0,
                "DH agree");
    });

    BIGNUM *peer_number = BN_bin2bn(peer.data(), static_cast<int>(peer.size()), nullptr);
    row(name + "openssl", 0, [prime, base, peer_number, size]() {
        DH *dh = DH_new();
        DH_set0_pqg(dh, BN_dup(prime), nullptr, BN_dup(base));
        DH_set_length(dh, BN_num_bits(prime) - 1);
        Bytes shared(size);
        require(DH_generate_key(dh) == 1, "openssl DH");
        require(DH_compute_key(shared.data(), peer_number, dh) > 0, "openssl DH");
        DH_free(dh);
    });
}

} // namespace

void register_dh() {
    agreement(512);
}
