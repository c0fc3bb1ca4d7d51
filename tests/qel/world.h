// world.h: certificates from short descriptions, and a store that has them, in place of the naming
// service (replaced at link time, see tests/CMakeLists.txt).
//
// "A<B" is a certificate of CN=A with the key A, issued by CN=B with the key B. A digit makes
// another key of the same name: "A2<B". Letters in lower case are the same keys, but names in lower
// case. Behind it may stand "-" expired, "!" signed with a key that nobody has, "+" with a critical
// extension, "=" a subject in PrintableString instead of T61String.
#ifndef TESTS_QEL_WORLD_H
#define TESTS_QEL_WORLD_H

#include "qel/signer.h"
#include "support/fault.h"
#include "support/records.h"

#include <cctype>
#include <cstring>
#include <map>
#include <sstream>

namespace world {

using records::OwnedCert;

inline const SignerKey &key_of(std::string id) {
    static std::map<std::string, std::unique_ptr<SignerKey>> keys;
    for (char &letter : id)
        letter = static_cast<char>(std::toupper(letter));
    std::unique_ptr<SignerKey> &key = keys[id];
    if (key == nullptr)
        key = std::make_unique<SignerKey>(RsaKey(512));
    return *key;
}

inline std::string name_of(const std::string &id) {
    return "CN=" + id.substr(0, id.find_first_of("0123456789")) + ", O=World";
}

inline QelName *parsed(QelContext *context, const std::string &text) {
    QelName *name = nullptr;
    EXPECT_EQ(qel_str2dn(context, text.c_str(), &name), QEL_OK) << text;
    return name;
}

inline QelValidity *validity(bool expired) {
    QelUTCTime from = {96, 1, 1, 0, 0, 0, 0, 0, 1}, to = from;
    to.year = expired ? 97 : 137;
    return records::heap(QelValidity{records::heap(from), records::heap(to)});
}

inline QelAlgId *copy_of(const QelAlgId *algorithm) {
    QelAlgId *copy = nullptr;
    EXPECT_EQ(__qel_copy_algid(&copy, algorithm), QEL_OK);
    return copy;
}

inline QelKeyInfo *copy_of(const QelKeyInfo &key) {
    QelKeyInfo *copy = nullptr;
    EXPECT_EQ(__qel_copy_keyinfo(&copy, &key), QEL_OK);
    return copy;
}

inline void sign(QelContext *context, QelCert *certificate, const SignerKey &key) {
    EXPECT_EQ(__qel_sign_cert(context, certificate, QEL_RSA_ENCR_AID, key.private_bytes.data(),
                              length_of(key.private_bytes), nullptr),
              QEL_OK);
}

// A certificate of version 3 for these names, signed.
inline OwnedCert issue(QelContext *context, const std::string &subject, const SignerKey &key,
                       const std::string &issuer, const SignerKey &issuer_key, bool expired = false,
                       const QelAlgId *algorithm = QEL_MD5WithRSAEncryption_AID) {
    static uint32_t serial = 0;
    ++serial;
    const Bytes number = {1, static_cast<uint8_t>(serial >> 16), static_cast<uint8_t>(serial >> 8),
                          static_cast<uint8_t>(serial)};
    auto *made = records::heap(QelCert{});
    made->version = 2;
    made->serial = {4, records::heap_bytes(number)};
    made->signature = copy_of(algorithm);
    made->algorithm = copy_of(algorithm);
    made->issuer = parsed(context, issuer);
    made->subject = parsed(context, subject);
    made->validity = validity(expired);
    made->pubKeyInfo = copy_of(key.info);
    sign(context, made, issuer_key);
    return OwnedCert(made);
}

inline OwnedCert certificate(QelContext *context, const std::string &text) {
    const std::size_t middle = text.find('<'), end = text.find_last_not_of("-!+=") + 1;
    const std::string subject = text.substr(0, middle),
                      issuer = text.substr(middle + 1, end - middle - 1);
    const auto has = [&](char flag) { return text.find(flag, end) != text.npos; };
    const SignerKey &by = key_of(has('!') ? "Nobody" : issuer);
    OwnedCert made =
        issue(context, name_of(subject), key_of(subject), name_of(issuer), by, has('-'));
    if (has('+')) {
        made->extensions = records::full_extensions();
        made->mask |= QEL_CERT_EXTENSIONS;
    }
    if (has('='))
        for (QelRdnSeq *node = made->subject->rdns; node != nullptr; node = node->next)
            node->rdn->ava->value->value[0] = 0x13;
    if (has('+') || has('='))
        sign(context, made.get(), by);
    return made;
}

inline std::vector<std::string> words(const std::string &text) {
    std::istringstream stream(text);
    return {std::istream_iterator<std::string>(stream), {}};
}

// The certificates of a store by their normalised subjects, in the order in which they come. A name
// that is not there gives QEL_ERR_UNKNOWN_USER, as the naming service does.
inline std::map<std::string, std::vector<OwnedCert>> store;
inline std::size_t fetched; // how often the store was asked
inline std::function<QelStatus(QelContext *, const char *, QelCert **, int *)> other_store;

inline std::string subject_of(QelContext *context, const QelCert &certificate) {
    char *text = nullptr;
    EXPECT_EQ(qel_dn2str(context, certificate.subject, &text), QEL_OK);
    const qel::Owned<char> owner(text);
    return text != nullptr ? text : "";
}

// Puts the certificates described into an empty store.
inline void fill_store(QelContext *context, const std::string &descriptions) {
    store.clear();
    fetched = 0;
    for (const std::string &text : words(descriptions)) {
        OwnedCert made = certificate(context, text);
        const std::string subject = subject_of(context, *made);
        store[subject].push_back(std::move(made));
    }
}

// Trusted keys "R A2-" of the names; those with "-" have expired.
class TrustedKeys {
public:
    TrustedKeys(QelContext *context, const std::string &descriptions) {
        for (std::string id : words(descriptions)) {
            const bool expired = id.back() == '-';
            if (expired)
                id.pop_back();
            add(context, name_of(id), key_of(id).info, expired);
        }
    }
    TrustedKeys() = default;
    ~TrustedKeys() {
        while (list != nullptr) {
            QelTrustedKeys *node = std::exchange(list, list->next);
            __qel_free_trusted_key(&node->key);
            free(node);
        }
    }
    TrustedKeys(const TrustedKeys &) = delete;
    TrustedKeys &operator=(const TrustedKeys &) = delete;
    void add(QelContext *context, const std::string &owner, const QelKeyInfo &key, bool expired) {
        QelTrustedKey *made = records::heap(QelTrustedKey{});
        made->owner = parsed(context, owner);
        made->pubKeyInfo = copy_of(key);
        made->validity = validity(expired);
        list = records::heap(QelTrustedKeys{list, made});
    }
    QelTrustedKeys *list = nullptr;
};

// Names as the library takes them.
class Names {
public:
    explicit Names(const std::string &ids) {
        for (const std::string &id : words(ids))
            texts_.push_back(name_of(id));
        for (const std::string &text : texts_)
            pointers_.push_back(text.c_str());
        pointers_.push_back(nullptr);
    }
    const char *const *get() const { return pointers_.size() > 1 ? pointers_.data() : nullptr; }

private:
    std::vector<std::string> texts_;
    std::vector<const char *> pointers_;
};

// "A B2": the subjects of certificates, each with the number of its key.
inline std::string ids_of(QelContext *context, const QelCert *certificates, int count) {
    std::string ids;
    for (int i = 0; i < count; ++i) {
        const std::string subject = subject_of(context, certificates[i]);
        std::string id = subject.substr(3, subject.find(',') - 3);
        for (const std::string number : {"", "2", "3"}) {
            int difference = 0;
            __qel_cmp_keyinfo(&key_of(id + number).info, certificates[i].pubKeyInfo, &difference);
            if (difference == 0) {
                id += number;
                break;
            }
        }
        ids += (ids.empty() ? "" : " ") + id;
    }
    return ids;
}

// What qel_get_cert_chain was asked last.
inline const char *const *asked_names;
inline int asked_flag;

// The key package of the calling user: owner, public key and trusted keys, and nothing else. Null: the
// user is not logged in.
struct Package {
    std::string id; // of owner and key
    std::string trusted;
};
inline std::unique_ptr<Package> package;

} // namespace world

