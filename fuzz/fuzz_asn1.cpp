// Every PDU: the first byte chooses it, the rest is decoded, encoded, decoded again and
// freed. What decodes must encode, but for characters that printable strings lack, and what was
// encoded must decode and encode to the same bytes.
#include "fuzz.h"

#include <cstring>

// Printable strings are decoded with any 7-bit character, and encoded with their own only.
static bool has_printable_string(int pdu) {
    return pdu == QEL_PDU_CIG || pdu == QEL_PDU_PT || pdu == QEL_PDU_KeyPkgInfo ||
           pdu == QEL_PDU_KeyPkg || pdu == QEL_PDU_ChallengePassword;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    if (size < 2)
        return 0;
    const int pdu = (data[0] + 35) % 36 + 1;
    void *value = nullptr;
    if (__qel_asn1_decode(context(), data + 1, static_cast<uint32_t>(size - 1), pdu, &value) !=
        QEL_OK) {
        must(value == nullptr);
        return 0;
    }
    const bool in_file =
        pdu == QEL_PDU_ContentInfoFm || pdu == QEL_PDU_SignedDataFm || pdu == QEL_PDU_PkcsDataFm;
    uint8_t *first = nullptr;
    uint32_t first_size = 0;
    const QelStatus encoded = __qel_asn1_encode(context(), value, pdu, &first, &first_size);
    __qel_asn1_free(context(), value, pdu);
    if (encoded != QEL_OK) {
        must(has_printable_string(pdu));
        return 0;
    }
    must(__qel_asn1_decode(context(), first, first_size, pdu, &value) == QEL_OK);
    uint8_t *second = nullptr;
    uint32_t second_size = 0;
    must(__qel_asn1_encode(context(), value, pdu, &second, &second_size) == QEL_OK);
    must(in_file || (first_size == second_size && std::memcmp(first, second, first_size) == 0));
    std::free(first);
    std::free(second);
    __qel_asn1_free(context(), value, pdu);
    return 0;
}
