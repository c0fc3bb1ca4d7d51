// The printable encoding, both ways, as one unbroken run of characters.
#include "bench.h"

#include <openssl/evp.h>
#include <tomcrypt.h>

#include <nettle/base64.h>

#include <toolkit/recode.h>

#include <gnutls/gnutls.h>

namespace {

Bytes encoded(const Bytes &data) {
    Bytes text(data.size() / 3 * 4 + 5);
    text.resize(static_cast<std::size_t>(
        EVP_EncodeBlock(text.data(), data.data(), static_cast<int>(data.size()))));
    return text;
}

void encode_rows(std::size_t size) {
    const std::string name = "armour-encode/" + std::to_string(size) + "/";
    const Bytes data = sample(size);
    row(name + "qel", size, [data, out = Bytes(size * 2)]() mutable {
        toolkit::RecodeEncoder encoder;
        toolkit::recode_encode_init(&encoder);
        const std::size_t written =
            toolkit::recode_encode_update(&encoder, out.data(), data.data(), data.size());
        toolkit::recode_encode_final(&encoder, out.data() + written);
    });
    row(name + "openssl", size, [data, out = Bytes(size * 2)]() mutable {
        EVP_EncodeBlock(out.data(), data.data(), static_cast<int>(data.size()));
    });
    row(name + "nettle", size, [data, out = Bytes(size * 2)]() mutable {
        base64_encode_ctx context;
        nettle_base64_encode_init(&context);
        char *text = reinterpret_cast<char *>(out.data());
        const std::size_t written =
            nettle_base64_encode_update(&context, text, data.size(), data.data());
        nettle_base64_encode_final(&context, text + written);
    });
    row(name + "libtomcrypt", size, [data, out = Bytes(size * 2 + 8)]() mutable {
        unsigned long written = out.size();
        ::base64_encode(data.data(), data.size(), out.data(), &written);
    });
    row(name + "gnutls", size, [data] {
        const gnutls_datum_t in = {const_cast<uint8_t *>(data.data()),
                                   static_cast<unsigned>(data.size())};
        gnutls_datum_t out = {};
        gnutls_base64_encode2(&in, &out);
        gnutls_free(out.data);
    });
}

void decode_rows(std::size_t size) {
    const std::string name = "armour-decode/" + std::to_string(size) + "/";
    const Bytes text = encoded(sample(size));
    row(name + "qel", size, [text, out = Bytes(size + 8)]() mutable {
        toolkit::RecodeDecoder decoder;
        toolkit::recode_decode_init(&decoder);
        std::size_t written = 0;
        require(toolkit::recode_decode_update(&decoder, out.data(), &written, text.data(),
                                              text.size()) &&
                    toolkit::recode_decode_final(&decoder),
                "decoding");
    });
    row(name + "openssl", size, [text, out = Bytes(size + 8)]() mutable {
        EVP_DecodeBlock(out.data(), text.data(), static_cast<int>(text.size()));
    });
    row(name + "nettle", size, [text, out = Bytes(size + 8)]() mutable {
        base64_decode_ctx context;
        nettle_base64_decode_init(&context);
        std::size_t written = out.size();
        nettle_base64_decode_update(&context, &written, out.data(), text.size(),
                                    reinterpret_cast<const char *>(text.data()));
        nettle_base64_decode_final(&context);
    });
    row(name + "libtomcrypt", size, [text, out = Bytes(size + 8)]() mutable {
        unsigned long written = out.size();
        ::base64_decode(text.data(), text.size(), out.data(), &written);
    });
    row(name + "gnutls", size, [text] {
        const gnutls_datum_t in = {const_cast<uint8_t *>(text.data()),
                                   static_cast<unsigned>(text.size())};
        gnutls_datum_t out = {};
        gnutls_base64_decode2(&in, &out);
        gnutls_free(out.data);
    });
}

} // namespace

void register_armour() {
    for (const std::size_t size : message_sizes) {
        encode_rows(size);
        decode_rows(size);
    }
}
