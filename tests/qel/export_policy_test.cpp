#include "qel/oracle.h"

#include <algorithm>
#include <map>
#include <thread>

namespace {

using Core = decltype(kvdsaivqa);

const Bytes iv = from_hex("0011223344556677");
const Bytes iv_parameters = from_hex("04080011223344556677");

TestCipher cipher(const QelOid *oid, const Bytes &key) {
    return {"", oid, key, oid == QEL_RC4_OID ? Bytes() : iv_parameters, iv, ""};
}

const TestCipher weak_ciphers[] = {
    cipher(QEL_DES_CBC_OID, from_hex("f10ef30df50cf70b")),
    cipher(QEL_RC2_CBC_OID, from_hex("fffefdfcfb")),
    cipher(QEL_RC4_OID, from_hex("8182838485")),
};

struct Result {
    QelStatus status = QEL_OK;
    Bytes output;
};

Result call(Core *core, QelContext *context, const QelOid *key_algorithm, const TestCipher &cipher,
            const Bytes &data, uint32_t mode, uint32_t room = 0) {
    const TestAlgorithm algorithm(cipher);
    const TestAlgorithm other({"", key_algorithm, {}, {}, {}, ""});
    const qel::Owned<uint8_t> buffer(room != 0 ? qel::allocate_bytes(room) : nullptr);
    uint8_t *out = buffer.get();
    uint32_t length = room;
    Result result;
    result.status = core(context, data.empty() ? nullptr : data.data(), length_of(data), mode,
                         key_algorithm != nullptr ? other : algorithm,
                         cipher.key.empty() ? nullptr : cipher.key.data(), length_of(cipher.key),
                         algorithm, &out, &length);
    if (result.status == QEL_OK)
        result.output.assign(out, out + length);
    if (room == 0)
        free(out);
    return result;
}

// What the very first calls of the process met, before any test: with nothing remembered yet, the
// memory is all zeros once the second long input has taken the mask off that the first put on.
class FirstCalls : public testing::Environment {
public:
    void SetUp() override {
        const TestContext context;
        TestCipher no_key = weak_ciphers[0];
        no_key.key = {};
        for (QelStatus &status : statuses)
            status = call(qel_encrypt, context, nullptr, no_key, Bytes(65), QEL_MODE_FINAL).status;
    }

