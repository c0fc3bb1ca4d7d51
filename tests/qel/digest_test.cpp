#include "qel/signer.h"
#include "support/fault.h"
#include "support/vectors.h"

namespace {

class DigestTest : public testing::Test {
protected:
    QelStatus digest(const Bytes &data, uint32_t mode, const QelAlgId *algorithm) {
        return qel_digest(context, data.empty() ? nullptr : data.data(), length_of(data), mode,
                          algorithm, &out, &length);
    }

    TestContext context;
    uint8_t buffer[20] = {};
    uint8_t *out = buffer;
    uint32_t length = sizeof buffer;
    const Bytes text = bytes_of("message digest");
};

TEST_F(DigestTest, WholeInPartsAndIntoEitherBuffer) {
    const struct {
        const QelAlgId *algorithm;
        Bytes (*oracle)(const Bytes &);
    } algorithms[] = {{QEL_MD2_AID, md2}, {QEL_MD5_AID, md5}};
    for (const auto &a : algorithms) {
        for (const std::size_t size : {1, 15, 16, 17, 55, 56, 64, 1000}) {
            SCOPED_TRACE(size);
            const Bytes data(size, 0x42);
            const Bytes expected = a.oracle(data);

            out = buffer;
            length = sizeof buffer;
            ASSERT_EQ(digest(data, QEL_MODE_FINAL, a.algorithm), QEL_OK);
            EXPECT_EQ(Bytes(out, out + length), expected);
            EXPECT_TRUE(context.idle());

            // A final call with data, and one without.
            for (const std::size_t held_back : {std::size_t{1}, std::size_t{0}}) {
                for (std::size_t i = 0; i < size - held_back; ++i)
                    ASSERT_EQ(digest(Bytes(1, 0x42), QEL_MODE_UPDATE, a.algorithm), QEL_OK);
                out = nullptr;
                ASSERT_EQ(digest(Bytes(held_back, 0x42), QEL_MODE_FINAL, a.algorithm), QEL_OK);
                EXPECT_EQ(Bytes(out, out + length), expected);
                EXPECT_TRUE(context.idle());
                free(out);
            }
        }
    }
}

TEST_F(DigestTest, BadParameters) {
    each_missing(QEL_ERR_BAD_PARAM, qel_digest, {}, context, text.data(), length_of(text),
                 QEL_MODE_FINAL, QEL_MD5_AID, &out, &length);
    EXPECT_EQ(digest(Bytes(16), QEL_MODE_DIGEST, QEL_MD5_AID), QEL_ERR_BAD_PARAM);
    EXPECT_EQ(digest({}, QEL_MODE_UPDATE, QEL_MD5_AID), QEL_ERR_BAD_PARAM);
    EXPECT_EQ(digest({}, QEL_MODE_FINAL, QEL_MD5_AID), QEL_ERR_BAD_PARAM) << "nothing to finish";
    EXPECT_TRUE(context.idle());
}

TEST_F(DigestTest, ARefusedCallLeavesTheRunningDigest) {
    ASSERT_EQ(digest(text, QEL_MODE_UPDATE, QEL_MD5_AID), QEL_OK);
    EXPECT_EQ(digest({}, QEL_MODE_UPDATE, QEL_MD5_AID), QEL_ERR_BAD_PARAM);
    EXPECT_EQ(qel_digest(context, nullptr, 0, QEL_MODE_FINAL, QEL_MD5_AID, nullptr, &length),
              QEL_ERR_BAD_PARAM);
    ASSERT_EQ(digest({}, QEL_MODE_FINAL, QEL_MD5_AID), QEL_OK);
    EXPECT_EQ(Bytes(out, out + 16), md5(text));
}

TEST_F(DigestTest, Failures) {
    TestOid<6> sha1 = {{1, 3, 14, 3, 2, 26}};
    const struct {
        const char *why;
        bool running;
        uint32_t mode;
        const QelAlgId *algorithm;
        uint32_t capacity;
        QelStatus status;
        bool idle_after;
    } cases[] = {
        {"an unknown algorithm", false, 2, &sha1.algorithm, 16, QEL_ERR_UNSUPPORTED_ALG, true},
        {"a signature algorithm", false, 1, QEL_MD5WithRSAEncryption_AID, 16,
         QEL_ERR_UNSUPPORTED_ALG, true},
        {"an unknown algorithm ends what runs", true, 1, &sha1.algorithm, 16,
         QEL_ERR_UNSUPPORTED_ALG, true},
        {"another algorithm is checked, not used", true, 1, QEL_MD2_AID, 16, QEL_OK, false},
        {"one byte short", false, 2, QEL_MD5_AID, 15, QEL_ERR_BUFFER_SIZE, true},
        {"one byte short at the end of parts", true, 2, QEL_MD5_AID, 15, QEL_ERR_BUFFER_SIZE, true},
        {"just enough", true, 2, QEL_MD5_AID, 16, QEL_OK, true},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.why);
        TestContext fresh;
        length = c.capacity;
        if (c.running) {
            ASSERT_EQ(
                qel_digest(fresh, text.data(), length_of(text), 1, QEL_MD5_AID, nullptr, nullptr),
                QEL_OK);
        }
        EXPECT_EQ(
            qel_digest(fresh, text.data(), length_of(text), c.mode, c.algorithm, &out, &length),
            c.status);
        EXPECT_EQ(fresh.idle(), c.idle_after);
        EXPECT_EQ(length, c.capacity) << "a failure changes no length, an update neither";
    }
}

TEST_F(DigestTest, EachAllocation) {
    fault::each_allocation([&] {
        out = nullptr;
        const QelStatus status = digest(text, QEL_MODE_FINAL, QEL_MD5_AID);
        if (fault::met()) {
            EXPECT_TRUE(status == QEL_ERR_NO_MEMORY || status == QEL_ERR_DIGEST) << status;
            EXPECT_EQ(out, nullptr);
        } else {
            EXPECT_EQ(status, QEL_OK);
        }
        EXPECT_TRUE(context.idle());
        free(out);
    });
}

} // namespace
