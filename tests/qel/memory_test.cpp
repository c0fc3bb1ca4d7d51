// Once an operation is over, no copy of its secrets but the caller's is anywhere in memory: not in
// blocks that are in use or were freed, not on the stack, not among the variables of any library.
#include "qel/signer.h"
#include "support/fault.h"
#include "support/keypkg.h"
#include "support/memory_scan.h"

#include <openssl/rand.h>
#include <toolkit/des.h>
#include <toolkit/dh.h>
#include <toolkit/rc2.h>
#include <toolkit/rc4.h>

namespace {

// Made by OpenSSL in another process. Those that are secret are veiled.
struct Material {
    Bytes phrase, new_phrase, derived, private_info, private_key, private_numbers, session_key,
        armour, digits;                 // of the private key
    std::vector<Bytes> schedules;       // of DES, triple DES, RC2 and RC4
    Bytes exponent;                     // of the agreement
    Bytes package, public_key, wrapped; // not secret
};

const Bytes prime = from_hex("eb2425d2bb372a6c3cca8dcc962ddeb7f40b97c3b371bcb95a4d79eb42ea49a9"
                             "e616d893e530e88c282ff92ce1f66f94dc4b4cb93c772b7163273891792be47b");

template <class Schedule> Bytes bytes_of_schedule(const Schedule &schedule) {
    const auto *bytes = reinterpret_cast<const uint8_t *>(&schedule);
    return Bytes(bytes, bytes + sizeof schedule);
}

std::vector<Bytes> schedules_of(const Bytes &key) {
    toolkit::DesKey des;
    toolkit::DesEde3Key des3;
    toolkit::Rc2Key rc2;
    toolkit::Rc4 rc4;
    Bytes weak = key;
    for (std::size_t i = 1; i < 8; i += 2)
        weak[i] &= 0x0f;
    toolkit::des_set_key(&des, weak.data());
    toolkit::des_ede3_set_key(&des3, key.data());
    toolkit::rc2_set_key(&rc2, key.data(), 16, 32);
    toolkit::rc4_set_key(&rc4, key.data(), 16);
    return {bytes_of_schedule(des), bytes_of_schedule(des3), bytes_of_schedule(rc2),
            bytes_of_schedule(rc4)};
}

Bytes exponent_from(const Bytes &seed) {
    Bytes modulus = prime, base = {2}, exponent(20), value(64);
    toolkit::DhGroup *group = nullptr;
    toolkit::DigestRandom random;
    toolkit::digest_random_init(&random, toolkit::RandomDigest::md5);
    toolkit::digest_random_seed(&random, seed.data(), seed.size());
    if (toolkit::dh_group_new(&group, {modulus.data(), 64}, {base.data(), 1}, 160) != 0 ||
        toolkit::dh_generate(group, exponent.data(), value.data(),
                             toolkit::digest_random_source(&random)) != 0)
        std::abort();
    return exponent;
}

// -1 / prime modulo 2^64, as multiplication modulo it needs.
Bytes negative_inverse(const Bytes &number) {
    uint64_t low = 0, inverse = 1;
    for (std::size_t i = number.size() - 8; i < number.size(); ++i)
        low = low << 8 | number[i];
    for (int i = 0; i < 6; ++i)
        inverse *= 2 - low * inverse;
    Bytes bytes(8);
    for (std::size_t i = 0; i < 8; ++i)
        bytes[i] = static_cast<uint8_t>(-inverse >> (56 - 8 * i));
    return bytes;
}

std::vector<Bytes> make_material() {
    const auto random = [](std::size_t size) {
        Bytes bytes(size);
        RAND_bytes(bytes.data(), static_cast<int>(size));
        for (uint8_t &byte : bytes)
            byte |= 1; // no zero in a phrase
        return bytes;
    };
    const RsaKey rsa(512);
    TestKeyPackage package = test_key_package(rsa);
    package.phrase = text_of(random(24));
    package.count = 20;
    const Bytes key = rsa.private_key(), session_key = random(24);
    const Bytes exponent = from_hex("0203010001");
    const Bytes info = rsa.private_key_info();
    Bytes armour(info.size() * 2);
    armour.resize(static_cast<std::size_t>(
        EVP_EncodeBlock(armour.data(), info.data(), static_cast<int>(info.size()))));
    const auto numbers = std::search(key.begin(), key.end(), exponent.begin(), exponent.end()) + 5;
    std::vector<Bytes> all = schedules_of(session_key);
    all.insert(all.end(),
               {bytes_of(package.phrase), random(24), package.key_and_iv(), info, key,
                Bytes(numbers, key.end()) + negative_inverse(rsa.prime1()) +
                    negative_inverse(rsa.prime2()),
                session_key, armour, bytes_of(to_hex(info)), exponent_from(session_key)});
    for (Bytes &secret : all)
        secret = veiled(secret);
    all.insert(all.end(), {package.encoding(), rsa.public_key(), rsa.encrypt(session_key)});
    return all;
}

const Material &material() {
    static const Material made = [] {
        std::vector<Bytes> m = made_elsewhere(make_material);
        m.resize(17);
        return Material{m[4],  m[5],  m[6],  m[7],  m[8],
                        m[9],  m[10], m[11], m[12], {m[0], m[1], m[2], m[3]},
                        m[13], m[14], m[15], m[16]};
    }();
    return made;
}

// The call of the platform that fails while an operation runs; nth is 0 when none does.
struct Failing {
    fault::Call call;
    std::size_t nth;
};
Failing failing = {fault::Call::allocate, 0};
bool met;

// Lets it fail as long as this lives.
struct Failure {
    Failure() { fault::fail(failing.call, failing.nth); }
    ~Failure() { met = fault::clear(failing.call); }
    Failure(const Failure &) = delete;
    Failure &operator=(const Failure &) = delete;
};

// The context of an operation, made and ended while nothing fails.
class FailingContext : public TestContext {
    const Failure failure_;
};

void expect(QelStatus status, bool good = true) {
    EXPECT_TRUE(failing.nth != 0 || (status == QEL_OK) == good) << status;
}

const Bytes iv_parameters = from_hex("04080101010101010101");

// Encrypts in parts and decrypts in one with the first bytes of the session key.
void there_and_back(Holder &holder, decltype(kvdsaivqa) *encrypt, decltype(kvdsaivqa) *decrypt,
                    const QelOid *oid, uint32_t key_length, std::size_t schedule) {
    const FailingContext context;
    holder.look_for(material().schedules[schedule]);
    Bytes secret(material().session_key.begin(), material().session_key.begin() + key_length);
    for (std::size_t i = 1; oid == QEL_DES_CBC_OID && i < key_length; i += 2)
        secret[i] = (secret[i] & 0x0f) | 0xa0; // 0 above, unveiled
    const uint8_t *key = holder.take(secret);
    QelOctetString parameters = {length_of(iv_parameters),
                                 const_cast<uint8_t *>(iv_parameters.data())};
    const QelAlgId algorithm = {const_cast<QelOid *>(oid), &parameters};
    uint8_t text[50] = {}, encrypted[200], *out = encrypted;
    uint32_t first = 100, rest = 100, length = 0;
    expect(encrypt(context, text, 50, QEL_MODE_UPDATE, &algorithm, key, key_length, &algorithm,
                   &out, &first));
    out += first;
    expect(encrypt(context, text, 50, QEL_MODE_FINAL, &algorithm, key, key_length, &algorithm, &out,
                   &rest));
    out = nullptr;
    expect(decrypt(context, encrypted, first + rest, QEL_MODE_FINAL, &algorithm, key, key_length,
                   &algorithm, &out, &length));
    free(out);
    length = 0;
    out = nullptr;
    expect(decrypt(context, text, 50, QEL_MODE_FINAL, &algorithm, key, key_length, &algorithm, &out,
                   &length),
           oid == QEL_RC4_OID);
    free(out);
}

void unwrap(Holder &holder, uint8_t damage) {
    const FailingContext context;
    const Bytes &key = material().private_key;
    holder.look_for(material().private_numbers);
    Bytes wrapped = material().wrapped;
    wrapped.back() ^= damage;
    uint8_t *out = nullptr;
    uint32_t length = 0;
    const QelStatus status =
        qel_unwrap_key(context, wrapped.data(), length_of(wrapped), QEL_RSA_ENCR_AID,
                       holder.take_unwatched(key), length_of(key), QEL_RSA_ENCR_AID, &out, &length);
    expect(status, damage == 0);
    holder.look_for(material().session_key);
    if (out != nullptr)
        holder.made(out, length);
    free(out);
}

const char *phrase_of(Holder &holder, const Bytes &phrase) {
    return reinterpret_cast<const char *>(holder.take(phrase));
}

void open_package(Holder &holder, bool right) {
    const FailingContext context;
    const Bytes &der = material().package;
    holder.look_for(material().derived);
    holder.look_for(material().private_numbers);
    QelKeyPkg *package = nullptr;
    uint8_t *key = nullptr;
    uint32_t length = 0;
    const QelStatus status = __qel_validate_keypkg_with_pwd(
        context, der.data(), length_of(der),
        phrase_of(holder, right ? material().phrase : material().new_phrase), &package, &key,
        &length);
    expect(status, right);
    if (key != nullptr)
        explicit_bzero(key, length);
    free(key);
    qel_free_keypkg(&package);
}

void prove(Holder &holder) {
    const FailingContext context;
    const Bytes &der = material().package, &key = material().private_key;
    const Bytes algorithm = ber("30{06{2a864886f70d010101}0500}");
    holder.look_for(material().private_numbers);
    expect(__qel_validate_keypkg_with_privkey(context, der.data(), length_of(der),
                                              holder.take_unwatched(key), length_of(key),
                                              algorithm.data(), length_of(algorithm)));
    uint32_t size = 0;
    expect(__qel_get_rsa_keysize(context, QEL_RSA_PRIVATE, holder.take_unwatched(key),
                                 length_of(key), &size));
}

void change(Holder &holder) {
    const FailingContext context;
    const Bytes &der = material().package, &info = material().private_info;
    holder.look_for(material().private_numbers);
    QelKeyPkg *package = nullptr;
    expect(__qel_verify_keypkg_sig(context, der.data(), length_of(der), &package));
    expect(__qel_change_pass_phrase(context, phrase_of(holder, material().new_phrase),
                                    holder.take_unwatched(info), length_of(info), package));
    qel_free_keypkg(&package);
}

void derive(Holder &holder) {
    const FailingContext context;
    uint8_t salt[] = {1, 2, 3, 4, 5, 6, 7, 8}, *key = nullptr, *iv = nullptr;
    const char *phrase = phrase_of(holder, material().phrase);
    PassPhraseKeyInput input = {salt, 8, const_cast<char *>(phrase), 20};
    uint32_t key_length = 0, iv_length = 0;
    expect(__qel_gen_des3_key_from_pwd(context, &input, &key, &key_length, &iv, &iv_length));
    holder.made(key, key_length);
    holder.made(iv, iv_length);
    free(key);
    free(iv);
    Bytes pbe = from_hex("300d 0408 0102030405060708 020114");
    QelOctetString encoded = {length_of(pbe), pbe.data()}, *parameters = nullptr;
    for (const QelOid *oid : {QEL_PbeWithMD2AndDES_CBC_OID, QEL_PbeWithMD5AndDES_CBC_OID}) {
        const QelAlgId algorithm = {const_cast<QelOid *>(oid), &encoded};
        expect(__qel_gen_des_key_from_pwd(context, &algorithm, phrase, &key, &parameters));
        holder.made(key, 8);
        free(key);
        __qel_free_ostr(&parameters);
    }
}

void sign(Holder &holder) {
    const FailingContext context;
    const Bytes &key = material().private_key;
    holder.look_for(material().private_numbers);
    uint8_t *signature = nullptr;
    uint32_t length = 0;
    expect(qel_sign(context, key.data(), 20, QEL_MODE_FINAL, QEL_RSA_ENCR_AID,
                    holder.take_unwatched(key), length_of(key), QEL_MD5WithRSAEncryption_AID,
                    &signature, &length));
    free(signature);
}

void wrap(Holder &holder) {
    const FailingContext context;
    Bytes der = material().public_key;
    const QelBitString bits = {length_of(der) * 8, der.data()};
    uint8_t *wrapped = nullptr;
    uint32_t length = 0;
    expect(vfeqjfkkj(context, holder.take(material().session_key), 24, QEL_RC4_AID, &bits,
                     QEL_RSA_ENCR_AID->parameters, QEL_RSA_ENCR_AID, &wrapped, &length));
    free(wrapped);
}

void agree(Holder &holder) {
    const FailingContext context;
    holder.look_for(material().exponent);
    const uint8_t base[] = {2}, other[] = {0x55, 0x66, 0x77, 0x88};
    uint8_t value[64], secret[64];
    uint32_t length = 0;
    expect(__qel_dh_part1(context, 160, 64, prime.data(), 1, base,
                          holder.take(material().session_key), 24, value, 64));
    expect(__qel_dh_part2(context, secret, &length, 64, other, 4));
    holder.made(secret, length);
}

void generate(Holder &holder) {
    const FailingContext context;
    uint8_t *key = nullptr, *public_key = nullptr;
    QelOctetString *parameters = nullptr;
    const auto expect_key = [&](QelStatus status, std::size_t size) {
        expect(status);
        holder.made(key, size);
        free(std::exchange(key, nullptr));
        __qel_free_ostr(&parameters);
    };
    expect_key(qel_gen_des_key(context, &key, &parameters), 8);
    expect_key(qel_gen_rc2_key(context, 16, 40, &key, &parameters), 16);
    expect_key(qel_gen_rc4_key(context, 16, &key), 16);
    expect_key(qel_random(32, &key), 32);

    uint8_t exponent[] = {1, 0, 1};
    const QelRsaKeypairParams wanted = {512, {3, exponent}};
    uint32_t bits = 0, length = 0;
    expect(qel_gen_rsa_keypair(context, &wanted, &public_key, &bits, &key, &length));
    // Sequence, version, modulus and public exponent are not secret.
    if (key != nullptr)
        holder.made(key + 79, length - 79);
    free(key);
    free(public_key);
}

// A private key to and from text; broken text cannot be read to its end.
void convert(Holder &holder, bool broken) {
    const Failure failure;
    const Bytes &armour = material().armour, &digits = material().digits;
    uint8_t *text = holder.take(armour), *bytes = nullptr;
    text[armour.size() - 5] = broken ? '!' : text[armour.size() - 5];
    uint32_t length = 0;
    expect(
        __qel_rfc1421_2_binary(reinterpret_cast<char *>(text), length_of(armour), &bytes, &length),
        !broken);
    holder.look_for(material().private_numbers);
    if (bytes != nullptr)
        explicit_bzero(bytes, length);
    free(bytes);

    text = holder.take(digits);
    text[digits.size() - 1] = broken ? 'g' : text[digits.size() - 1];
    bytes = nullptr;
    expect(__qel_hex_2_binary(reinterpret_cast<char *>(text), &bytes, &length), !broken);
    if (bytes != nullptr)
        explicit_bzero(bytes, length);
    free(bytes);

    const Bytes &info = material().private_info;
    bytes = holder.take_unwatched(info);
    for (const int form : {QEL_FORM_RAW, QEL_FORM_ARMOUR, QEL_FORM_HEX})
        expect(__qel_dump_output("/dev/null", form, bytes, length_of(info), 2, 64));
}

// From a file, here a pipe, to a file.
void convert_file(Holder &holder, QelStatus (*conversion)(const char *, const char *, int),
                  const Bytes &contents) {
    holder.look_for(material().private_numbers);
    holder.look_for(material().armour);
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    ASSERT_GT(write(ends[1], holder.take_unwatched(contents), contents.size()), 0);
    close(ends[1]);
    const std::string name = "/dev/fd/" + std::to_string(ends[0]);
    const Failure failure;
    expect(conversion(name.c_str(), "/dev/null", O_WRONLY));
    close(ends[0]);
}

// What each operation leaves, also when a call that it makes fails, each in turn.
void expect_nothing_left(const std::function<void(Holder &)> &operation) {
    EXPECT_EQ(left_by(operation), "");
    for (const fault::Call call :
         {fault::Call::allocate, fault::Call::open, fault::Call::read, fault::Call::getrandom}) {
        for (failing = {call, 1};; ++failing.nth) {
            SCOPED_TRACE(testing::Message() << "call " << failing.nth << " of kind "
                                            << static_cast<int>(call) << " fails");
            const auto scan_and_tell = [&] {
                const std::string found = scan_after(operation);
                return std::vector<Bytes>{bytes_of(found), Bytes(met)};
            };
            const std::vector<Bytes> told = made_elsewhere(scan_and_tell);
            ASSERT_EQ(told.size(), 2U);
            EXPECT_EQ(text_of(told[0]), "");
            if (told[1].empty())
                break;
        }
    }
    failing.nth = 0;
}

TEST(Memory, NoCopiesAreLeft) {
    if (!memory_can_be_scanned)
        GTEST_SKIP();
    const struct {
        const char *why;
        std::function<void(Holder &)> operation;
    } cases[] = {
        {"DES",
         [](Holder &h) { there_and_back(h, qel_encrypt, qel_decrypt, QEL_DES_CBC_OID, 8, 0); }},
        {"triple DES",
         [](Holder &h) { there_and_back(h, kvdsaivqa, kdlsdkspd, QEL_DES3_CBC_OID, 24, 1); }},
        {"RC2", [](Holder &h) { there_and_back(h, kvdsaivqa, kdlsdkspd, QEL_RC2_CBC_OID, 16, 2); }},
        {"RC4", [](Holder &h) { there_and_back(h, kvdsaivqa, kdlsdkspd, QEL_RC4_OID, 16, 3); }},
        {"wrapping", wrap},
        {"unwrapping", [](Holder &h) { unwrap(h, 0); }},
        {"unwrapping what does not open", [](Holder &h) { unwrap(h, 1); }},
        {"signing", sign},
        {"making keys", generate},
        {"agreeing", agree},
        {"keys from a pass phrase", derive},
        {"opening a package", [](Holder &h) { open_package(h, true); }},
        {"opening with a wrong phrase", [](Holder &h) { open_package(h, false); }},
        {"proving a private key", prove},
        {"changing the phrase", change},
        {"a key as text", [](Holder &h) { convert(h, false); }},
        {"broken text", [](Holder &h) { convert(h, true); }},
        {"a file into armour",
         [](Holder &h) { convert_file(h, __qel_binary_2_rfc1421_files, material().private_info); }},
        {"armour into a file",
         [](Holder &h) { convert_file(h, __qel_rfc1421_2_binary_files, material().armour); }},
        {"armour into lines",
         [](Holder &h) {
             convert_file(
                 h,
                 [](const char *from, const char *to, int flags) {
                     return __qel_add_linewraps(0, from, to, flags);
                 },
                 material().armour);
         }},
    };
    material(); // made while nothing fails
    for (const auto &c : cases) {
        SCOPED_TRACE(c.why);
        expect_nothing_left(c.operation);
    }
}

// The forms that are looked for are those that the library works with.
TEST(Memory, WhatIsUnderWayIsSeen) {
    if (!memory_can_be_scanned)
        GTEST_SKIP();
    const Material &made = material();
    const auto begin = [&](Holder &holder, const QelOid *oid, uint32_t key_length,
                           std::size_t schedule) {
        auto *context = new TestContext;
        holder.look_for(made.schedules[schedule]);
        QelOctetString parameters = {length_of(iv_parameters),
                                     const_cast<uint8_t *>(iv_parameters.data())};
        const QelAlgId algorithm = {const_cast<QelOid *>(oid), &parameters};
        const uint8_t text[50] = {}, *key = holder.take_unwatched(made.session_key);
        uint8_t encrypted[100], *out = encrypted;
        uint32_t length = sizeof encrypted;
        expect(kvdsaivqa(*context, text, 50, QEL_MODE_UPDATE, &algorithm, key, key_length,
                         &algorithm, &out, &length));
    };
    EXPECT_NE(left_by([&](Holder &h) { begin(h, QEL_DES3_CBC_OID, 24, 1); }), "");
    EXPECT_NE(left_by([&](Holder &h) { begin(h, QEL_RC2_CBC_OID, 16, 2); }), "");
    EXPECT_NE(left_by([&](Holder &h) { begin(h, QEL_RC4_OID, 16, 3); }), "");
    EXPECT_NE(left_by([&](Holder &holder) {
                  auto *context = new TestContext;
                  holder.look_for(made.exponent);
                  const uint8_t base[] = {2}, *seed = holder.take_unwatched(made.session_key);
                  uint8_t value[64];
                  expect(__qel_dh_part1(*context, 160, 64, prime.data(), 1, base, seed, 24, value,
                                        sizeof value));
              }),
              "");
}

uint8_t careless_variable[24];

TEST(Memory, CopiesAreSeen) {
    if (!memory_can_be_scanned)
        GTEST_SKIP();
    const Bytes &secret = material().session_key;
    const auto on_the_heap = [&](Holder &holder) {
        auto *copy = static_cast<uint8_t *>(malloc(2 * secret.size()));
        memcpy(copy + secret.size(), holder.take(secret), secret.size());
        asm volatile("" : : "r"(copy) : "memory");
        free(copy);
    };
    const auto on_the_stack = [&](Holder &holder) {
        uint8_t copy[24];
        memcpy(copy, holder.take(secret), secret.size());
        asm volatile("" : : "r"(copy) : "memory");
    };
    const auto in_a_variable = [&](Holder &holder) {
        const uint8_t *plain = holder.take(secret);
        std::reverse_copy(plain, plain + secret.size(), careless_variable);
    };
    const auto in_a_register = [&]([[maybe_unused]] Holder &holder) {
#ifdef __x86_64__
        const uint8_t *plain = holder.take(secret);
        asm volatile("movups (%0), %%xmm14" : : "r"(plain) : "xmm14");
#endif
    };
    EXPECT_NE(left_by(on_the_heap), "");
    EXPECT_NE(left_by(on_the_stack), "");
    EXPECT_NE(left_by(in_a_variable), "");
#ifdef __x86_64__
    EXPECT_NE(left_by(in_a_register), "");
#endif
    EXPECT_EQ(left_by([&](Holder &holder) { holder.take(secret); }), "");
}

} // namespace
