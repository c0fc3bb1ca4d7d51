#include "support/arguments.h"
#include "support/asn1.h"
#include "support/fault.h"

#include <gtest/gtest.h>

#include <lib/memory.h>
#include <qel/qelp.h>

namespace {

using OwnedOctetString = qel::Record<QelOctetString, __qel_free_ostr>;

const uint8_t iv[8] = {1, 2, 3, 4, 5, 6, 7, 8};

class Rc2Params : public testing::Test {
protected:
    Asn1Context asn1;
    QelContext *context = asn1.get();
};

TEST_F(Rc2Params, encode_and_read_back) {
    // RFC 2268, section 6: below 256 bits the version is a code, from 256 on the number itself.
    const struct {
        const char *reason;
        uint32_t bits;
        const char *encoding;
    } rows[] = {
        {"40 bits, code 160", 40, "300e020200a00408 0102030405060708"},
        {"64 bits, code 120", 64, "300d020178 0408 0102030405060708"},
        {"128 bits, code 58", 128, "300d02013a 0408 0102030405060708"},
        {"256 bits, as a number", 256, "300e02020100 0408 0102030405060708"},
        {"1024 bits, the most", 1024, "300e02020400 0408 0102030405060708"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.reason);
        QelOctetString *params = nullptr;
        ASSERT_EQ(__qel_encode_rc2_params_cpkit(context, iv, row.bits, &params), QEL_OK);
        const OwnedOctetString owner(params);
        EXPECT_EQ(to_hex(params->value, params->length), to_hex(from_hex(row.encoding)));
        uint32_t bits = 0;
        EXPECT_EQ(__qel_get_effective_keysize(context, params, &bits), QEL_OK);
        EXPECT_EQ(bits, row.bits);
    }
}

TEST_F(Rc2Params, spoiled_parameters_give_a_status) {
    const Bytes good = from_hex("300d02013a04080102030405060708");
    each_spoiled(good, [&](const Bytes &spoiled, const std::string &what) {
        Bytes bytes = spoiled;
        const QelOctetString params = {static_cast<uint32_t>(bytes.size()), bytes.data()};
        uint32_t bits = 77;
        const QelStatus status = __qel_get_effective_keysize(context, &params, &bits);
        if (status == QEL_OK) {
            EXPECT_TRUE(bits >= 1 && bits <= 1024) << what;
        } else {
            EXPECT_TRUE(status == QEL_ERR_BAD_PARAM || status == QEL_ERR_ASN1_ENCODE) << what;
            EXPECT_EQ(bits, 0U) << what;
        }
    });
}

TEST_F(Rc2Params, missing_arguments_and_memory) {
    auto *params = reinterpret_cast<QelOctetString *>(1);
    each_missing(QEL_ERR_BAD_PARAM, __qel_encode_rc2_params_cpkit, {}, context, iv, 40, &params);
    EXPECT_EQ(__qel_encode_rc2_params_cpkit(context, iv, 1025, &params), QEL_ERR_BAD_PARAM);
    EXPECT_EQ(params, nullptr);
    Bytes bytes = from_hex("300d02013a04080102030405060708");
    const QelOctetString good = {static_cast<uint32_t>(bytes.size()), bytes.data()};
    uint32_t bits = 77;
    each_missing(QEL_ERR_BAD_PARAM, __qel_get_effective_keysize, {}, context, &good, &bits);
    EXPECT_EQ(bits, 0U);

    // The codec reports memory that it lacks as a failure of its own.
    fault::each_allocation([&] {
        QelOctetString *made = nullptr;
        const QelStatus status = __qel_encode_rc2_params_cpkit(context, iv, 40, &made);
        const OwnedOctetString owner(made);
        EXPECT_EQ(made == nullptr, fault::met());
        EXPECT_EQ(status != QEL_OK, fault::met());
        if (fault::met()) {
            EXPECT_TRUE(status == QEL_ERR_NO_MEMORY || status == QEL_ERR_ASN1_DECODE) << status;
        }
    });
    fault::each_allocation([&] {
        uint32_t size = 77;
        const QelStatus status = __qel_get_effective_keysize(context, &good, &size);
        EXPECT_EQ(size, fault::met() ? 0U : 128U);
        if (fault::met()) {
            EXPECT_TRUE(status == QEL_ERR_NO_MEMORY || status == QEL_ERR_ASN1_ENCODE) << status;
        } else {
            EXPECT_EQ(status, QEL_OK);
        }
    });
}

} // namespace
