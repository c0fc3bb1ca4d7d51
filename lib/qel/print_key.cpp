// print_key.cpp: public keys, key packages and trusted keys as text for people.

#include <qel/print.h>

#include "printer.h"
#include "signature.h"

namespace {

namespace label = qel::label;
using qel::Printer;

struct UsageName {
    uint32_t usage;
    const char *name;
};

constexpr UsageName usage_names[] = {
    {USAGE_SIGN_ENCRYPT, "USAGE_SIGN_ENCRYPT"},
    {USAGE_SIGN, "USAGE_SIGN"},
    {USAGE_ENCRYPT, "USAGE_ENCRYPT"},
};

bool is_rsa(const QelOid *oid) {
    for (const QelOid *rsa : {QEL_RSA_OID, QEL_RSA_ENCR_OID}) {
        int difference = 1;
        if (__qel_cmp_oid(oid, rsa, &difference) == QEL_OK && difference == 0)
            return true;
    }
    return false;
}

Printer &print_rsa_numbers(Printer &out, QelContext *context, const QelKeyInfo *key) {
    if (out.failed())
        return out;
    qel::Owned<uint8_t> encoding;
    uint32_t length = 0;
    uint8_t *modulus = nullptr, *exponent = nullptr;
    uint32_t modulus_length = 0, exponent_length = 0;
    out.take(qel::encode(context, key, QEL_PDU_SubjectPublicKeyInfo, &encoding, &length));
    if (!out.failed())
        out.take(__qel_get_rsa_pubkey_components(encoding.get(), length, &modulus, &modulus_length,
                                                 &exponent, &exponent_length));
    const qel::Owned<uint8_t> modulus_owner(modulus), exponent_owner(exponent);
    return out.text(8, "Modulus:\n")
        .dump(12, modulus, modulus_length, qel::dump_width)
        .text(8, "Public Exponent:\n")
        .dump(12, exponent, exponent_length, qel::dump_width);
}

} // namespace

QelStatus __qel_fprint_keyinfo(QelContext *context, FILE *stream, const QelKeyInfo *key, int full,
                               uint32_t indent) {
    Printer out(context, stream, key, indent);
    if (out.failed() ||
        out.need(key->algorithm != nullptr && key->algorithm->algorithm != nullptr &&
                 key->pubKey.length != 0 && key->pubKey.value != nullptr)
            .failed())
        return out.status();
    out.text(0, "%s:\n", label::public_key_info).part<QelAlgId>(__qel_fprint_algid, key->algorithm);
    if (full == 0)
        return out.status();
    out.text(4, "%s:\n", label::public_key);
    if (is_rsa(key->algorithm->algorithm))
        return print_rsa_numbers(out, context, key).status();
    return out.dump(8, key->pubKey).status();
}

QelStatus __qel_fprint_keypkg_usage(QelContext *context, FILE *stream, uint32_t usage,
                                    uint32_t indent) {
    Printer out(context, stream, stream, indent);
    out.need(usage != 0);
    for (const UsageName &row : usage_names)
        if (row.usage == usage)
            out.text(0, "%s: %s\n", label::usage, row.name);
    return out.status();
}

QelStatus __qel_fprint_trusted_key(QelContext *context, FILE *stream,
                                   const QelTrustedKey *trusted_key, int full, uint32_t indent) {
    Printer out(context, stream, trusted_key, indent);
    if (out.failed())
        return out.status();
    const QelTrustedKey &key = *trusted_key;
    out.name(label::subject, key.owner)
        .part<QelKeyInfo>(__qel_fprint_keyinfo, key.pubKeyInfo, full);
    if (key.issuer != nullptr)
        out.name(label::issuer, key.issuer);
    if (key.serial != nullptr && key.serial->length != 0 && key.serial->value != nullptr)
        out.text(0, "%s:\n", label::serial)
            .dump(4, key.serial->value, key.serial->length, qel::dump_width);
    if (key.validity != nullptr)
        out.part<QelValidity>(__qel_fprint_validity, key.validity);
    if ((key.mask & QEL_TKEY_EXTENSIONS) != 0 && key.extensions != nullptr)
        out.part<QelExtensions>(__qel_fprint_v3_cert_extensions, key.extensions);
    return out.status();
}

QelStatus __qel_fprint_keypkg(QelContext *context, FILE *stream, const QelKeyPkg *key_package,
                              int full, uint32_t indent) {
    Printer out(context, stream, key_package, indent);
    if (out.failed() || out.need(key_package->version != nullptr).failed())
        return out.status();
    const QelKeyPkg &package = *key_package;
    out.text(0, "%s: %s\n", label::keypkg_version, package.version);
    if (package.keypkgId != nullptr)
        out.text(0, "%s: %s\n", label::keypkg_id, package.keypkgId);
    out.name(label::owner, package.owner);
    if (!out.failed())
        out.take(__qel_fprint_keypkg_usage(context, stream, package.usage, indent));
    out.text(0, "%s: Not displayed\n", label::private_key)
        .part<QelKeyInfo>(__qel_fprint_keyinfo, package.pubKeyInfo, full);
    if (package.tKeys != nullptr)
        out.text(0, "List of TRUSTED PUBLIC KEYS:\n");
    int number = 0;
    for (const QelTrustedKeys *node = package.tKeys; node != nullptr && !out.failed();
         node = node->next)
        out.text(0, "- TRUSTED KEY %d:\n", ++number)
            .part<QelTrustedKey>(__qel_fprint_trusted_key, node->key, full, 4);
    if (full != 0)
        out.signature(label::keypkg_signature, package.algorithm, package.signature);
    return out.status();
}
