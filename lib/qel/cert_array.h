// cert_array.h: certificates in one block, as qel_free_cert_list releases them.
#ifndef QEL_CERT_ARRAY_H
#define QEL_CERT_ARRAY_H

#include <span>
#include <utility>

#include <lib/memory.h>
#include <qel/qelp.h>

namespace qel {

class CertArray {
public:
    CertArray() = default;
    CertArray(const CertArray &) = delete;
    CertArray &operator=(const CertArray &) = delete;
    ~CertArray() { reset(nullptr, 0); }

    std::span<const QelCert> certs() const { return {records_, static_cast<std::size_t>(count_)}; }
    const QelCert *records() const { return records_; }
    int count() const { return count_; }

    // Takes over an array whose first count records are in use.
    void reset(QelCert *records, int count) {
        if (count_ > 0)
            qel_free_cert_list(&records_, count_);
        std::free(records_);
        records_ = records;
        count_ = count;
    }
    // Room for so many records, none of which is in use.
    QelStatus make(std::size_t size) {
        reset(nullptr, 0);
        if (size <= INT32_MAX)
            records_ = static_cast<QelCert *>(std::calloc(size, sizeof(QelCert)));
        return records_ != nullptr ? QEL_OK : QEL_ERR_NO_MEMORY;
    }
    QelStatus add_copy(const QelCert *certificate) {
        const QelStatus status = __qel_copy2_cert(records_ + count_, certificate);
        count_ += status == QEL_OK;
        return status;
    }
    // Takes over the contents of a record of its own; the array has room for it.
    void add(QelCert *record) {
        records_[count_++] = *record;
        std::free(record);
    }
    void hand_over(QelCert **records_out, int *count_out) {
        *records_out = std::exchange(records_, nullptr);
        *count_out = std::exchange(count_, 0);
    }

private:
    QelCert *records_ = nullptr;
    int count_ = 0;
};

} // namespace qel

#endif
