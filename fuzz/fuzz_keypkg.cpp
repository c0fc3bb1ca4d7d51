// Key packages: the signature, and opening with a pass phrase. A package that opens must open again
// under another pass phrase, and with the private key that was in it.
#include "fuzz.h"

// Whoever makes a package chooses the iteration count; what takes longer than an input may take is
// passed over. What cannot be read is soon done with.
static bool is_quick(const QelKeyPkg *package) {
    constexpr uint32_t largest_count = 1000;
    const QelOctetString *parameters = package->encrPrivKeyInfo->encryptionAlgorithm->parameters;
    void *value = nullptr;
    if (parameters == nullptr || __qel_asn1_decode(context(), parameters->value, parameters->length,
                                                   QEL_PDU_PBEParameter, &value) != QEL_OK)
        return true;
    auto *parameter = static_cast<QelPBEParameter *>(value);
    const bool quick = parameter->iterationCount <= largest_count;
    __qel_free_pbe_paramater_pdu(context(), parameter);
    return quick;
}

// Opens the package; gives its private key where it could be opened.
static bool open(const uint8_t *data, uint32_t size, const char *phrase, QelKeyPkg **package,
                 uint8_t **key, uint32_t *length) {
    const QelStatus status =
        __qel_validate_keypkg_with_pwd(context(), data, size, phrase, package, key, length);
    must((*package != nullptr) == (status == QEL_OK) && (*key != nullptr) == (status == QEL_OK));
    return status == QEL_OK;
}

static void change_and_open_again(QelKeyPkg *package, const uint8_t *key, uint32_t key_length) {
    uint8_t *encoding = nullptr;
    uint32_t size = 0;
    must(__qel_change_pass_phrase(context(), "another", key, key_length, package) == QEL_OK);
    must(__qel_asn1_encode(context(), package, QEL_PDU_KeyPkg, &encoding, &size) == QEL_OK);
    QelKeyPkg *again = nullptr;
    uint8_t *same_key = nullptr;
    uint32_t length = 0;
    must(open(encoding, size, "another", &again, &same_key, &length) && length == key_length);
    std::free(same_key);
    std::free(encoding);
    __qel_asn1_free(context(), again, QEL_PDU_KeyPkg);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    const auto length = static_cast<uint32_t>(size);
    void *decoded = nullptr;
    if (__qel_asn1_decode(context(), data, length, QEL_PDU_KeyPkg, &decoded) != QEL_OK)
        return 0;
    const bool quick = is_quick(static_cast<QelKeyPkg *>(decoded));
    __qel_asn1_free(context(), decoded, QEL_PDU_KeyPkg);
    QelKeyPkg *package = nullptr;
    const bool verified = __qel_verify_keypkg_sig(context(), data, length, &package) == QEL_OK;
    must(verified == (package != nullptr));
    __qel_asn1_free(context(), package, QEL_PDU_KeyPkg);
    uint8_t *key = nullptr;
    uint32_t key_length = 0;
    if (quick && open(data, length, "phrase", &package, &key, &key_length)) {
        must(verified);
        change_and_open_again(package, key, key_length);
        __qel_asn1_free(context(), package, QEL_PDU_KeyPkg);
        std::free(key);
    }
    return 0;
}
