// The binding: order of checks, statuses, rules, presence bits, buffers.
#include "support/arguments.h"
#include "support/asn1.h"
#include "support/ber.h"
#include "support/fault.h"
#include "support/process.h"

#include <asn1/pkcs.h>
#include <gtest/gtest.h>

#include <cstring>

namespace {

// Two assertions in one RDN, in falling order, which DER turns round.
struct UnsortedName {
    uint32_t arcs[2][4] = {{2, 5, 4, 11}, {2, 5, 4, 3}};
    uint8_t text[4] = {19, 2, 'U', 'S'};
    QelOid types[2] = {{4, arcs[0]}, {4, arcs[1]}};
    QelOctetString values[2] = {{4, text}, {4, text}};
    QelAva avas[2] = {{&types[0], &values[0]}, {&types[1], &values[1]}};
    QelRdn second = {nullptr, &avas[1]}, first = {&second, &avas[0]};
    QelRdnSeq sequence = {nullptr, &first};
    QelName name = {QEL_NAME_RDN_SEQUENCE, &sequence};
};
const Bytes kSorted = ber("30{31{ 30{0603 550403 13{'US'}} 30{0603 55040b 13{'US'}} }}");

class Binding : public ::testing::Test {
protected:
    OssEnvironment *environment() { return static_cast<OssEnvironment *>(context.get()->asn1); }
    Asn1Context context;
};

// ---- Arguments ----------------------------------------------------------------------------------

TEST_F(Binding, RefusesNulls) {
    QelContext unused = {};
    QelContext *const good = context.get();
    int32_t number = 5;
    uint8_t *buffer = nullptr;
    uint32_t length = 0;
    void *value = nullptr;
    const uint8_t data[] = {2, 1, 5};

    EXPECT_EQ(__qel_init_asn1(nullptr), QEL_ERR_BAD_PARAM);
    EXPECT_EQ(__qel_end_asn1(nullptr), QEL_OK);
    EXPECT_EQ(__qel_end_asn1(&unused), QEL_OK);
    for (QelContext *bad : {static_cast<QelContext *>(nullptr), &unused}) {
        EXPECT_EQ(__qel_asn1_encode(bad, &number, 14, &buffer, &length), QEL_ERR_BAD_PARAM);
        EXPECT_EQ(__qel_asn1_decode(bad, data, 3, 14, &value), QEL_ERR_BAD_PARAM);
        EXPECT_EQ(__qel_mark_oss_file(bad, "file", &value), QEL_ERR_BAD_PARAM);
        EXPECT_EQ(__qel_unmark_oss_file(bad, &number, &value), QEL_ERR_BAD_PARAM);
        EXPECT_EQ(__qel_set_encoding_flags_indefinite(bad), QEL_ERR_BAD_PARAM);
        EXPECT_EQ(__qel_set_decoding_flags_debugpdu(bad), QEL_ERR_BAD_PARAM);
        EXPECT_EQ(__qel_asn1_print(bad, stdout, &number, 14), QEL_ERR_BAD_PARAM);
        __qel_asn1_free(bad, &number, 14);
        __qel_free_keyinfo_pdu(bad, reinterpret_cast<QelKeyInfo *>(&number));
    }
    const auto refused = QEL_ERR_BAD_PARAM;
    each_missing(refused, __qel_asn1_encode, {3}, good, &number, 14, &buffer, &length);
    each_missing(refused, __qel_asn1_decode, {3, 4}, good, data, 3, 14, &value);
    each_missing(refused, __qel_mark_oss_file, {}, good, "file", &value);
    each_missing(refused, __qel_unmark_oss_file, {}, good, &number, &value);
    each_missing(refused, __qel_asn1_print, {}, good, stdout, &number, 14);
    length = 1;
    EXPECT_EQ(__qel_asn1_encode(good, &number, 14, &buffer, &length), QEL_ERR_BAD_PARAM);
    EXPECT_EQ(__qel_asn1_print(good, stdout, &number, 37), QEL_ERR_BAD_PARAM);
    __qel_asn1_free(good, nullptr, 14);
    __qel_free_pkcsdata_pdu(good, nullptr);
}

TEST_F(Binding, StartsOrReportsWhyNot) {
    QelContext fresh = {};
    fault::fail(fault::Call::allocate, 1);
    EXPECT_EQ(__qel_init_asn1(&fresh), QEL_ERR_NO_MEMORY);
    ASSERT_TRUE(fault::clear(fault::Call::allocate));
    EXPECT_EQ(fresh.asn1, nullptr);
    EXPECT_EQ(__qel_init_asn1(&fresh), QEL_OK);
    EXPECT_NE(fresh.asn1, nullptr);
    EXPECT_EQ(__qel_end_asn1(&fresh), QEL_OK);
    EXPECT_EQ(fresh.asn1, nullptr);
}

TEST_F(Binding, KnowsThePdusByNameAndRefusesOthers) {
    EXPECT_STREQ(__qel_asn1_pdu_name(QEL_PDU_Name), "Name");
    EXPECT_STREQ(__qel_asn1_pdu_name(QEL_PDU_RC2_CBCParameter), "RC2-CBCParameter");
    EXPECT_STREQ(__qel_asn1_pdu_name(QEL_PDU_SignedPublicKeyAndChallenge),
                 "SignedPublicKeyAndChallenge");
    const int32_t number = 5;
    QelStatus status = QEL_OK;
    for (const int pdu : {-1, 0, 37}) {
        EXPECT_EQ(__qel_asn1_pdu_name(pdu), nullptr) << pdu;
        context.encode(&number, pdu, &status);
        EXPECT_EQ(status, QEL_ERR_ASN1_ENCODE);
        EXPECT_EQ(context.decode(ber("020105"), pdu, &status), nullptr);
        EXPECT_EQ(status, QEL_ERR_ASN1_DECODE);
    }
}

// ---- Rules --------------------------------------------------------------------------------------

TEST_F(Binding, NamesAreDerWhateverTheRulesAndTheRulesStay) {
    UnsortedName unsorted;
    ASSERT_EQ(__qel_set_encoding_flags_indefinite(context.get()), QEL_OK);
    EXPECT_EQ(to_hex(context.encode(&unsorted.name, QEL_PDU_Name)), to_hex(kSorted));
    EXPECT_EQ(ossGetEncodingRules(environment()), OSS_BER);

    // A failure restores the rules too.
    QelStatus status = QEL_OK;
    unsorted.types[0].count = 1;
    context.encode(&unsorted.name, QEL_PDU_Name, &status);
    EXPECT_EQ(status, QEL_ERR_ASN1_ENCODE);
    EXPECT_EQ(ossGetEncodingRules(environment()), OSS_BER);
}

TEST_F(Binding, TracesWhatItDecodes) {
    EXPECT_EQ(written_by([&](FILE *stream) {
                  ossSetTraceStream(environment(), stream);
                  context.decode(ber("020104"), QEL_PDU_INT);
                  EXPECT_EQ(__qel_set_decoding_flags_debugpdu(context.get()), QEL_OK);
                  context.decode(ber("020105"), QEL_PDU_INT);
              }),
              "INT ::= 5\n");
}

// ---- Buffers ------------------------------------------------------------------------------------

TEST_F(Binding, AFailureLeavesThePointersAlone) {
    uint8_t *buffer = nullptr;
    uint32_t length = 0;
    const QelBitString bad = {8, nullptr};
    EXPECT_EQ(__qel_asn1_encode(context.get(), &bad, QEL_PDU_BitString, &buffer, &length),
              QEL_ERR_ASN1_ENCODE);
    EXPECT_EQ(buffer, nullptr);
    EXPECT_EQ(length, 0u);

    int unrelated = 0;
    void *value = &unrelated;
    const uint8_t cut[] = {2, 2, 5};
    EXPECT_EQ(__qel_asn1_decode(context.get(), cut, 3, QEL_PDU_INT, &value), QEL_ERR_ASN1_DECODE);
    EXPECT_EQ(value, nullptr);
}

// ---- Presence bits ------------------------------------------------------------------------------

TEST_F(Binding, CertificatesMarkTheirExtensions) {
    const auto certificate = context.decode<QelCert>(
        vector_file("certs/md5/globalsign-root-ca-98.der"), QEL_PDU_Certificate);
    ASSERT_NE(certificate, nullptr);
    const Bytes whole = context.encode(certificate.get(), QEL_PDU_Certificate);
    const Bytes info = context.encode(certificate.get(), QEL_PDU_CertificateInfo);
    ASSERT_EQ(certificate->mask, QEL_CERT_VERSION | QEL_CERT_EXTENSIONS);
    for (const auto &[pdu, expected] :
         {std::pair{QEL_PDU_Certificate, whole}, std::pair{QEL_PDU_CertificateInfo, info}}) {
        certificate->mask = 0;
        EXPECT_EQ(to_hex(context.encode(certificate.get(), pdu)), to_hex(expected));
        EXPECT_EQ(certificate->mask, QEL_CERT_EXTENSIONS);
    }
    // Bits that the caller set are not cleared.
    QelExtensions *const extensions = certificate->extensions;
    certificate->extensions = nullptr;
    certificate->version = 0;
    certificate->mask = QEL_CERT_VERSION | QEL_CERT_EXTENSIONS;
    const auto empty = context.decode<QelCert>(
        context.encode(certificate.get(), QEL_PDU_Certificate), QEL_PDU_Certificate);
    EXPECT_EQ(certificate->mask, QEL_CERT_VERSION | QEL_CERT_EXTENSIONS);
    ASSERT_NE(empty, nullptr);
    EXPECT_EQ(empty->mask, QEL_CERT_VERSION | QEL_CERT_EXTENSIONS);
    certificate->extensions = extensions;
}

// ---- Faults -------------------------------------------------------------------------------------

TEST_F(Binding, EachFailedAllocationIsADecodingOrEncodingFailure) {
    const Bytes encoding = vector_file("certs/md5/globalsign-root-ca-98.der");
    fault::each_allocation([&] {
        QelStatus status = QEL_OK;
        const auto value = context.decode(encoding, QEL_PDU_Certificate, &status);
        EXPECT_EQ(status, fault::met() ? QEL_ERR_ASN1_DECODE : QEL_OK);
        EXPECT_EQ(value == nullptr, fault::met());
    });
    const auto certificate = context.decode<QelCert>(encoding, QEL_PDU_Certificate);
    fault::each_allocation([&] {
        uint8_t *buffer = nullptr;
        uint32_t length = 0;
        const QelStatus status = __qel_asn1_encode(context.get(), certificate.get(),
                                                   QEL_PDU_Certificate, &buffer, &length);
        EXPECT_EQ(status, fault::met() ? QEL_ERR_ASN1_ENCODE : QEL_OK);
        EXPECT_EQ(buffer == nullptr, fault::met());
        std::free(buffer);
    });
    EXPECT_EQ(ossGetEncodingRules(environment()), OSS_BER);
}

// ---- Marked files -------------------------------------------------------------------------------

TEST_F(Binding, ContentsOfMessagesPassThroughFiles) {
    TemporaryFolder folder;
    setenv("TMPDIR", folder.path("").c_str(), 1);
    const Bytes content = ber("04{'the content'}");
    const Bytes message = ber("30{06022a03 a0{04{'the content'}}}");
    const auto info = context.decode<QelContentInfo>(message, QEL_PDU_ContentInfoFm);
    ASSERT_NE(info, nullptr);
    EXPECT_EQ(info->content->length, content.size());
    EXPECT_EQ(to_hex(context.encode(info.get(), QEL_PDU_ContentInfoFm)), to_hex(message));

    void *name = nullptr;
    ASSERT_EQ(__qel_unmark_oss_file(context.get(), info->content->value, &name), QEL_OK);
    EXPECT_EQ(read_file(static_cast<char *>(name)), content);
    void *marked = nullptr;
    ASSERT_EQ(__qel_mark_oss_file(context.get(), static_cast<char *>(name), &marked), QEL_OK);
    info->content->value = static_cast<uint8_t *>(marked);

    // The encoding may go to a file as well, and come from there.
    void *output = nullptr;
    ASSERT_EQ(__qel_mark_oss_file(context.get(), folder.path("output").c_str(), &output), QEL_OK);
    uint8_t *buffer = static_cast<uint8_t *>(output);
    uint32_t length = 0;
    ASSERT_EQ(__qel_asn1_encode(context.get(), info.get(), QEL_PDU_ContentInfoFm, &buffer, &length),
              QEL_OK);
    EXPECT_EQ(buffer, output);
    EXPECT_EQ(length, message.size());
    EXPECT_EQ(read_file(folder.path("output")), message);
    void *again = nullptr;
    ASSERT_EQ(__qel_asn1_decode(context.get(), buffer, 0, QEL_PDU_ContentInfo, &again), QEL_OK);
    EXPECT_EQ(to_hex(context.encode(again, QEL_PDU_ContentInfo)), to_hex(message));
    __qel_asn1_free(context.get(), again, QEL_PDU_ContentInfo);
    std::free(name);
    unsetenv("TMPDIR");
}

TEST_F(Binding, MarkingReportsMissingMemory) {
    fault::each_allocation([&] {
        void *marked = nullptr;
        const QelStatus status = __qel_mark_oss_file(context.get(), "name", &marked);
        EXPECT_EQ(status, fault::met() ? QEL_ERR_NO_MEMORY : QEL_OK);
        EXPECT_EQ(marked == nullptr, fault::met());
    });
}

} // namespace
