// A certificate from its bytes to a structure and released again, and back to bytes.
#include "bench.h"

#include <fstream>
#include <gnutls/x509.h>
#include <iterator>
#include <openssl/x509.h>

#include <qel/qelp.h>

namespace {

Bytes vector_file(const std::string &name) {
    std::ifstream file(std::string(QEL_BENCH_VECTORS) + "/" + name, std::ios::binary);
    require(static_cast<bool>(file), name.c_str());
    return {std::istreambuf_iterator<char>(file), {}};
}

void certificate(const std::string &label, const Bytes &der) {
    const std::string decode = "certificate-decode/" + label + "/";
    const std::string encode = "certificate-encode/" + label + "/";

    QelContext *context = nullptr;
    require(__qel_init(&context, nullptr, nullptr) == QEL_OK, "context");
    row(decode + "qel", der.size(), [context, der] {
        void *value = nullptr;
        require(__qel_asn1_decode(context, der.data(), static_cast<uint32_t>(der.size()),
                                  QEL_PDU_Certificate, &value) == QEL_OK,
                "decode");
        QelCert *cert = static_cast<QelCert *>(value);
        qel_free_cert(&cert);
    });
    void *value = nullptr;
    require(__qel_asn1_decode(context, der.data(), static_cast<uint32_t>(der.size()),
                              QEL_PDU_Certificate, &value) == QEL_OK,
            "decode");
    row(encode + "qel", der.size(), [context, value] {
        uint8_t *bytes = nullptr;
        uint32_t size = 0;
        require(__qel_asn1_encode(context, value, QEL_PDU_Certificate, &bytes, &size) == QEL_OK,
                "encode");
        std::free(bytes);
    });

    row(decode + "openssl", der.size(), [der] {
        const uint8_t *at = der.data();
        X509 *cert = d2i_X509(nullptr, &at, static_cast<long>(der.size()));
        require(cert != nullptr, "openssl decode");
        X509_free(cert);
    });
    const uint8_t *at = der.data();
    X509 *cert = d2i_X509(nullptr, &at, static_cast<long>(der.size()));
    row(encode + "openssl", der.size(), [cert] {
        // Not from the bytes that the decoder kept, but from the structure, as ours.
        uint8_t *bytes = nullptr;
        require(i2d_re_X509_tbs(cert, &bytes) > 0, "openssl encode");
        OPENSSL_free(bytes);
        bytes = nullptr;
        require(i2d_X509(cert, &bytes) > 0, "openssl encode");
        OPENSSL_free(bytes);
    });

    // GnuTLS decodes with libtasn1.
    row(decode + "gnutls", der.size(), [der] {
        gnutls_x509_crt_t parsed;
        const gnutls_datum_t in = {const_cast<uint8_t *>(der.data()),
                                   static_cast<unsigned>(der.size())};
        gnutls_x509_crt_init(&parsed);
        require(gnutls_x509_crt_import(parsed, &in, GNUTLS_X509_FMT_DER) == 0, "gnutls decode");
        gnutls_x509_crt_deinit(parsed);
    });
}

} // namespace

void register_asn1() {
    certificate("v1", vector_file("certs/md2/class-3-public-primary-certification-a-96.der"));
    certificate("v3", vector_file("certs/md5/globalsign-root-ca-98.der"));
}
