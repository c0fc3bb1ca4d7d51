#include "words.h"

#include <gtest/gtest.h>

#include <qel/qelserv.h>

namespace {

template <class T> using Routine = bool_t (*)(XDR *, T *);

template <class T> void release(Routine<T> routine, T *value) {
    xdr_free(reinterpret_cast<xdrproc_t>(routine), value);
}

template <class T> bool encode(Routine<T> routine, T value, Bytes *out) {
    out->assign(600000, 0xEE);
    XDR xdr;
    xdrmem_create(&xdr, reinterpret_cast<char *>(out->data()), static_cast<u_int>(out->size()),
                  XDR_ENCODE);
    const bool encoded = routine(&xdr, &value);
    out->resize(xdr_getpos(&xdr));
    return encoded;
}

// Decodes, and encodes again what came out.
template <class T> bool decode(Routine<T> routine, Bytes from, Bytes *again = nullptr) {
    XDR xdr;
    xdrmem_create(&xdr, reinterpret_cast<char *>(from.data()), static_cast<u_int>(from.size()),
                  XDR_DECODE);
    T value{};
    const bool decoded = routine(&xdr, &value) && xdr_getpos(&xdr) == from.size();
    if (decoded && again != nullptr) {
        EXPECT_TRUE(encode(routine, value, again));
    }
    release(routine, &value);
    return decoded;
}

char keyid[] = "me";
char host[] = "10.1.2.3";
uint8_t three[] = {1, 0xFF, 0x80};
const Bytes three_bytes(three, three + 3);

// Every type once: the value, what it must be on the wire, and back.
template <class T>
void expect_wire(const char *reason, Routine<T> routine, const T &value, const Words &wire) {
    SCOPED_TRACE(reason);
    Bytes encoded;
    EXPECT_TRUE(encode(routine, value, &encoded));
    EXPECT_EQ(to_hex(encoded), to_hex(wire.bytes));
    Bytes again;
    EXPECT_TRUE(decode(routine, wire.bytes, &again));
    EXPECT_EQ(to_hex(again), to_hex(wire.bytes));
    for (std::size_t size = 0; size < wire.bytes.size(); ++size)
        EXPECT_FALSE(decode(routine, Bytes(wire.bytes.begin(), wire.bytes.begin() + size))) << size;
}

TEST(Xdr, every_type_on_the_wire) {
    uid_list second = {-2, nullptr};
    uid_list first = {1001, &second};
    qelserv_keylist list_end = {10, host, 8, keyid, nullptr};
    qelserv_keylist list = {0, keyid, 7, host, &list_end};
    qelserv_keystat state = {8, keyid, host, 60, 4, 0x89ABCDEF, nullptr};
    qelserv_cryptdata data = {0, {3, three}};
    qelserv_keypkglist third = {0, {}, nullptr};
    qelserv_keypkglist middle = {0, {1, three}, &third};
    qelserv_keypkglist packages = {0, {3, three}, &middle};

    expect_wire("status", xdr_qelserv_status, qelserv_status{9}, Words(9));
    expect_wire("uids", xdr_uid_list, first, Words(1001, 1, 0xFFFFFFFE, 0));
    expect_wire("registration", xdr_qelserv_keyinfo,
                qelserv_keyinfo{keyid, nullptr, host, 3600, 1, {}, {}, {3, three}},
                Words(keyid, 0, host, 3600, 1, 0, 0, three_bytes));
    expect_wire("withdrawal", xdr_qelserv_keyinfo,
                qelserv_keyinfo{keyid, &second, host, 0, 0, {3, three}, {3, three}, {}},
                Words(keyid, 1, 0xFFFFFFFE, 0, host, 0, 0, three_bytes, three_bytes, 0));
    expect_wire("question for a list", xdr_qelserv_listinfo, qelserv_listinfo{7, -1},
                Words(7, 0xFFFFFFFF));
    expect_wire("list", xdr_qelserv_keylistp, qelserv_keylistp{&list},
                Words(1, 0, keyid, 7, host, 1, 10, host, 8, keyid, 0));
    expect_wire("question for a state", xdr_qelserv_statinfo, qelserv_statinfo{0, keyid, host, 0},
                Words(0, keyid, host, 0));
    expect_wire("state", xdr_qelserv_keystatp, qelserv_keystatp{&state},
                Words(1, 8, keyid, host, 60, 4, 0x89ABCDEF, 0));
    expect_wire("no state", xdr_qelserv_keystatp, qelserv_keystatp{}, Words(0));
    expect_wire("question for a signature", xdr_qelserv_cryptinfo,
                qelserv_cryptinfo{0, 0, 0, keyid, host, {3, three}, {2, three}},
                Words(0, 0, 0, keyid, host, three_bytes, Bytes{1, 0xFF}));
    expect_wire("signature", xdr_qelserv_cryptdatap, qelserv_cryptdatap{&data},
                Words(1, 0, three_bytes));
    expect_wire("no signature", xdr_qelserv_cryptdatap, qelserv_cryptdatap{}, Words(0));
    expect_wire("question for packages", xdr_qelserv_keypkginfo, qelserv_keypkginfo{keyid, host},
                Words(keyid, host));
    expect_wire("three packages", xdr_qelserv_keypkglistp, qelserv_keypkglistp{&packages},
                Words(1, 0, three_bytes, 1, 0, Bytes{1}, 1, 0, 0, 0));
}

// Every field at its bound, and one more.
TEST(Xdr, bounds) {
    Bytes bytes(65537, 7);
    const auto some = [](uint32_t count) { return Bytes(count, 7); };
    const auto info = [&](uint32_t strings, uint32_t key, uint32_t cert, uint32_t package) {
        std::string text(strings, 'x');
        qelserv_keyinfo value = {text.data(), nullptr, text.data(), 0, 0, {}, {}, {}};
        value.privkey = {key, bytes.data()};
        value.cert = {cert, bytes.data()};
        value.keypkg = {package, bytes.data()};
        Bytes out;
        const bool encoded = encode(xdr_qelserv_keyinfo, value, &out);
        const Words wire(text, 0, text, 0, 0, some(key), some(cert), some(package));
        EXPECT_EQ(decode(xdr_qelserv_keyinfo, wire.bytes), encoded);
        return encoded;
    };
    EXPECT_TRUE(info(1024, 1024, 8192, 65536));
    EXPECT_FALSE(info(1025, 0, 0, 0));
    EXPECT_FALSE(info(0, 1025, 0, 0));
    EXPECT_FALSE(info(0, 0, 8193, 0));
    EXPECT_FALSE(info(0, 0, 0, 65537));
    const auto crypt = [&](uint32_t algorithm, uint32_t data) {
        return decode(xdr_qelserv_cryptinfo,
                      Words(0, 0, 0, "", "", some(algorithm), some(data)).bytes);
    };
    EXPECT_TRUE(crypt(1024, 8192));
    EXPECT_FALSE(crypt(1025, 0));
    EXPECT_FALSE(crypt(0, 8193));
    EXPECT_FALSE(decode(xdr_qelserv_cryptdatap, Words(1, 0, some(8193)).bytes));
    EXPECT_FALSE(decode(xdr_qelserv_keypkglistp, Words(1, 0, some(65537)).bytes));
    EXPECT_FALSE(decode(xdr_qelserv_cryptdatap, Words(1, 0).packed(some(8)).bytes))
        << "packed data";
}

// A list as long as a message can be takes no stack.
TEST(Xdr, long_lists) {
    Words wire(1);
    for (int i = 0; i < 60000; ++i)
        wire.add(1).add(1);
    EXPECT_TRUE(decode(xdr_uid_list, wire.add(0).bytes));
}

} // namespace
