// The schema against real encodings.
#include "support/asn1.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

class Pkcs : public ::testing::Test {
protected:
    Asn1Context context;
};

TEST_F(Pkcs, CertificatesComeBackByteForByte) {
    for (const std::string &name : vector_names("certs")) {
        SCOPED_TRACE(name);
        const Bytes encoding = vector_file(name);
        QelStatus status = 0;
        const auto certificate = context.decode<QelCert>(encoding, QEL_PDU_Certificate, &status);
        // GeneralizedTime, where the type has UTCTime.
        if (name.find("wrong-sigalg-2015") != std::string::npos) {
            EXPECT_EQ(status, QEL_ERR_ASN1_DECODE);
            continue;
        }
        ASSERT_EQ(status, QEL_OK);
        const Bytes again = context.encode(certificate.get(), QEL_PDU_Certificate);
        if (encoding[1] == 0x80)
            EXPECT_NE(again, encoding);
        else
            EXPECT_EQ(to_hex(again), to_hex(encoding));
    }
}

} // namespace
