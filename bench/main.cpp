#include "bench.h"

#include <openssl/provider.h>
#include <tomcrypt.h>

void register_digests();
void register_ciphers();
void register_rsa();
void register_dh();
void register_armour();
void register_asn1();
void register_operations();
void register_keypkg();

int main(int argc, char **argv) {
    // RC2, RC4 and single DES live in OpenSSL's legacy provider.
    require(OSSL_PROVIDER_load(nullptr, "legacy") != nullptr, "no legacy provider");
    require(OSSL_PROVIDER_load(nullptr, "default") != nullptr, "no default provider");
    ltc_mp = ltm_desc;

    register_digests();
    register_ciphers();
    register_rsa();
    register_dh();
    register_armour();
    register_asn1();
    register_operations();
    register_keypkg();

    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 2;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
