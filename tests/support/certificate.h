// certificate.h: certificates made by hand.
#ifndef TESTS_SUPPORT_CERTIFICATE_H
#define TESTS_SUPPORT_CERTIFICATE_H

#include "support/asn1.h"
#include "support/ber.h"
#include "support/digests.h"
#include "support/rsa_key.h"

// A certificate of version 1, signed with MD5 and RSA.
struct TestCertificate {
    std::string subject, issuer; // printable names
    const RsaKey *key;
    const RsaKey *issuer_key;
    uint8_t serial = 1;
    std::string not_after = "370101000000Z";

    static Bytes name(const std::string &text) {
        Asn1Context context;
        QelName *parsed = nullptr;
        if (qel_str2dn(context.get(), text.c_str(), &parsed) != QEL_OK)
            std::abort();
        const Bytes encoding = context.encode(parsed, QEL_PDU_Name);
        qel_free_dn(&parsed);
        return encoding;
    }
    Bytes encoding() const {
        const Bytes algorithm = ber("30{06{2a864886f70d010104}0500}");
        const Bytes info = tlv(0x30, tlv(0x02, {serial}) + algorithm + name(issuer) +
                                         ber("30{17{'960101000000Z'}17{'" + not_after + "'}}") +
                                         name(subject) + key->public_key_info());
        return tlv(0x30, info + algorithm +
                             tlv(0x03, Bytes{0} + issuer_key->sign(md5_digest_info(md5(info)))));
    }
};

#endif