    QelStatus statuses[4] = {};
};

FirstCalls *const first_calls =
    static_cast<FirstCalls *>(testing::AddGlobalTestEnvironment(new FirstCalls));

TEST(ExportPolicy, TheMemoryBeginsWithZeros) {
    const QelStatus expected[] = {QEL_ERR_BAD_PARAM, QEL_ERR_DOUBLE_ENCRYPT, QEL_ERR_BAD_PARAM,
                                  QEL_ERR_DOUBLE_ENCRYPT};
    EXPECT_TRUE(std::ranges::equal(first_calls->statuses, expected));
}

TEST(ExportPolicy, Keys) {
    const struct {
        const char *why;
        const QelOid *algorithm;
        const char *key;
        const QelOid *key_algorithm; // null: the same
        QelStatus status;
    } cases[] = {
        {"odd bytes at the limit", QEL_DES_CBC_OID, "010f010f010f010f", nullptr, QEL_OK},
        {"even bytes have none", QEL_DES_CBC_OID, "ff00ff00ff00ff00", nullptr, QEL_OK},
        {"byte 1", QEL_DES_CBC_OID, "0110010101010101", nullptr, QEL_ERR_EXPORT},
        {"byte 3", QEL_DES_CBC_OID, "0101011001010101", nullptr, QEL_ERR_EXPORT},
        {"byte 5", QEL_DES_CBC_OID, "0101010101800101", nullptr, QEL_ERR_EXPORT},
        {"byte 7", QEL_DES_CBC_OID, "0101010101010110", nullptr, QEL_ERR_EXPORT},
        {"a short key is short", QEL_DES_CBC_OID, "01010101010101", nullptr, QEL_ERR_BAD_PARAM},
        {"a long one too, whatever follows", QEL_DES_CBC_OID, "01010101010101010110", nullptr,
         QEL_ERR_BAD_PARAM},
        {"no more than a byte of key", QEL_DES_CBC_OID, "ff", nullptr, QEL_ERR_BAD_PARAM},
        {"40 bits of RC2", QEL_RC2_CBC_OID, "ffffffffff", nullptr, QEL_OK},
        {"48 bits of RC2", QEL_RC2_CBC_EXP_OID, "ffffffffffff", nullptr, QEL_ERR_EXPORT},
        {"40 bits of RC4", QEL_RC4_OID, "ffffffffff", nullptr, QEL_OK},
        {"48 bits of RC4", QEL_RC4_EXP_OID, "000000000000", nullptr, QEL_ERR_EXPORT},
        {"triple DES", QEL_DES3_CBC_OID, "010101010101010101010101010101010101010101010101",
         nullptr, QEL_ERR_EXPORT},
        {"triple DES with whatever key", QEL_DES3_CBC_OID, "01", QEL_RC4_OID, QEL_ERR_EXPORT},
        {"the key's algorithm is what counts", QEL_RC4_OID, "010101010110", QEL_DES_CBC_OID,
         QEL_ERR_EXPORT},
        {"before it is seen to be another", QEL_DES_CBC_OID, "0101010101010101", QEL_RC4_OID,
         QEL_ERR_EXPORT},
        {"a key for another algorithm", QEL_RC4_OID, "ffffffffff", QEL_RC2_CBC_OID,
         QEL_ERR_BAD_PARAM},
        {"a key for triple DES", QEL_DES_CBC_OID, "ff10ff10ff10ff10", QEL_DES3_CBC_OID,
         QEL_ERR_BAD_PARAM},
        {"neither", QEL_MD5_AID->algorithm, "ffffffffffff", nullptr, QEL_ERR_UNSUPPORTED_ALG},
        {"no key", QEL_DES3_CBC_OID, "", nullptr, QEL_ERR_BAD_PARAM},
    };
    for (const auto &c : cases) {
        const TestCipher given = cipher(c.algorithm, from_hex(c.key));
        for (Core *crypt : {qel_encrypt, qel_decrypt})
            for (const uint32_t mode : {QEL_MODE_UPDATE, QEL_MODE_FINAL}) {
                const TestContext context;
                QelStatus expected = c.status;
                if (expected == QEL_OK && crypt == qel_decrypt && mode == QEL_MODE_FINAL &&
                    c.algorithm != QEL_RC4_OID)
                    expected = QEL_ERR_DECRYPT; // the policy has passed it
                EXPECT_EQ(call(crypt, context, c.key_algorithm, given, Bytes(16, 1), mode).status,
                          expected)
                    << c.why;
            }
    }
}

TEST(ExportPolicy, Arguments) {
    const TestContext context;
    const TestAlgorithm rc4(weak_ciphers[2]);
    const Bytes &key = weak_ciphers[2].key;
    const QelAlgId broken = {nullptr, nullptr};
    uint8_t *out = nullptr;
    uint32_t length = 0;
    for (Core *crypt : {qel_encrypt, qel_decrypt}) {
        each_missing(QEL_ERR_BAD_PARAM, crypt, {}, context, key.data(), 5, QEL_MODE_FINAL, rc4,
                     key.data(), 5, rc4, &out, &length);
        EXPECT_EQ(
            crypt(context, key.data(), 5, QEL_MODE_DIGEST, rc4, key.data(), 5, rc4, &out, &length),
            QEL_ERR_BAD_PARAM);
        EXPECT_EQ(crypt(context, key.data(), 5, QEL_MODE_FINAL, rc4, key.data(), 5, &broken, &out,
                        &length),
                  QEL_ERR_BAD_PARAM)
            << "an algorithm without identifier";
    }
}

// ---- What has just been made is not taken again

// The rules for the memory, once more. The mask itself is not known here: what it hides is equal to
// nothing that a test has.
class Memory {
public:
    bool refuses(const Bytes &data) {
        if (data.size() <= 64)
            return false;
        masked = !masked;
        return !masked && std::equal(head.begin(), head.end(), data.begin());
    }
    void learn(const Bytes &output) {
        if (output.size() <= 64)
            return;
        head.assign(output.begin(), output.begin() + 64);
        masked = true;
    }

private:
    Bytes head;
    bool masked = true;
};

// Each user has two contexts: one under the policy, and one that goes the same way without it.
struct User {
    TestContext judged;
    TestContext free;
};

struct Step {
    std::size_t user;
    bool encrypt;
    uint32_t mode;
    const TestCipher *cipher;
    Bytes data;
    uint32_t room;
};

const TestCipher strong_ciphers[] = {
    cipher(QEL_DES_CBC_OID, from_hex("0110010101010101")),
    cipher(QEL_RC2_CBC_OID, from_hex("fffefdfcfbfa")),
    cipher(QEL_RC4_OID, from_hex("818283848586")),
    cipher(QEL_DES3_CBC_OID, Bytes(24, 1)),
};

class PolicyWalk {
public:
    Step next() {
        const bool weak = !one_in(12);
        return {random() % std::size(users),
                one_in(2),
                one_in(2)    ? QEL_MODE_UPDATE
                : one_in(50) ? QEL_MODE_DIGEST
                             : QEL_MODE_FINAL,
                weak ? &weak_ciphers[random() % 3] : &strong_ciphers[random() % 4],
                data(),
                one_in(4) ? static_cast<uint32_t>(random() % 160) : 0};
    }

