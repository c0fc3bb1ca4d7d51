// Text with certificates: every step must lead forward, what is read must be a certificate, and a
// failure must leave nothing to read.
#include "fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    const auto *text = reinterpret_cast<const char *>(data);
    const char *end = text + size;
    auto remaining = static_cast<uint32_t>(size);
    while (remaining != 0) {
        const uint32_t before = remaining;
        QelCert *cert = nullptr;
        const QelStatus status = __qel_read_next_cert(context(), &text, &remaining, &cert);
        must(status == QEL_OK ? text + remaining == end && remaining < before
                              : remaining == 0 && cert == nullptr);
        must(cert != nullptr || remaining == 0);
        qel_free_cert(&cert);
    }
    return 0;
}