extern "C" {

// The chain of first issuers, up to a self-signed one or to where the store ends.
QelStatus __wrap_qel_get_cert_chain(QelContext *context, const QelCert *certificate,
                                    const char *const *names, int flag, QelCert **chain,
                                    int *count) {
    world::asked_names = names;
    world::asked_flag = flag;
    *chain = nullptr;
    *count = 0;
    std::vector<const QelCert *> path = {certificate};
    for (;;) {
        char *text = nullptr;
        int difference = 0;
        QelStatus status = qel_dn2str(context, path.back()->issuer, &text);
        const qel::Owned<char> issuer(text);
        if (status == QEL_OK)
            status = __qel_cmp_dn(context, path.back()->issuer, path.back()->subject, &difference);
        if (status != QEL_OK)
            return status;
        const auto found = world::store.find(text);
        if (difference == 0 || found == world::store.end())
            break;
        path.push_back(found->second[0].get());
    }
    for (auto at = path.rbegin(); at != path.rend(); ++at) {
        QelCert *longer = nullptr;
        int length = 0;
        const QelStatus status = __qel_append_cert_to_chain(*at, *chain, *count, &longer, &length);
        qel_free_cert_list(chain, *count);
        *chain = longer;
        *count = length;
        if (status != QEL_OK)
            return status;
    }
    return QEL_OK;
}

QelStatus __wrap_qel_get_keypkg(QelContext *context, const char *name, QelKeyPkg **package_out) {
    EXPECT_EQ(name, nullptr) << "that of the calling user";
    *package_out = nullptr;
    if (world::package == nullptr)
        return QEL_ERR_NOT_LOGGED_IN;
    auto *made = records::heap(QelKeyPkg{});
    made->owner = world::parsed(context, world::name_of(world::package->id));
    made->pubKeyInfo = world::copy_of(world::key_of(world::package->id).info);
    world::TrustedKeys trusted(context, world::package->trusted);
    made->tKeys = std::exchange(trusted.list, nullptr);
    if (made->tKeys != nullptr)
        made->mask = QEL_KEYPKG_TKEYS;
    *package_out = made;
    return QEL_OK;
}

QelStatus __wrap_qel_get_cert(QelContext *context, const char *subject, QelCert **certificates,
                              int *count) {
    ++world::fetched;
    *certificates = nullptr;
    *count = 0;
    if (world::other_store)
        return world::other_store(context, subject, certificates, count);
    char *text = nullptr;
    const QelStatus status = __qel_normalize_DN(context, subject, 1, &text);
    const qel::Owned<char> owner(text);
    if (status != QEL_OK)
        return status;
    const auto found = world::store.find(text);
    if (found == world::store.end())
        return QEL_ERR_UNKNOWN_USER;
    if (found->second.empty())
        return QEL_OK;
    auto *array = static_cast<QelCert *>(std::calloc(found->second.size(), sizeof(QelCert)));
    if (array == nullptr)
        return QEL_ERR_NO_MEMORY;
    for (const auto &certificate : found->second) {
        if (const QelStatus copied = __qel_copy2_cert(array + *count, certificate.get());
            copied != QEL_OK) {
            qel_free_cert_list(&array, *count);
            std::free(array);
            *count = 0;
            return copied;
        }
        ++*count;
    }
    *certificates = array;
    return QEL_OK;
}

} // extern "C"

#endif