    Result expected(const Step &step) {
        const User &user = users[step.user];
        if (step.mode == QEL_MODE_DIGEST)
            return {QEL_ERR_BAD_PARAM, {}};
        if (memory.refuses(step.data))
            return {QEL_ERR_DOUBLE_ENCRYPT, {}};
        if (user.free.idle() && step.cipher >= strong_ciphers &&
            step.cipher < std::end(strong_ciphers))
            return {QEL_ERR_EXPORT, {}};
        Result result = call(step.encrypt ? kvdsaivqa : kdlsdkspd, user.free, nullptr, *step.cipher,
                             step.data, step.mode, step.room);
        memory.learn(result.output);
        return result;
    }

    Result got(const Step &step) {
        Result result = call(step.encrypt ? qel_encrypt : qel_decrypt, users[step.user].judged,
                             nullptr, *step.cipher, step.data, step.mode, step.room);
        if (!result.output.empty())
            outputs[random() % std::size(outputs)] = result.output;
        return result;
    }

    std::mt19937 random{7};
    User users[3];
    Memory memory;

private:
    bool one_in(unsigned count) { return random() % count == 0; }

    // New bytes, or an output of late, or the same with another byte or length.
    Bytes data() {
        static constexpr std::size_t lengths[] = {0,  1,  8,  56, 63,  64, 65,
                                                  66, 71, 72, 73, 128, 200};
        const std::size_t length = lengths[random() % std::size(lengths)];
        if (one_in(3))
            return random_bytes(random, length);
        Bytes bytes = outputs[random() % std::size(outputs)];
        if (one_in(4))
            bytes.resize(length);
        if (one_in(4) && !bytes.empty())
            bytes[random() % std::min<std::size_t>(bytes.size(), 67)] ^= 1;
        return bytes;
    }

    Bytes outputs[3];
};

TEST(ExportPolicy, AgreesWithItsRulesOnALongWalk) {
    PolicyWalk walk;
    // Whatever ran before, a long output makes the beginning known.
    const Bytes start = random_bytes(walk.random, 64);
    const Result begun =
        call(qel_encrypt, walk.users[0].judged, nullptr, weak_ciphers[0], start, QEL_MODE_FINAL);
    ASSERT_EQ(begun.status, QEL_OK);
    walk.memory.learn(begun.output);

    std::map<QelStatus, int> met;
    for (int i = 0; i < 60000; ++i) {
        const Step step = walk.next();
        const Result expected = walk.expected(step);
        const Result got = walk.got(step);
        ASSERT_EQ(got.status, expected.status)
            << "step " << i << ": " << (step.encrypt ? "encrypt " : "decrypt ") << step.data.size()
            << " bytes, mode " << step.mode << ", user " << step.user;
        ASSERT_EQ(got.output, expected.output) << "step " << i;
        ++met[got.status];
    }
    for (const QelStatus status : {QEL_OK, QEL_ERR_BUFFER_SIZE, QEL_ERR_ENCRYPT, QEL_ERR_DECRYPT,
                                   QEL_ERR_BAD_PARAM, QEL_ERR_DOUBLE_ENCRYPT, QEL_ERR_EXPORT})
        EXPECT_GT(met[status], 500) << "the walk hardly came by status " << status;
}

TEST(ExportPolicy, TwoThreads) {
    const auto work = [](unsigned seed) {
        std::mt19937 random(seed);
        const TestContext context;
        for (int i = 0; i < 2000; ++i) {
            const TestCipher &cipher = weak_ciphers[random() % 3];
            const Bytes text = random_bytes(random, 60 + random() % 20);
            const Result encrypted =
                call(qel_encrypt, context, nullptr, cipher, text, QEL_MODE_FINAL);
            ASSERT_EQ(encrypted.status, QEL_OK);
            // The other thread decides whether it is remembered, and with the mask on or off.
            const Result decrypted =
                call(qel_decrypt, context, nullptr, cipher, encrypted.output, QEL_MODE_FINAL);
            if (decrypted.status != QEL_ERR_DOUBLE_ENCRYPT) {
                ASSERT_EQ(decrypted.status, QEL_OK);
                ASSERT_EQ(decrypted.output, text);
            }
        }
    };
    std::thread one(work, 1);
    std::thread two(work, 2);
    one.join();
    two.join();
}

} // namespace
